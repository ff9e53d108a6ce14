#include "engine/test/EventRecorder.hpp"
#include "fl/i18n/ustring.hpp"
#include "yvm/ProgressEvent.hpp"

#include <sstream>

namespace yvm::engine::test {
namespace {

std::string progressOf(const ProgressEvent& event) {
    std::ostringstream text;
    text << fl::i18n::to_string(event.label()) << ":" << event.done() << "/";
    if (event.total()) {
        text << *event.total();
    }
    return text.str() + (event.finished() ? ":finished" : "");
}

TEST_F(EngineTest, ALoopTellsItsProgress) {
    const EventRecorder<ProgressEvent> progress(progressOf);
    eval("import yvm\nfor i in yvm.progress('ab', 'letters \U0001F600'): pass");
    // On a slow machine there are others between them.
    EXPECT_EQ(progress->all().front(), "letters \U0001F600:0/2");
    EXPECT_EQ(progress->all().back(), "letters \U0001F600:2/2:finished");
}

TEST_F(EngineTest, BarsOfOneCommandAreToldApart) {
    const EventRecorder<ProgressEvent> progress(
        [](const ProgressEvent& event) { return std::to_string(event.id()) + " " + progressOf(event); });
    eval(
        "outer = yvm.progress(total=1, label='outer')\nwith outer:\n"
        "    for i in yvm.progress(iter([]), 'inner'): pass");
    const auto notes = progress->all();
    ASSERT_EQ(notes.size(), 4U);
    const auto idOf = [](const std::string& note) { return note.substr(0, note.find(' ')); };
    EXPECT_EQ(notes[0], idOf(notes[0]) + " outer:0/1");
    EXPECT_EQ(notes[1], idOf(notes[1]) + " inner:0/");
    EXPECT_EQ(notes[2], idOf(notes[1]) + " inner:0/:finished");
    EXPECT_EQ(notes[3], idOf(notes[0]) + " outer:0/1:finished");
    EXPECT_NE(idOf(notes[0]), idOf(notes[1]));
}

TEST_F(EngineTest, RateAndRemainingTimeAreToldWhenSomethingIsDone) {
    const EventRecorder<ProgressEvent> rates([](const ProgressEvent& event) {
        const bool isMeasured = event.rate() && *event.rate() > 0;
        return std::string(isMeasured ? "rate" : "none") + (event.remaining() ? " remaining" : " open");
    });
    eval(
        "import time\nwith yvm.progress(total=2) as bar:\n    time.sleep(0.06)\n    bar.update()\n"
        "    bar.update()");
    EXPECT_EQ(rates->all().front(), "none open");
    EXPECT_EQ(rates->all().at(1), "rate remaining");
    EXPECT_EQ(rates->all().back(), "rate remaining");
}

TEST_F(EngineTest, AnInterruptedLoopIsToldAsFinished) {
    const EventRecorder<ProgressEvent> progress(progressOf);
    auto command =
        submitEval("for i in yvm.progress([1, 2]):\n    print('on', flush=True)\n    while True: pass");
    command.transcript->waitFor("on");
    EXPECT_EQ(cancel(command.id, true), CancelStatus::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(progress->text(), ":0/2 :0/2:finished");
}

TEST_F(EngineTest, ACommandWithAHandlerOfItsOwnIsToldOfItsProgressAlone) {
    const auto notes = std::make_shared<EventNotes>();
    Submission submission;
    submission.runOptions.setCallbackImpl(
        [notes](const foundation::msg_svc::eventmgr::BaseEvent& event) {
            notes->add(progressOf(dynamic_cast<const ProgressEvent&>(event)));
        },
        u"yvm::ProgressEvent");
    submitEval("for i in yvm.progress([], 'mine'): pass", std::move(submission)).get();
    eval("for i in yvm.progress([], 'others'): pass");
    EXPECT_EQ(notes->text(), "mine:0/0 mine:0/0:finished");
}

TEST_F(EngineTest, AQueryMovesTheBarOfTheCommandBeneath) {
    const EventRecorder<ProgressEvent> progress(progressOf);
    auto host = submitEval(
        "leave = False\nbar = yvm.progress(total=3, label='shared')\nwith bar:\n    print('on', flush=True)\n"
        "    while not leave: bar.update(0)");
    host.transcript->waitFor("on");
    submitEval("bar.update(2); leave = True", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    host.get();
    EXPECT_EQ(progress->all().back(), "shared:2/3:finished");
}

}  // namespace
}  // namespace yvm::engine::test
