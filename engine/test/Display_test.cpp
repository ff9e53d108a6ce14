#include "engine/test/EventRecorder.hpp"
#include "foundation/json/Serializer.hpp"
#include "ylutil/io/StructuredOutputEvent.hpp"

#include <sstream>
#include <vector>

namespace yvm::engine::test {
namespace {

using foundation::json::Serializer;
using foundation::msg_svc::eventmgr::BaseEvent;
using ylutil::io::StructuredOutputEvent;

std::string dataOf(const StructuredOutputEvent& event) {
    return Serializer::serialize(event.data());
}

std::string metadataOf(const StructuredOutputEvent& event) {
    return Serializer::serialize(event.metadata());
}

/// The media types, and of images their size.
std::string typesOf(const StructuredOutputEvent& event) {
    std::string types;
    for (const auto& [type, content] : event.data()) {
        types += (types.empty() ? "" : " ") + type;
    }
    return event.metadata().empty() ? types : types + " " + metadataOf(event);
}

std::string commandOf(const BaseEvent& event) {
    std::ostringstream text;
    if (event.commandId()) {
        text << *event.commandId();
    }
    return text.str();
}

/// A command that takes its displayed values by a handler of its own, which notes them in `notes`.
Submission takingValues(const std::shared_ptr<EventNotes>& notes) {
    Submission submission;
    submission.runOptions.setCallbackImpl(
        [notes](const BaseEvent& event) {
            notes->add(dataOf(dynamic_cast<const StructuredOutputEvent&>(event)));
        },
        u"ylutil::io::StructuredOutputEvent");
    return submission;
}

Submission withCapabilities(const std::vector<std::string>& names) {
    Submission submission;
    submission.runOptions.setCapabilities(capabilities::CapabilityList::fromStringVector(names));
    return submission;
}

TEST_F(EngineTest, ADisplayedValueIsToldAsItIsPrinted) {
    const EventRecorder<StructuredOutputEvent> values(dataOf);
    EXPECT_EQ(eval("[1, 'a\U0001F600']"), "[1, 'a\U0001F600']\n");
    EXPECT_EQ(eval("1; 2;"), "");
    EXPECT_EQ(eval("None"), "");
    EXPECT_EQ(eval("import numpy, yvm\nyvm.display(numpy.arange(2), None)"), "array([0, 1])\nNone\n");
    EXPECT_EQ(values->all(), (std::vector<std::string>{R"({"text/plain":"[1, 'a😀']"})",
                                                       R"json({"text/plain":"array([0, 1])"})json",
                                                       R"({"text/plain":"None"})"}));
}

TEST_F(EngineTest, ADisplayedValueNamesItsCommandAndComesBehindTheTextBeforeIt) {
    auto transcript = std::make_shared<Transcript>();
    const EventRecorder<StructuredOutputEvent> values([&](const StructuredOutputEvent& event) {
        return commandOf(event) + " " + transcript->synchronisedText();
    });
    Submission submission;
    submission.ownStreams = false;
    const auto [out, err] = makeSinks(transcript);
    const auto restore = engine()->makeSinkRestorer(engine());
    engine()->replaceSinks(out, err);
    auto command =
        submitEval("import sys\nprint('out', end=''); print('err', end='', file=sys.stderr)\n7", submission);
    command.get();
    std::ostringstream id;
    id << command.id;
    EXPECT_EQ(values->text(), id.str() + " out[err]err7\n");
}

TEST_F(EngineTest, ACommandThatTakesItsValuesGetsThemOnce) {
    const auto notes = std::make_shared<EventNotes>();
    auto taking = submitEval("print('text')\n5", takingValues(notes));
    taking.get();
    EXPECT_EQ(taking.transcript->text(), "text\n");
    EXPECT_EQ(notes->text(), R"({"text/plain":"5"})");
    EXPECT_EQ(eval("6"), "6\n");
    EXPECT_EQ(notes->all().size(), 1U);
}

TEST_F(EngineTest, AThreadOfACommandDisplaysForThatCommand) {
    const auto notes = std::make_shared<EventNotes>();
    submitEval(
        "import threading, yvm\nt = threading.Thread(target=yvm.display, args=(1,)); t.start(); t.join()",
        takingValues(notes))
        .get();
    EXPECT_EQ(notes->text(), R"({"text/plain":"1"})");
}

TEST_F(EngineTest, AnObjectTellsItsMediaTypesAsJson) {
    const EventRecorder<StructuredOutputEvent> data(dataOf);
    const EventRecorder<StructuredOutputEvent> metadata(metadataOf);
    eval(R"(
class Rich:
    def __repr__(self): return 'rich'
    def _repr_html_(self): return '<b>\ud800</b>', {'isolated': True}
    def _repr_png_(self): return b'\x89PNG'
    def _repr_json_(self): return {'a': [1, -2.5, None, True, (3,)], 'big': 2 ** 70, 'nan': float('nan'), 4: ''}
Rich())");
    EXPECT_EQ(
        data->text(),
        R"({"application/json":{"4":"","a":[1,-2.5,null,true,[3]],"big":1180591620717411303424,"nan":null},)"
        R"("image/png":"iVBORw==","text/html":"<b>)"
        "\uFFFD"
        R"(</b>","text/plain":"rich"})");
    EXPECT_EQ(metadata->text(), R"({"text/html":{"isolated":true}})");
}

