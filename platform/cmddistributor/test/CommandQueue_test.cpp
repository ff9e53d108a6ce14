#include "cmddistributor/CommandQueue.hpp"

#include "CommandQueueFixture.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"

#include <boost/make_shared.hpp>

#include <set>
#include <stdexcept>
#include <thread>

namespace cmddistributor {
namespace {

using CommandQueueTest = CommandQueueFixture;
using IDs = std::vector<CmdDistributor::IDType>;

TEST_F(CommandQueueTest, ATakenCommandCarriesItsRequestAndRunOptions) {
    auto options = optionsFor(WhenToDequeue::DEQUEUE_AT_PROMPT);
    options.addGroupName("group");
    const auto id = submit(options);

    const auto taken = queue->take(Moment::TopPrompt);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->id, id);
    EXPECT_EQ(std::get<EvalIIP>(*taken->request->getIIP()).command, u"1");
    EXPECT_EQ(taken->runOptions.getGroupNames(), std::vector<std::string>{"group"});
    EXPECT_EQ(outcomeOf(id), "unanswered");
    queue->finish(id, {});
    EXPECT_EQ(outcomeOf(id), "ok");
    EXPECT_FALSE(queue->take(Moment::TopPrompt));
}

TEST_F(CommandQueueTest, EachModeRunsAtItsMomentsAlone) {
    using Moments = std::set<Moment>;
    const std::map<Mode, Moments> table = {
        {WhenToDequeue::DEQUEUE_AT_PPE,
         {Moment::PreemptionPoint, Moment::Pause, Moment::Input, Moment::DebugPrompt, Moment::TopPrompt}},
        {WhenToDequeue::DEQUEUE_AT_PAUSE,
         {Moment::Pause, Moment::Input, Moment::DebugPrompt, Moment::TopPrompt}},
        {WhenToDequeue::DEQUEUE_AT_PROMPT, {Moment::DebugPrompt, Moment::TopPrompt}},
        {WhenToDequeue::DEQUEUE_AT_NON_DEBUG_PROMPT, {Moment::TopPrompt}},
        {WhenToDequeue::DEQUEUE_AT_DEBUG_PROMPT, {Moment::DebugPrompt}},
        {WhenToDequeue::DEQUEUE_AT_IDLE, {Moment::TopPrompt}},
        {WhenToDequeue::DEQUEUE_AT_BOOTSTRAP, {Moment::Boot, Moment::TopPrompt}},
    };
    for (const auto& [mode, moments] : table) {
        for (const auto moment : {Moment::Boot, Moment::TopPrompt, Moment::Pause, Moment::Input,
                                  Moment::DebugPrompt, Moment::PreemptionPoint}) {
            const auto id = submit(optionsFor(mode));
            EXPECT_EQ(drain(moment).size(), moments.contains(moment) ? 1u : 0u)
                << WhenToDequeue::toString(mode) << " at moment " << static_cast<int>(moment);
            queue->cancel(id, false);
        }
    }
}

TEST_F(CommandQueueTest, ACommandWithoutAModeIsRefused) {
    try {
        submit(optionsFor(WhenToDequeue::DEQUEUE_UNKNOWN));
        FAIL() << "accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "a command needs one of the dequeue modes 1 to 7, not 0.");
    }
    EXPECT_THROW(submit(optionsFor(static_cast<Mode>(8))), std::invalid_argument);
    EXPECT_TRUE(outcomes.empty());
}

TEST_F(CommandQueueTest, AnIdentityThatIsInUseIsRefused) {
    const auto id = submit();
    EXPECT_THROW(submitUnder(id), std::invalid_argument);
    EXPECT_EQ(outcomeOf(id), "unanswered");
    EXPECT_EQ(drain(Moment::TopPrompt), IDs{id});
    EXPECT_EQ(outcomeOf(id), "ok");
}

TEST_F(CommandQueueTest, CommandsOfOneQueueKeepTheirOrder) {
    IDs submitted;
    for (int i = 0; i < 100; ++i) {
        submitted.push_back(submit());
    }
    EXPECT_EQ(queue->waiting(), submitted);
    EXPECT_EQ(drain(Moment::TopPrompt), submitted);
}

TEST_F(CommandQueueTest, OrderHoldsAcrossTheModesOfOneQueue) {
    IDs submitted;
    for (int i = 0; i < 12; ++i) {
        submitted.push_back(submit(optionsFor(static_cast<Mode>(i % 4 + 1))));
    }
    EXPECT_EQ(drain(Moment::TopPrompt), submitted);
}

TEST_F(CommandQueueTest, QueuesAreServedInTurn) {
    const auto mode = WhenToDequeue::DEQUEUE_AT_PROMPT;
    const auto a1 = submit(optionsFor(mode, u"a"));
    const auto a2 = submit(optionsFor(mode, u"a"));
    const auto a3 = submit(optionsFor(mode, u"a"));
    const auto b1 = submit(optionsFor(mode, u"b"));
    const auto unnamed1 = submit();
    const auto b2 = submit(optionsFor(mode, u"b"));
    EXPECT_EQ(drain(Moment::TopPrompt), (IDs{a1, b1, unnamed1, a2, b2, a3}));
}

TEST_F(CommandQueueTest, AQueueThatRanEmptyComesBackBehindTheOthers) {
    const auto mode = WhenToDequeue::DEQUEUE_AT_PROMPT;
    const auto a1 = submit(optionsFor(mode, u"a"));
    const auto b1 = submit(optionsFor(mode, u"b"));
    expectTake(Moment::TopPrompt, a1);
    const auto a2 = submit(optionsFor(mode, u"a"));
    expectTake(Moment::TopPrompt, b1);
    expectTake(Moment::TopPrompt, a2);
}

TEST_F(CommandQueueTest, TheEmptyNameIsTheUnnamedQueue) {
    const auto mode = WhenToDequeue::DEQUEUE_AT_PROMPT;
    const auto first = submit(optionsFor(mode, u""));
    const auto second = submit(optionsFor(mode, u"b"));
    const auto third = submit(optionsFor(mode));
    EXPECT_EQ(drain(Moment::TopPrompt), (IDs{first, second, third}));
}

TEST_F(CommandQueueTest, ACommandThatMayNotRunIsNoBarrier) {
    const auto debug = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_DEBUG_PROMPT));
    const auto prompt = submit();
    EXPECT_EQ(drain(Moment::TopPrompt), IDs{prompt});
    EXPECT_EQ(queue->waiting(), IDs{debug});
    EXPECT_EQ(drain(Moment::DebugPrompt), IDs{debug});
}

