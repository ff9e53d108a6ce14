#include "engine/test/EventRecorder.hpp"
#include "fl/i18n/ustring.hpp"
#include "services/io/CLCEvent.hpp"
#include "services/io/HomeEvent.hpp"
#include "ylutil/io/PrintableErrorEvent.hpp"

#include <algorithm>
#include <sstream>

namespace yvm::engine::test {
namespace {

using foundation::msg_svc::eventmgr::BaseEvent;
using services::io::CLCEvent;
using services::io::HomeEvent;
using ylutil::io::PrintableErrorEvent;

std::string describe(const PrintableErrorEvent& event) {
    std::string note = event.identifier() + ": " + fl::i18n::to_string(event.message());
    for (const auto& frame : event.stack()) {
        note += " | " + frame.functionName + ":" + std::to_string(frame.lineNumber) + " " + frame.sourceLine;
    }
    return note;
}

class EngineEventsTest : public EngineTest {};

TEST_F(EngineEventsTest, AFailureIsToldWithItsStack) {
    const EventRecorder<PrintableErrorEvent> errors(describe);
    const auto error = evalError("def f():\n    return 1 / 0\nf()");
    EXPECT_EQ(errors->all(), std::vector<std::string>{
                                 "ZeroDivisionError: division by zero | <module>:3 f() | f:2 return 1 / 0"});
    EXPECT_EQ(error.getStackFrames().size(), 2U);
}

TEST_F(EngineEventsTest, AFailureIsToldBeforeItsCompletionAndBehindItsText) {
    std::vector<std::string> seen;
    auto transcript = std::make_shared<std::shared_future<std::shared_ptr<Transcript>>>();
    std::promise<std::shared_ptr<Transcript>> promise;
    *transcript = promise.get_future().share();
    const EventRecorder<PrintableErrorEvent> errors([&, transcript](const PrintableErrorEvent&) {
        seen.push_back(transcript->get()->synchronisedText());
        return "error";
    });
    Submission submission;
    submission.inCompletion = [&] { seen.emplace_back("completion"); };
    auto command = submitEval("print('before', end='')\nraise ValueError", submission);
    promise.set_value(command.transcript);
    command.error();
    EXPECT_EQ(seen, (std::vector<std::string>{"before", "completion"}));
}

TEST_F(EngineEventsTest, FailuresOfQueriesAndFevalsAreToldWithTheirCommand) {
    const EventRecorder<PrintableErrorEvent> errors([](const PrintableErrorEvent& event) {
        std::ostringstream note;
        note << *event.commandId() << " " << event.identifier();
        return note.str();
    });
    auto host = submitEval("import yvm\nprint('on', flush=True)\nyvm.pause(1000)");
    host.transcript->waitFor("on");
    auto query = submitFeval("math.sqrt", {scalar(-1.0)}, 1, inMode(DequeueMode::DEQUEUE_AT_PPE));
    query.error();
    cancel(host.id, true);
    host.error();
    std::ostringstream note;
    note << query.id << " ValueError";
    // That the host was stopped is no error.
    EXPECT_EQ(errors->all(), std::vector<std::string>{note.str()});
}

TEST_F(EngineEventsTest, ACommandThatNeverRanAndOneThatSucceedsTellNoError) {
    const EventRecorder<PrintableErrorEvent> errors(describe);
    auto busy = occupy();
    auto waiting = submitEval("1/0");
    cancel(waiting.id, false);
    release();
    busy.get();
    eval("try: 1/0\nexcept ZeroDivisionError: pass");
    EXPECT_EQ(errors->all().size(), 0U);
}

TEST_F(EngineEventsTest, ClcAndHomeAreToldInTheirPlaceAmongTheText) {
    std::promise<std::shared_ptr<Transcript>> promise;
    const auto transcript = promise.get_future().share();
    const EventRecorder<CLCEvent> cleared(
        [transcript](const CLCEvent&) { return transcript.get()->synchronisedText(); });
    const EventRecorder<HomeEvent> homes(
        [transcript](const HomeEvent&) { return transcript.get()->synchronisedText(); });
    auto command = submitEval(
        "import sys, yvm\nprint('a', end='')\nyvm.clc()\nprint('b', end='', file=sys.stderr)\nyvm.home()\n"
        "print('c')");
    promise.set_value(command.transcript);
    command.get();
    EXPECT_EQ(cleared->all(), std::vector<std::string>{"a"});
    EXPECT_EQ(homes->all(), std::vector<std::string>{"a[err]b"});
}

TEST_F(EngineEventsTest, InAFloodEachEventHasTheTextBeforeItAndNoMore) {
    std::promise<std::shared_ptr<Transcript>> promise;
    const auto transcript = promise.get_future().share();
    const EventRecorder<CLCEvent> cleared([transcript](const CLCEvent&) {
        return std::to_string(transcript.get()->synchronisedText().size()) + "/" +
               std::to_string(transcript.get()->text().size());
    });
    auto command = submitEval("import yvm\nfor i in range(200):\n    print('x' * 49)\n    yvm.clc()");
    promise.set_value(command.transcript);
    command.get();
    std::vector<std::string> expected;
    for (int i = 1; i <= 200; ++i) {
        expected.push_back(std::to_string(50 * i) + "/" + std::to_string(50 * i));
    }
    EXPECT_EQ(cleared->all(), expected);
}

TEST_F(EngineEventsTest, AnEventOfAQueryIsOfTheQueryAndOneOfAThreadOfItsCommand) {
    const EventRecorder<CLCEvent> cleared([](const CLCEvent& event) {
        std::ostringstream note;
        note << *event.commandId();
        return note.str();
    });
    auto host = submitEval(
        "import threading, yvm\nleave = False\nprint('on', flush=True)\nwhile not leave: pass\n"
        "t = threading.Thread(target=yvm.clc)\nt.start()\nt.join()\nyvm.clc()");
    host.transcript->waitFor("on");
    auto query = submitEval("import yvm; yvm.clc(); leave = True", inMode(DequeueMode::DEQUEUE_AT_PPE));
    query.get();
    host.get();
    std::ostringstream of;
    of << query.id << " " << host.id << " " << host.id;
    EXPECT_EQ(cleared->text(), of.str());
}

TEST_F(EngineEventsTest, ACommandsHandlerIsCalledBeforeSubscribersAndGetsBasesToo) {
    const auto order = std::make_shared<EventNotes>();
    const EventRecorder<BaseEvent> all([order](const BaseEvent& event) {
        order->add("subscriber");
        return fl::i18n::to_string(event.getTypeInformation().name());
    });
    Submission submission;
    submission.runOptions.setCallbackImpl([order](const BaseEvent&) { order->add("command"); },
                                          u"services::io::CLCEvent");
    submitEval("import yvm; yvm.clc()", submission).get();
    EXPECT_EQ(all->count("services::io::CLCEvent"), 1U);
    const auto notes = order->all();
    const auto command = std::ranges::find(notes, "command");
    ASSERT_NE(command, notes.end());
    ASSERT_NE(std::next(command), notes.end());
    EXPECT_EQ(*std::next(command), "subscriber");
}

TEST_F(EngineEventsTest, AForkedProcessFiresNothing) {
    const EventRecorder<CLCEvent> cleared([](const CLCEvent&) { return "cleared"; });
    EXPECT_EQ(eval("import os, yvm\npid = os.fork()\nif pid == 0:\n    yvm.clc()\n    os._exit(7)\n"
                   "os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])"),
              "7\n");
    EXPECT_EQ(cleared->all().size(), 0U);
}

TEST_F(EngineEventsTest, SubscribersComeAndGoWhileEventsAreFired) {
    auto host = submitEval("import yvm\nleave = False\nwhile not leave: yvm.clc()");
    for (int i = 0; i < 200; ++i) {
        const EventRecorder<CLCEvent> cleared([](const CLCEvent&) { return "cleared"; });
        if (i % 50 == 0) {
            cleared->waitFor("cleared");
        }
    }
    submitEval("leave = True", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    host.get();
}

}  // namespace
}  // namespace yvm::engine::test