TEST_F(EngineTest, WhatIsNoJsonIsLeftOutAndTold) {
    const EventRecorder<StructuredOutputEvent> values(dataOf);
    const std::string text = eval(R"(
class Wrong:
    def __repr__(self): return 'wrong'
    def __init__(self, content): self.content = content
    def _repr_json_(self): return self.content
import yvm
loop = []; loop.append(loop)
yvm.display(Wrong(loop), Wrong({1, 2}), Wrong([b'']));)");
    EXPECT_EQ(values->text(), R"({"text/plain":"wrong"} {"text/plain":"wrong"} {"text/plain":"wrong"})");
    EXPECT_NE(text.find("application/json of a displayed value is left out: "
                        "Object of type set is not JSON serializable"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("Circular reference"), std::string::npos) << text;
}

TEST_F(EngineTest, AForkedChildTellsNobody) {
    const EventRecorder<StructuredOutputEvent> values(dataOf);
    eval(R"(
import os, yvm
if (child := os.fork()) == 0:
    yvm.display(1)
    os._exit(0)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0)");
    EXPECT_EQ(values->text(), "");
}

/// matplotlib is loaded by the first of these.
class FigureTest : public EngineTest {
  public:
    static void SetUpTestSuite() { EngineTest::eval("import matplotlib.pyplot as plt, yvm"); }
};

TEST_F(FigureTest, AFigureComesBehindTheTextOfItsCommandAndBeforeItsCompletion) {
    std::shared_ptr<Transcript> transcript;
    EventNotes order;
    Submission submission;
    submission.inCompletion = [&] { order.add("completion"); };
    const EventRecorder<StructuredOutputEvent> figures([&](const StructuredOutputEvent& event) {
        order.add(typesOf(event));
        return "";
    });
    auto command = submitEval("plt.plot([1, 2]);\nprint('text', end='');", std::move(submission));
    command.get();
    EXPECT_EQ(command.transcript->text(), "text");
    EXPECT_EQ(order.text(), R"(image/png text/plain {"image/png":{"height":480,"width":640}} completion)");
}

TEST_F(FigureTest, AFigureBelongsToTheCommandThatDrewIt) {
    const EventRecorder<StructuredOutputEvent> figures([](const auto& event) { return commandOf(event); });
    const EventRecorder<StructuredOutputEvent> types(typesOf);
    auto host = submitEval(
        "leave = False\nplt.figure(figsize=(2, 1)).add_subplot()\nprint('on', flush=True)\n"
        "while not leave: pass");
    host.transcript->waitFor("on");
    auto query = submitEval("plt.figure(figsize=(1, 1)).add_subplot(); leave = True",
                            inMode(DequeueMode::DEQUEUE_AT_PPE));
    query.get();
    host.get();
    std::ostringstream ids;
    ids << query.id << " " << host.id;
    EXPECT_EQ(figures->text(), ids.str());
    EXPECT_EQ(types->text(), R"(image/png text/plain {"image/png":{"height":100,"width":100}} )"
                             R"(image/png text/plain {"image/png":{"height":100,"width":200}})");
}

TEST_F(FigureTest, ACommandThatFailsSendsWhatItHasDrawn) {
    const EventRecorder<StructuredOutputEvent> figures(typesOf);
    EXPECT_EQ(evalError("plt.plot([1])\n1 / 0").GetID(), "ZeroDivisionError");
    EXPECT_EQ(figures->all().size(), 1U);
}

TEST_F(FigureTest, AStoppedCommandSendsNoneAndClosesThem) {
    const EventRecorder<StructuredOutputEvent> figures(typesOf);
    auto command = submitEval("plt.plot([1])\nprint('on', flush=True)\nwhile True: pass");
    command.transcript->waitFor("on");
    EXPECT_EQ(cancel(command.id, true), CancelStatus::CANCEL_WHILE_RUNNING);
    command.error();
    EXPECT_EQ(eval("plt.get_fignums()"), "[]\n");
    EXPECT_EQ(figures->text(), "text/plain");
}

TEST_F(FigureTest, DrawingCanBeInterrupted) {
    const EventRecorder<StructuredOutputEvent> figures(typesOf);
    auto command = submitEval(R"(
class Endless(plt.matplotlib.artist.Artist):
    def draw(self, renderer):
        print('drawing', flush=True)
        while True: pass
plt.figure().add_artist(Endless())
plt.figure().add_subplot();)");
    command.transcript->waitFor("drawing");
    EXPECT_EQ(cancel(command.id, true), CancelStatus::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(command.error().GetID(), "yvm.Interrupt");
    EXPECT_EQ(figures->text(), "");
    EXPECT_EQ(feval("matplotlib.pyplot.get_fignums").size(), 0U);
}

TEST_F(FigureTest, AFigureThatCannotBeDrawnIsToldAndTheCommandSucceeds) {
    const EventRecorder<StructuredOutputEvent> figures(typesOf);
    const std::string text = eval("plt.figure().text(0, 0, '$\\\\nothing$'); plt.figure().text(0, 0, 'a');");
    EXPECT_EQ(text.find("[err]figure 1 could not be drawn:\nTraceback"), 0U) << text;
    EXPECT_EQ(figures->all().size(), 1U);
}

TEST_F(FigureTest, WithoutTheCapabilityDrawingIsAnError) {
    const EventRecorder<StructuredOutputEvent> figures(typesOf);
    const auto error = submitEval("plt.plot([1])", withCapabilities({"input"})).error();
    EXPECT_EQ(error.GetID(), "RuntimeError");
    EXPECT_STREQ(error.what(), R"(the command may not draw figures: its run options give it no "figures")");
    auto others = submitEval("yvm.display(1); 2", withCapabilities({"input"}));
    others.get();
    EXPECT_EQ(others.transcript->text(), "1\n2\n");
}

TEST_F(FigureTest, FiguresOfPausesComeWhileTheCommandRuns) {
    const EventRecorder<StructuredOutputEvent> figures(typesOf);
    auto command = submitEval("leave = False\nplt.plot([1]);\nwhile not leave: plt.pause(0.01)");
    figures->waitFor(R"(image/png text/plain {"image/png":{"height":480,"width":640}})");
    submitEval("leave = True", inMode(DequeueMode::DEQUEUE_AT_PAUSE)).get();
    command.get();
    EXPECT_EQ(figures->all().size(), 1U);
}

}  // namespace
}  // namespace yvm::engine::test