TEST_F(CommandQueueTest, IdleCommandsRunWhenNothingElseMay) {
    const auto idle1 = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_IDLE));
    const auto idle2 = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_IDLE, u"b"));
    const auto debug = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_DEBUG_PROMPT));
    const auto prompt = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PROMPT, u"c"));
    EXPECT_EQ(drain(Moment::TopPrompt), (IDs{prompt, idle1, idle2}));
    EXPECT_EQ(queue->waiting(), IDs{debug});
}

TEST_F(CommandQueueTest, BootstrapCommandsRunAtBootOrFirstOfAllAtTheNextPrompt) {
    const auto early = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_BOOTSTRAP));
    const auto ppe = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    EXPECT_EQ(drain(Moment::Boot), IDs{early});
    const auto prompt = submit();
    const auto late = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_BOOTSTRAP, u"z"));
    EXPECT_TRUE(drain(Moment::Boot) == IDs{late});
    const auto later = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_BOOTSTRAP, u"z"));
    EXPECT_EQ(drain(Moment::TopPrompt), (IDs{later, ppe, prompt}));
}

TEST_F(CommandQueueTest, RunningCommandsNest) {
    const auto outer = submit();
    const auto middle = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PAUSE));
    const auto inner = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    expectTake(Moment::TopPrompt, outer);
    expectTake(Moment::Pause, middle);
    expectTake(Moment::PreemptionPoint, inner);
    EXPECT_EQ(queue->running(), (IDs{outer, middle, inner}));
    EXPECT_TRUE(queue->waiting().empty());
    queue->finish(inner, {});
    EXPECT_EQ(queue->running(), (IDs{outer, middle}));
    queue->finish(outer, {});
    EXPECT_EQ(queue->running(), IDs{middle});
    queue->finish(middle, {});
    EXPECT_TRUE(queue->running().empty());
}

TEST_F(CommandQueueTest, AFailureReachesTheCompletion) {
    const auto id = submit();
    expectTake(Moment::TopPrompt, id);
    queue->fail(id, RuntimeException(RuntimeException::Status::CommandFailed, u"text", "SomeError"), false);
    EXPECT_EQ(outcomeOf(id), "SomeError");
}

TEST_F(CommandQueueTest, OnlyARunningCommandCanBeSettled) {
    const auto id = submit();
    EXPECT_THROW(queue->finish(id, {}), std::invalid_argument);
    expectTake(Moment::TopPrompt, id);
    queue->finish(id, {});
    EXPECT_THROW(queue->finish(id, {}), std::invalid_argument);
    EXPECT_THROW(queue->finish(IDType(), {}), std::invalid_argument);
    EXPECT_EQ(outcomeOf(id), "ok");
}

TEST_F(CommandQueueTest, RunOptionsAreFoundWhileACommandWaitsOrRuns) {
    RunOptions options;
    options.setOutStream(boost::make_shared<ylutil::io::YLNoOutputStreamBuffer>(), {});
    const auto id = submit(options);
    const auto waiting = queue->findRunOptions(id);
    ASSERT_TRUE(waiting);
    EXPECT_EQ(waiting->getOutSink(), options.getOutSink());
    expectTake(Moment::TopPrompt, id);
    EXPECT_EQ(queue->findRunOptions(id), waiting);
    queue->finish(id, {});
    EXPECT_FALSE(queue->findRunOptions(id));
    EXPECT_EQ(waiting->getOutSink(), options.getOutSink());
}

