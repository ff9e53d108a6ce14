#include "engine/test/EngineFixture.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

namespace yvm::engine::test {
namespace {

using Status = ylutil::cmddistributor::inExecutionStatus;

/// A command that tells when it runs and then does `body`.
Submitted startAndWait(const std::string& body, Submission submission = {}) {
    auto submitted = EngineTest::submitEval("print('started', flush=True)\n" + body, std::move(submission));
    submitted.transcript->waitFor("started\n");
    return submitted;
}

Submission atPause() {
    Submission submission;
    submission.runOptions = EngineTest::withMode(DequeueMode::DEQUEUE_AT_PAUSE);
    return submission;
}

Submission atPreemption() {
    Submission submission;
    submission.runOptions = EngineTest::withMode(DequeueMode::DEQUEUE_AT_PPE);
    return submission;
}

TEST_F(EngineTest, ACancelStopsABusyLoop) {
    auto loop = startAndWait("while True: pass");
    EXPECT_EQ(cancel(loop.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    const auto error = loop.error();
    EXPECT_EQ(error.getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(error.GetID(), "yvm.Interrupt");
    EXPECT_STREQ(error.what(), "the command was interrupted");
    EXPECT_THAT(error.getStackFrames().back().sourceLine,
                testing::AnyOf("while True: pass", "print('started', flush=True)"));
    EXPECT_EQ(cancel(loop.id, true), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
}

TEST_F(EngineTest, ACancelStopsASleepAndALockAndAJoin) {
    for (const char* body : {"import time; time.sleep(1000)", "import threading; threading.Event().wait()",
                             "import subprocess; subprocess.run(['sleep', '1000'])",
                             "import yvm; yvm.pause(1000)", "import yvm; yvm.pause(float('inf'))"}) {
        auto blocked = startAndWait(body);
        EXPECT_EQ(cancel(blocked.id, true), CmdDistributor::CANCEL_WHILE_RUNNING) << body;
        EXPECT_EQ(blocked.error().getExecutionStatus(), Status::Cancelled) << body;
    }
}

TEST_F(EngineTest, AnInterruptStopsWhatThePromptRuns) {
    auto loop = startAndWait("while True: pass");
    engine()->interrupt();
    EXPECT_EQ(loop.error().getExecutionStatus(), Status::Cancelled);
}

TEST_F(EngineTest, AnInterruptAtThePromptDoesNothing) {
    eval("1;");
    engine()->interrupt();
    EXPECT_EQ(eval("sum(range(100000))"), "4999950000\n");
}

TEST_F(EngineTest, ACancelWithoutInterruptLeavesARunningCommandAlone) {
    auto busy = occupy();
    EXPECT_EQ(cancel(busy.id, false), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
    release();
    busy.get();
}

TEST_F(EngineTest, ACancelledCommandOfTheQueueNeverRuns) {
    auto busy = occupy();
    auto waiting = submitEval("print('must not run')");
    EXPECT_EQ(cancel(waiting.id, true), CmdDistributor::CANCEL_BEFORE_RUNNING);
    EXPECT_EQ(waiting.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(waiting.transcript->text(), "");
    EXPECT_FALSE(busy.isDone());
    release();
    busy.get();
}

TEST_F(EngineTest, AnInterruptNeverHitsAnotherCommand) {
    // The cancel comes at any moment around the end of the first command; the second one must live.
    for (int round = 0; round < 200; ++round) {
        auto first = submitEval("for i in range(" + std::to_string(round * 20) + "): pass");
        auto second = submitEval("for i in range(3000): pass");
        distributor()->cancel(first.id, true);
        EXPECT_NO_THROW(second.get()) << round;
    }
}

TEST_F(EngineTest, AnInterruptThatTheUserRaisesIsAnOrdinaryError) {
    const auto error = evalError("import _yvm\nraise _yvm.Interrupt('mine')");
    EXPECT_EQ(error.getExecutionStatus(), Status::CommandFailed);
    EXPECT_EQ(error.GetID(), "yvm.Interrupt");
    EXPECT_STREQ(error.what(), "mine");
}

TEST_F(EngineTest, AnErrorThatAnInterruptComesTooLateForIsTold) {
    // The signal waits until the command has failed.
    int gate[2];
    ASSERT_EQ(::pipe2(gate, O_CLOEXEC), 0);
    auto failing = submitEval(
        "import os, signal\n"
        "before = signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())\n"
        "print('deaf', flush=True)\nos.read(" +
        std::to_string(gate[0]) + ", 1)\nraise ValueError('real')");
    failing.transcript->waitFor("deaf\n");
    auto answer = distributor()->cancel(failing.id, true);
    ASSERT_EQ(::write(gate[1], "x", 1), 1);
    const auto error = failing.error();
    EXPECT_EQ(error.getExecutionStatus(), Status::CommandFailed);
    EXPECT_EQ(error.GetID(), "ValueError");
    EXPECT_STREQ(error.what(), "real");
    EXPECT_EQ(answer.get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
    eval("signal.pthread_sigmask(signal.SIG_SETMASK, before);");
    ::close(gate[0]);
    ::close(gate[1]);
}

TEST_F(EngineTest, AKeyboardInterruptOfTheUserIsAnOrdinaryError) {
    const auto error = evalError("raise KeyboardInterrupt('mine')");
    EXPECT_EQ(error.getExecutionStatus(), Status::CommandFailed);
    EXPECT_EQ(error.GetID(), "KeyboardInterrupt");
}

TEST_F(EngineTest, TheUserSeesAnInterruptAsKeyboardInterrupt) {
    auto loop = submitEval(
        "try:\n    print('in', flush=True)\n    while True: pass\nexcept KeyboardInterrupt:\n    "
        "print('caught')");
    loop.transcript->waitFor("in\n");
    // It ends by itself, having caught the interrupt.
    EXPECT_EQ(cancel(loop.id, true), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
    loop.get();
    EXPECT_EQ(loop.transcript->text(), "in\ncaught\n");
}

TEST_F(EngineTest, ASecondCancelStopsWhatSwallowedTheFirst) {
    auto stubborn = submitEval(
        "try:\n    print('in', flush=True)\n    while True: pass\nexcept KeyboardInterrupt:\n    "
        "print('swallowed', flush=True)\nwhile "
        "True: pass");
    stubborn.transcript->waitFor("in\n");
    auto first = distributor()->cancel(stubborn.id, true);
    stubborn.transcript->waitFor("swallowed\n");
    EXPECT_EQ(cancel(stubborn.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    stubborn.error();
}

TEST_F(EngineTest, ACancelThatComesTwiceIsDescribedAsOne) {
    for (int round = 0; round < 50; ++round) {
        auto loop = startAndWait("while True: pass");
        auto first = distributor()->cancel(loop.id, true);
        distributor()->cancel(loop.id, true);
        EXPECT_EQ(loop.error().GetID(), "yvm.Interrupt");
        EXPECT_EQ(first.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    }
}

TEST_F(EngineTest, AnErrorThatAnInterruptLedToCountsAsStopped) {
    auto loop = submitEval("try:\n    print('in', flush=True)\n    while True: pass\nfinally:\n    1/0");
    loop.transcript->waitFor("in\n");
    EXPECT_EQ(cancel(loop.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(loop.error().GetID(), "ZeroDivisionError");
}

TEST_F(EngineTest, AnInterruptInADisplayStopsIt) {
    auto endless =
        startAndWait("class Endless:\n    def __repr__(self):\n        while True: pass\nEndless()");
    EXPECT_EQ(cancel(endless.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    endless.error();
}

TEST_F(EngineTest, AnInterruptOfACommandWaitsForTheOneAboveIt) {
    auto outer = startAndWait("import yvm; yvm.pause(1000)");
    auto inner = startAndWait("import time; time.sleep(0.05); print('inner done')", atPause());
    auto answer = distributor()->cancel(outer.id, true);
    inner.get();
    EXPECT_EQ(inner.transcript->text(), "started\ninner done\n");
    EXPECT_EQ(outer.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(answer.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
}

TEST_F(EngineTest, ACancelOfTheCommandAboveLeavesTheOneBeneathAlone) {
    auto outer = startAndWait("import yvm; yvm.pause(1000)");
    auto inner = startAndWait("while True: pass", atPause());
    EXPECT_EQ(cancel(inner.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    inner.error();
    EXPECT_FALSE(outer.isDone());
    cancel(outer.id, true);
    outer.error();
}

TEST_F(EngineTest, AnInterruptPassesByTheQueryAboveThePromptsCommand) {
    auto outer = startAndWait("while True: pass");
    auto query = startAndWait("import time; time.sleep(0.05); print('query done')", atPreemption());
    engine()->interrupt();
    query.get();
    EXPECT_EQ(query.transcript->text(), "started\nquery done\n");
    EXPECT_EQ(outer.error().getExecutionStatus(), Status::Cancelled);
}

TEST_F(EngineTest, ACancelOfAGroupStopsWaitingAndRunningCommands) {
    Submission grouped;
    grouped.runOptions.addGroupName("g");
    auto running = startAndWait("while True: pass", grouped);
    auto waiting = submitEval("1;", grouped);
    auto other = submitEval("print('other')");
    distributor()->cancelGroup("g", true);
    EXPECT_EQ(running.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(waiting.error().getExecutionStatus(), Status::Cancelled);
    other.get();
    EXPECT_EQ(other.transcript->text(), "other\n");
}

}  // namespace
}  // namespace yvm::engine::test
