#include "CommandQueueFixture.hpp"
#include "cmddistributor/CommandQueue.hpp"

#include <boost/make_shared.hpp>

#include <future>
#include <streambuf>

namespace cmddistributor {
namespace {

using CommandQueueCancelTest = CommandQueueFixture;
using IDs = std::vector<CmdDistributor::IDType>;
using Status = CmdDistributor::CancelStatus;

const RuntimeException stopped(RuntimeException::Status::Cancelled, u"interrupted", "Interrupted");

TEST_F(CommandQueueCancelTest, AWaitingCommandIsTakenOutAndFails) {
    const auto first = submit();
    const auto id = submit();
    const auto last = submit();
    const auto status = queue->cancel(id, false);
    EXPECT_TRUE(status.is_ready());
    EXPECT_EQ(status.get(), CmdDistributor::CANCEL_BEFORE_RUNNING);
    EXPECT_EQ(outcomeOf(id), cancelledIdentifier);
    EXPECT_TRUE(signals.interrupts.empty());
    EXPECT_EQ(drain(Moment::TopPrompt), (IDs{first, last}));
}

TEST_F(CommandQueueCancelTest, ARunningCommandIsLeftAloneWithoutInterrupt) {
    const auto id = submit();
    expectTake(Moment::TopPrompt, id);
    EXPECT_EQ(queue->cancel(id, false).get(), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
    EXPECT_TRUE(signals.interrupts.empty());
    queue->finish(id, {});
    EXPECT_EQ(outcomeOf(id), "ok");
}

TEST_F(CommandQueueCancelTest, AnInterruptIsAnsweredWhenTheCommandHasStopped) {
    const auto id = submit();
    expectTake(Moment::TopPrompt, id);
    const auto status = queue->cancel(id, true);
    EXPECT_EQ(signals.interrupts, IDs{id});
    EXPECT_FALSE(status.is_ready());
    queue->fail(id, stopped, true);
    EXPECT_EQ(status.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(outcomeOf(id), "Interrupted");
}

TEST_F(CommandQueueCancelTest, ACommandThatEndsByItselfFirstWasAlreadyDone) {
    const auto finishing = submit();
    expectTake(Moment::TopPrompt, finishing);
    const auto statusOfFinishing = queue->cancel(finishing, true);
    queue->finish(finishing, {});
    EXPECT_EQ(statusOfFinishing.get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);

    const auto failing = submit();
    expectTake(Moment::TopPrompt, failing);
    const auto statusOfFailing = queue->cancel(failing, true);
    queue->fail(failing, RuntimeException(RuntimeException::Status::CommandFailed, u"own error"), false);
    EXPECT_EQ(statusOfFailing.get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
}

TEST_F(CommandQueueCancelTest, RepeatedCancelsShareOneAnswerAndInterruptAgain) {
    const auto id = submit();
    expectTake(Moment::TopPrompt, id);
    const auto first = queue->cancel(id, true);
    const auto second = queue->cancel(id, true);
    EXPECT_EQ(queue->cancel(id, false).get(), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
    EXPECT_EQ(signals.interrupts, (IDs{id, id}));
    queue->fail(id, stopped, true);
    EXPECT_EQ(first.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(second.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(queue->cancel(id, true).get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
}

TEST_F(CommandQueueCancelTest, AFinishedCommandWasAlreadyDone) {
    const auto id = submit();
    drain(Moment::TopPrompt);
    EXPECT_EQ(queue->cancel(id, true).get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
    const auto cancelled = submit();
    queue->cancel(cancelled, false);
    EXPECT_EQ(queue->cancel(cancelled, false).get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
    EXPECT_TRUE(signals.interrupts.empty());
}

TEST_F(CommandQueueCancelTest, AnIdentityThatWasNeverQueuedCannotBeCancelled) {
    EXPECT_EQ(queue->cancel(IDType(), true).get(), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
    EXPECT_EQ(queue->cancel(IDType::null(), false).get(), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
}

TEST_F(CommandQueueCancelTest, ARefusedSubmissionIsNotTakenForAFinishedOne) {
    const IDType id;
    EXPECT_THROW(submitUnder(id, optionsFor(WhenToDequeue::DEQUEUE_UNKNOWN)), std::invalid_argument);
    EXPECT_EQ(queue->cancel(id, true).get(), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
}

TEST_F(CommandQueueCancelTest, FinishedCommandsAreForgottenBeyondTheBound) {
    const auto first = submit();
    const auto second = submit();
    drain(Moment::TopPrompt);
    for (std::size_t i = 0; i < CommandQueue::rememberedCommands - 1; ++i) {
        submit();
    }
    drain(Moment::TopPrompt);
    EXPECT_EQ(queue->cancel(first, true).get(), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
    EXPECT_EQ(queue->cancel(second, true).get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
}

TEST_F(CommandQueueCancelTest, CancellingTheOuterCommandNamesTheOuterAlone) {
    const auto outer = submit();
    const auto inner = submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PPE));
    expectTake(Moment::TopPrompt, outer);
    expectTake(Moment::PreemptionPoint, inner);
    const auto status = queue->cancel(outer, true);
    EXPECT_EQ(signals.interrupts, IDs{outer});
    queue->finish(inner, {});
    EXPECT_FALSE(status.is_ready());
    queue->fail(outer, stopped, true);
    EXPECT_EQ(status.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(outcomeOf(inner), "ok");
}

TEST_F(CommandQueueCancelTest, AGroupCancelReachesAllThatCarryTheName) {
    auto grouped = optionsFor(WhenToDequeue::DEQUEUE_AT_PROMPT);
    grouped.addGroupName("other");
    grouped.addGroupName("group");
    const auto running = submit(grouped);
    expectTake(Moment::TopPrompt, running);
    const auto waiting1 = submit(grouped);
    const auto bystander = submit();
    const auto waiting2 = submit(grouped);

    queue->cancelGroup("group", false);
    EXPECT_EQ(outcomeOf(waiting1), cancelledIdentifier);
    EXPECT_EQ(outcomeOf(waiting2), cancelledIdentifier);
    EXPECT_EQ(queue->waiting(), IDs{bystander});
    EXPECT_EQ(outcomeOf(running), "unanswered");
    EXPECT_TRUE(signals.interrupts.empty());

    queue->cancelGroup("group", true);
    EXPECT_EQ(signals.interrupts, IDs{running});
    queue->cancelGroup("nobody", true);
    queue->cancelGroup("Group", true);
    EXPECT_EQ(signals.interrupts, IDs{running});
}

TEST_F(CommandQueueCancelTest, AClosedQueueSignalsNoInterrupts) {
    const auto id = submit();
    expectTake(Moment::TopPrompt, id);
    queue->close();
    const auto status = queue->cancel(id, true);
    EXPECT_TRUE(signals.interrupts.empty());
    EXPECT_FALSE(status.is_ready());
    queue->fail(id, stopped, true);
    EXPECT_EQ(status.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
}

TEST_F(CommandQueueCancelTest, AContinuationOfTheAnswerRuns) {
    const auto id = submit();
    expectTake(Moment::TopPrompt, id);
    auto answer = queue->cancel(id, true);
    std::promise<Status> published;
    auto seen = published.get_future();
    const auto policy = answer.launch_policy();
    // Dropped, as the future of a client's cancel is.
    answer.then(policy,
                [published = std::make_shared<std::promise<Status>>(std::move(published))](
                    const boost::shared_future<Status>& future) { published->set_value(future.get()); });
    queue->fail(id, stopped, true);
    ASSERT_EQ(seen.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(seen.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
}

/// Enters the queue when it dies, as the buffers and callbacks of a client may.
class ReentrantBuffer final : public std::basic_streambuf<char16_t> {
  public:
    explicit ReentrantBuffer(std::function<void()> onDeath) : onDeath_(std::move(onDeath)) {}
    ~ReentrantBuffer() override { onDeath_(); }

  private:
    std::function<void()> onDeath_;
};

TEST_F(CommandQueueCancelTest, TheRunOptionsOfACancelledCommandDieWithoutTheLock) {
    int deaths = 0;
    RunOptions options;
    options.addGroupName("group");
    options.setOutStream(boost::make_shared<ReentrantBuffer>([this, &deaths] {
                             ++deaths;
                             EXPECT_TRUE(queue->waiting().empty());
                         }),
                         {});
    const auto id = submit(std::exchange(options, {}));
    queue->cancel(id, false);
    EXPECT_EQ(deaths, 1);
}

TEST_F(CommandQueueCancelTest, AReusedIdentityMeansTheNewCommand) {
    const IDType id;
    submitUnder(id);
    drain(Moment::TopPrompt);
    submitUnder(id);
    EXPECT_EQ(queue->cancel(id, false).get(), CmdDistributor::CANCEL_BEFORE_RUNNING);
    EXPECT_EQ(queue->cancel(id, false).get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
    submitUnder(id);
    expectTake(Moment::TopPrompt, id);
    const auto status = queue->cancel(id, true);
    queue->fail(id, stopped, true);
    EXPECT_EQ(status.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(outcomes[id], (std::vector<std::string>{"ok", cancelledIdentifier, "Interrupted"}));
}

TEST_F(CommandQueueCancelTest, CancelsLeaveOrderAndTurnsOfTheOthersAlone) {
    const auto mode = WhenToDequeue::DEQUEUE_AT_PROMPT;
    IDs a;
    IDs b;
    IDs c;
    for (int i = 0; i < 4; ++i) {
        a.push_back(submit(optionsFor(mode, u"a")));
        b.push_back(submit(optionsFor(mode, u"b")));
        auto grouped = optionsFor(mode, u"c");
        grouped.addGroupName("group");
        c.push_back(submit(grouped));
    }
    expectTake(Moment::TopPrompt, a[0]);  // The next turn is b's.
    queue->cancel(b[0], false);
    queue->cancel(a[2], false);
    queue->cancelGroup("group", false);
    EXPECT_EQ(queue->waiting(), (IDs{a[1], b[1], b[2], a[3], b[3]}));
    EXPECT_EQ(drain(Moment::TopPrompt), (IDs{b[1], a[1], b[2], a[3], b[3]}));
    for (const auto& id : c) {
        EXPECT_EQ(outcomeOf(id), cancelledIdentifier);
    }
}

TEST_F(CommandQueueCancelTest, AGroupCancelStopsWhatRunsBeforeItAnswersWhatWaits) {
    auto grouped = optionsFor(WhenToDequeue::DEQUEUE_AT_PROMPT);
    grouped.addGroupName("group");
    const auto running = submit(grouped);
    expectTake(Moment::TopPrompt, running);
    std::vector<IDType> interruptedBefore;
    const auto waiting = submit(grouped, [&] { interruptedBefore = signals.interrupts; });
    queue->cancelGroup("group", true);
    EXPECT_EQ(interruptedBefore, std::vector<IDType>{running});
    EXPECT_EQ(outcomeOf(waiting), cancelledIdentifier);
}

TEST_F(CommandQueueCancelTest, ACompletionMayCancelTheGroupThatCancelsIt) {
    auto grouped = optionsFor(WhenToDequeue::DEQUEUE_AT_PROMPT);
    grouped.addGroupName("group");
    const auto late = IDType();
    const auto first = submit(grouped, [&] {
        submitUnder(late, grouped);
        queue->cancelGroup("group", true);
    });
    const auto second = submit(grouped);
    queue->cancelGroup("group", true);
    for (const auto& id : {first, second, late}) {
        EXPECT_EQ(outcomeOf(id), cancelledIdentifier);
    }
}

TEST_F(CommandQueueCancelTest, AGroupCancelOfTenThousandAnswersEachOnce) {
    auto grouped = optionsFor(WhenToDequeue::DEQUEUE_AT_PROMPT);
    grouped.addGroupName("group");
    IDs ids;
    for (int i = 0; i < 10'000; ++i) {
        ids.push_back(submit(grouped));
    }
    const auto bystander = submit();
    queue->cancelGroup("group", false);
    for (const auto& id : ids) {
        ASSERT_EQ(outcomeOf(id), cancelledIdentifier);
    }
    EXPECT_EQ(drain(Moment::TopPrompt), IDs{bystander});
}

TEST_F(CommandQueueCancelTest, TenThousandWaitingCommandsAreCancelledOneByOne) {
    IDs ids;
    for (int i = 0; i < 10'000; ++i) {
        ids.push_back(submit(optionsFor(WhenToDequeue::DEQUEUE_AT_PROMPT, i % 2 == 0 ? u"even" : u"odd")));
    }
    for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
        ASSERT_EQ(queue->cancel(*id, false).get(), CmdDistributor::CANCEL_BEFORE_RUNNING);
        ASSERT_EQ(outcomeOf(*id), cancelledIdentifier);
    }
    EXPECT_TRUE(queue->waiting().empty());
    EXPECT_FALSE(queue->take(Moment::TopPrompt));
}

}  // namespace
}  // namespace cmddistributor