TEST_F(CommandQueueTest, ACompletionMaySubmitCancelAndClose) {
    const auto other = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_IDLE));
    IDType fresh;
    const auto id = submit({}, [&] {
        fresh = submit();
        queue->cancel(other, true);
        EXPECT_EQ(queue->waiting(), IDs{fresh});
        queue->close();
    });
    expectTake(Moment::TopPrompt, id);
    queue->finish(id, {});
    EXPECT_EQ(outcomeOf(id), "ok");
    EXPECT_EQ(outcomeOf(other), cancelledIdentifier);
    EXPECT_EQ(outcomeOf(fresh), shutDownIdentifier);
}

TEST_F(CommandQueueTest, EverySubmissionWakesTheEngine) {
    submit();
    submit(optionsFor(WhenToDequeue::DEQUEUE_AT_DEBUG_PROMPT));
    EXPECT_EQ(signals.wakes, 2);
    EXPECT_EQ(signals.preemptions, 0);
}

TEST_F(CommandQueueTest, PreemptionIsRequestedForPpeCommandsWhileSomethingRuns) {
    submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    EXPECT_EQ(drain(Moment::TopPrompt).size(), 1u);
    EXPECT_EQ(signals.preemptions, 0);

    const auto outer = submit();
    expectTake(Moment::TopPrompt, outer);
    submit();
    submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PAUSE));
    EXPECT_EQ(signals.preemptions, 0);
    submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    EXPECT_EQ(signals.preemptions, 2);
    EXPECT_EQ(drain(Moment::PreemptionPoint).size(), 2u);
    EXPECT_EQ(signals.preemptions, 2);
}

TEST_F(CommandQueueTest, APpeCommandThatCameBeforeTheOtherStartedIsNotForgotten) {
    const auto first = submit();
    submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    EXPECT_EQ(signals.preemptions, 0);
    expectTake(Moment::TopPrompt, first);
    EXPECT_EQ(signals.preemptions, 1);
}

TEST_F(CommandQueueTest, WaitingReturnsWhenSomethingMayBeTaken) {
    submit();
    queue->waitFor(Moment::TopPrompt);
    EXPECT_TRUE(queue->waitFor(Moment::DebugPrompt, std::chrono::steady_clock::time_point::max()));
    EXPECT_FALSE(queue->waitFor(Moment::Pause, std::chrono::steady_clock::now()));
}

TEST_F(CommandQueueTest, AWakeUpEndsOneWaitAndIsNotLostBeforeIt) {
    queue->wakeUp();
    queue->waitFor(Moment::TopPrompt);
    EXPECT_FALSE(queue->waitFor(Moment::TopPrompt, std::chrono::steady_clock::now()));
}

TEST_F(CommandQueueTest, ASubmissionFromAnotherThreadEndsAWait) {
    std::thread submitter([this] { submit(); });
    queue->waitFor(Moment::TopPrompt);
    EXPECT_TRUE(queue->take(Moment::TopPrompt));
    submitter.join();
}

TEST_F(CommandQueueTest, ClosingFailsWhatWaitsAndLeavesWhatRuns) {
    const auto running = submit();
    expectTake(Moment::TopPrompt, running);
    const auto waiting = submit();
    queue->close();
    queue->close();
    EXPECT_EQ(outcomeOf(waiting), shutDownIdentifier);
    EXPECT_EQ(outcomeOf(running), "unanswered");
    queue->waitFor(Moment::TopPrompt);
    queue->finish(running, {});
    EXPECT_EQ(outcomeOf(running), "ok");
}

TEST_F(CommandQueueTest, TheErrorOfAShutdownSaysSo) {
    std::optional<RuntimeException> seen;
    queue->enqueueWithFuture<void>(
        std::make_shared<EvalCmdRequest>(false, -2, nullptr, nullptr, u"1", "test"),
        [&seen](boost::future<void> future) {
            try {
                future.get();
            } catch (const RuntimeException& error) {
                seen = error;
            }
        },
        {}, IDType(), nullptr);
    queue->close();
    ASSERT_TRUE(seen);
    EXPECT_TRUE(seen->getShutdown());
    EXPECT_EQ(seen->getExecutionStatus(), RuntimeException::Status::ShuttingDown);
    EXPECT_STREQ(seen->what(), "The engine shut down before it answered the command.");
}

TEST_F(CommandQueueTest, AClosedQueueFailsNewCommandsInsideTheCall) {
    queue->close();
    const auto id = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    EXPECT_EQ(outcomeOf(id), shutDownIdentifier);
    EXPECT_EQ(queue->cancel(id, true).get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
    EXPECT_EQ(signals.wakes, 0);
}

TEST_F(CommandQueueTest, DestructionFailsWhatStillRuns) {
    const auto id = submit();
    expectTake(Moment::TopPrompt, id);
    const auto cancelled = queue->cancel(id, true);
    queue.reset();
    EXPECT_EQ(outcomeOf(id), shutDownIdentifier);
    EXPECT_EQ(cancelled.get(), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
}

}  // namespace
}  // namespace cmddistributor
