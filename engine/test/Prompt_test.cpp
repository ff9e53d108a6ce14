#include "engine/test/EventRecorder.hpp"
#include "ylutil/prompt/PromptEvent.hpp"

#include <sstream>

namespace yvm::engine::test {
namespace {

using ylutil::prompt::PromptEvent;

template <typename Id>
std::string idText(const Id& id) {
    std::ostringstream text;
    text << id;
    return text.str();
}

std::string stateOf(const PromptEvent& event) {
    return std::string(toString(event.state()));
}

/// Begins when what a test before caused is over.
class PromptTest : public EngineTest {
  public:
    void SetUp() override {
        EngineTest::SetUp();
        waitUntilIdle();
    }
};

TEST_F(PromptTest, ACommandMakesThePromptBusyAndThenIdle) {
    const EventRecorder<PromptEvent> prompts(stateOf);
    eval("1;");
    prompts->waitFor("idle");
    EXPECT_EQ(prompts->text(), "busy idle");
}

TEST_F(PromptTest, BusyNamesTheCommandAndIdleNone) {
    const EventRecorder<PromptEvent> prompts([](const PromptEvent& event) {
        return stateOf(event) + ":" + (event.commandId() ? idText(*event.commandId()) : "none");
    });
    auto command = submitEval("1;");
    command.get();
    prompts->waitFor("idle:none");
    EXPECT_EQ(prompts->text(), "busy:" + idText(command.id) + " idle:none");
}

TEST_F(PromptTest, CommandsThatWaitAreTakenWithoutAnIdleBetween) {
    const EventRecorder<PromptEvent> prompts(stateOf);
    auto busy = occupy();
    auto next = submitEval("1;");
    auto last = submitEval("1;");
    release();
    last.get();
    prompts->waitFor("idle");
    EXPECT_EQ(prompts->text(), "busy busy busy idle");
}

TEST_F(PromptTest, APauseIsToldAndItsEnd) {
    const EventRecorder<PromptEvent> prompts(stateOf);
    submitEval("import yvm; yvm.pause(0.001)").get();
    prompts->waitFor("idle");
    EXPECT_EQ(prompts->text(), "busy paused busy idle");
}

TEST_F(PromptTest, APauseThatIsInterruptedEndsInIdle) {
    const EventRecorder<PromptEvent> prompts(stateOf);
    auto host = submitEval("import yvm; yvm.pause(1000)");
    prompts->waitFor("paused");
    cancel(host.id, true);
    prompts->waitFor("idle");
    EXPECT_EQ(prompts->text(), "busy paused busy idle");
}

TEST_F(PromptTest, QueriesInAPauseAndAtPreemptionPointsAreNotTold) {
    const EventRecorder<PromptEvent> prompts(stateOf);
    auto host = submitEval(
        "import yvm\nleave = False\n"
        "print('loop', flush=True)\nwhile not leave: pass\nyvm.pause(1000)");
    host.transcript->waitFor("loop");
    submitEval("yvm.pause(0); leave = True", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    prompts->waitFor("paused");
    submitEval("yvm.pause(0)", inMode(DequeueMode::DEQUEUE_AT_PAUSE)).get();
    submitEval("1;", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    cancel(host.id, true);
    prompts->waitFor("idle");
    EXPECT_EQ(prompts->text(), "busy paused busy idle");
}

TEST_F(PromptTest, TextPrecedesThePauseThatFollowsIt) {
    auto transcript = std::make_shared<Transcript>();
    const auto restore = engine()->makeSinkRestorer(engine());
    auto [out, err] = makeSinks(transcript);
    engine()->replaceSinks(out, err);
    const EventRecorder<PromptEvent> prompts([&](const PromptEvent& event) {
        return stateOf(event) + "[" + transcript->synchronisedText() + "]";
    });
    Submission submission;
    submission.ownStreams = false;
    submitEval(
        "import sys, yvm\nprint('a', end='')\nprint('b', end='', file=sys.stderr)\nyvm.pause(0)\nprint('c', "
        "end='')",
        submission)
        .get();
    prompts->waitFor("idle[a[err]bc]");
    EXPECT_EQ(prompts->text(), "busy[] paused[a[err]b] busy[a[err]b] idle[a[err]bc]");
}

TEST_F(PromptTest, AHandlerOfTheCommandAloneHearsOfThatCommandAlone) {
    const auto notes = std::make_shared<EventNotes>();
    Submission submission;
    submission.runOptions.setCallbackImpl(
        [notes](const foundation::msg_svc::eventmgr::BaseEvent& event) {
            notes->add(stateOf(dynamic_cast<const PromptEvent&>(event)));
        },
        u"ylutil::prompt::PromptEvent");
    submitEval("import yvm; yvm.pause(0)", submission).get();
    eval("1;");
    EXPECT_EQ(notes->text(), "busy paused busy");
}

TEST_F(PromptTest, AHandlerThatThrowsHurtsNeitherTheCommandNorOtherHandlers) {
    const EventRecorder<PromptEvent> failing(
        [](const PromptEvent&) -> std::string { throw std::runtime_error("a handler of a test fails"); });
    const EventRecorder<PromptEvent> prompts(stateOf);
    EXPECT_EQ(eval("6*7"), "42\n");
    prompts->waitFor("idle");
    EXPECT_EQ(prompts->text(), "busy idle");
}

TEST_F(PromptTest, AHandlerMaySubmitACommand) {
    std::promise<Submitted> promise;
    auto submitted = promise.get_future();
    bool done = false;
    const EventRecorder<PromptEvent> prompts([&](const PromptEvent& event) {
        if (stateOf(event) == "idle" && !std::exchange(done, true)) {
            promise.set_value(submitEval("print('from a handler')"));
        }
        return stateOf(event);
    });
    eval("1;");
    auto command = submitted.get();
    command.get();
    EXPECT_EQ(command.transcript->text(), "from a handler\n");
    prompts->waitFor("idle", 2);
    EXPECT_EQ(prompts->text(), "busy idle busy idle");
}

}  // namespace
}  // namespace yvm::engine::test
