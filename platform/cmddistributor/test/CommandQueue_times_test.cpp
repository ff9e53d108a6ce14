#include "CommandQueueFixture.hpp"

#include <chrono>

namespace cmddistributor {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

/// What the observer is told. Times are compared with those that surround them, so no test depends on how
/// fast it runs.
class CommandTimesTest : public CommandQueueFixture {
  protected:
    /// Returns when the clock has moved on by a millisecond.
    static Clock::time_point letTimePass() {
        const auto end = Clock::now() + std::chrono::milliseconds(1);
        while (Clock::now() < end) {
        }
        return Clock::now();
    }

    void submitFeval() {
        queue->enqueueWithFuture<void>(
            std::make_shared<FEvalCmdRequest>(FEvalIIP{.function = "f", .arguments = {}}, -2, nullptr,
                                              nullptr, "test"),
            [](boost::future<void>) {}, RunOptions(), IDType(), nullptr);
    }
};

TEST_F(CommandTimesTest, AreThoseOfTheQueueAndOfTheRun) {
    const auto beforeSubmit = Clock::now();
    const auto id = submit();
    const auto afterSubmit = Clock::now();
    const auto beforeTake = letTimePass();
    expectTake(Moment::TopPrompt, id);
    const auto afterTake = Clock::now();
    const auto beforeFinish = letTimePass();
    queue->finish(id, {});
    const auto afterFinish = Clock::now();

    ASSERT_EQ(observed.size(), 1U);
    EXPECT_EQ(observed[0].kind, CommandKind::Eval);
    EXPECT_EQ(observed[0].outcome, CommandOutcome::Succeeded);
    EXPECT_GE(observed[0].queued, beforeTake - afterSubmit);
    EXPECT_LE(observed[0].queued, afterTake - beforeSubmit);
    ASSERT_TRUE(observed[0].run);
    EXPECT_GE(*observed[0].run, beforeFinish - afterTake);
    EXPECT_LE(*observed[0].run, afterFinish - beforeTake);
}

TEST_F(CommandTimesTest, TellTheKindAndTheOutcome) {
    submitFeval();
    queue->fail(queue->take(Moment::TopPrompt)->id,
                RuntimeException(RuntimeException::Status::CommandFailed, "x"), false);
    submit();
    queue->fail(queue->take(Moment::TopPrompt)->id,
                RuntimeException(RuntimeException::Status::Cancelled, "x"), true);
    ASSERT_EQ(observed.size(), 2U);
    EXPECT_EQ(observed[0].kind, CommandKind::FEval);
    EXPECT_EQ(observed[0].outcome, CommandOutcome::Failed);
    EXPECT_TRUE(observed[0].run);
    EXPECT_EQ(observed[1].kind, CommandKind::Eval);
    EXPECT_EQ(observed[1].outcome, CommandOutcome::Interrupted);
    EXPECT_TRUE(observed[1].run);
}

TEST_F(CommandTimesTest, OfACommandThatNeverRanHaveNoRun) {
    const auto beforeSubmit = Clock::now();
    const auto id = submit();
    const auto afterSubmit = Clock::now();
    const auto beforeCancel = letTimePass();
    queue->cancel(id, true);
    const auto afterCancel = Clock::now();
    auto grouped = optionsFor(Mode::DEQUEUE_AT_PROMPT);
    grouped.addGroupName("group");
    submit(grouped);
    queue->cancelGroup("group", true);
    submit();
    queue->close();

    ASSERT_EQ(observed.size(), 3U);
    EXPECT_EQ(observed[0].outcome, CommandOutcome::Cancelled);
    EXPECT_GE(observed[0].queued, beforeCancel - afterSubmit);
    EXPECT_LE(observed[0].queued, afterCancel - beforeSubmit);
    EXPECT_EQ(observed[1].outcome, CommandOutcome::Cancelled);
    EXPECT_EQ(observed[2].outcome, CommandOutcome::Abandoned);
    for (const CommandTimes& times : observed) {
        EXPECT_FALSE(times.run);
    }
}

TEST_F(CommandTimesTest, OfACommandAboveAnotherAreItsOwnAndPartOfTheOthersRun) {
    const auto outer = submit();
    expectTake(Moment::TopPrompt, outer);
    const auto inner = submit(optionsFor(Mode::DEQUEUE_AT_PPE));
    expectTake(Moment::PreemptionPoint, inner);
    letTimePass();
    queue->finish(inner, {});
    queue->finish(outer, {});
    ASSERT_EQ(observed.size(), 2U);
    EXPECT_GE(*observed[0].run, std::chrono::milliseconds(1));
    EXPECT_GT(*observed[1].run, *observed[0].run);
}

TEST_F(CommandTimesTest, AreToldBeforeTheCompletion) {
    std::size_t observedInCompletion = 0;
    const auto id = submit({}, [&] { observedInCompletion = observed.size(); });
    expectTake(Moment::TopPrompt, id);
    queue->finish(id, {});
    EXPECT_EQ(observedInCompletion, 1U);
}

TEST_F(CommandTimesTest, AreNotToldOfWhatIsRefused) {
    queue->close();
    submit();
    EXPECT_TRUE(observed.empty());
}

}  // namespace
}  // namespace cmddistributor
