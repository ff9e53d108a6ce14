#include "engine/test/EngineFixture.hpp"
#include "engine/test/StuckCall.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <thread>

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

TEST_F(EngineTest, ACancelStopsEveryWaitOfPython) {
    for (const char* body :
         {"import time; time.sleep(1000)", "import threading; threading.Event().wait()",
          "import threading; lock = threading.Lock(); lock.acquire(); lock.acquire()",
          "import threading; c = threading.Condition()\nwith c: c.wait()",
          "import threading; t = threading.Timer(9, int); t.start(); t.join()",
          "import queue; queue.Queue().get()", "import queue; queue.SimpleQueue().get()",
          "import os; r, w = os.pipe(); os.read(r, 1)", "import os; r, w = os.pipe(); open(r).readline()",
          "import socket; a, b = socket.socketpair(); a.recv(1)",
          "import socket; a = socket.create_server(('127.0.0.1', 0)); a.accept()",
          "import select, os; r, w = os.pipe(); select.select([r], [], [])",
          "import asyncio; asyncio.run(asyncio.sleep(1000))",
          "import concurrent.futures; concurrent.futures.Future().result()",
          "from subprocess import *; run(['sleep', '1000'], stdout=DEVNULL, stderr=DEVNULL)",
          "import yvm; yvm.pause(1000)", "import yvm; yvm.pause(float('inf'))"}) {
        auto blocked = startAndWait(body);
        EXPECT_EQ(cancel(blocked.id, true), CmdDistributor::CANCEL_WHILE_RUNNING) << body;
        const auto error = blocked.error();
        EXPECT_EQ(error.getExecutionStatus(), Status::Cancelled) << body << ": " << error.what();
    }
}

TEST_F(EngineTest, AnInterruptThatPythonDropsIsRaisedAgain) {
    eval(
        "import time, weakref\n"
        "def linger(*_):\n    print('started', flush=True)\n    while True: pass\n"
        "class Lingering:\n    __del__ = linger\n"
        "class Watched: pass");
    for (const char* body :
         {"Lingering()", "watched = Watched()\nw = weakref.ref(watched, linger)\ndel watched"}) {
        auto dropping = submitEval(std::string(body) + "\ntime.sleep(1000)");
        dropping.transcript->waitFor("started\n");
        EXPECT_EQ(cancel(dropping.id, true), CmdDistributor::CANCEL_WHILE_RUNNING) << body;
        EXPECT_EQ(dropping.error().getExecutionStatus(), Status::Cancelled) << body;
        EXPECT_EQ(dropping.transcript->text(), "started\n") << body;
    }
}

TEST_F(EngineTest, ErrorsThatPythonDropsAreShownAsEver) {
    EXPECT_THAT(eval("class Failing:\n    def __del__(self): 1 / 0\nFailing();\n"),
                testing::HasSubstr("ZeroDivisionError: division by zero"));
    EXPECT_THAT(eval("import yvm, _yvm\nclass Raising:\n    def __del__(self): raise "
                     "_yvm.Interrupt('mine')\nRaising();\n"),
                testing::HasSubstr("yvm.Interrupt: mine"));
}

TEST_F(EngineTest, ACancelStopsALoopOfNumPyAndARegularExpression) {
    for (const char* body :
         {"import numpy\na = numpy.ones(100_000)\nwhile True: numpy.sin(a)",
          "import re; re.match('(a+)+$', 'a' * 100 + 'b')", "[x for x in iter(int, 1) if x]"}) {
        auto busy = startAndWait(body);
        EXPECT_EQ(cancel(busy.id, true), CmdDistributor::CANCEL_WHILE_RUNNING) << body;
        EXPECT_EQ(busy.error().getExecutionStatus(), Status::Cancelled) << body;
    }
}

TEST_F(EngineTest, AnInterruptInAnImportStopsIt) {
    auto importing = submitEval(
        "import pathlib, sys, tempfile\n"
        "folder = tempfile.mkdtemp(); sys.path.insert(0, folder)\n"
        "pathlib.Path(folder, 'endless.py').write_text(\"print('importing', flush=True)\\nwhile True: "
        "pass\")\n"
        "try: import endless\n"
        "finally: sys.path.remove(folder)");
    importing.transcript->waitFor("importing\n");
    EXPECT_EQ(cancel(importing.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(importing.error().GetID(), "yvm.Interrupt");
}

TEST_F(EngineTest, AnInterruptLeavesNoLockOfTheImportSystemBehind) {
    eval("import _imp, sys");
    for (int round = 0; round < 200; ++round) {
        auto importing = startAndWait(
            "while True:\n    import colorsys\n"
            "    sys.modules.pop('colorsys')");
        cancel(importing.id, true);
        importing.error();
        ASSERT_EQ(eval("_imp.lock_held()"), "False\n") << "in round " << round;
    }
}

TEST_F(EngineTest, AnInterruptThatComesJustBeforeAWaitIsNotLost) {
    StuckCall call;
    // No bytecode lies between the two calls.
    auto waiting = submitEval(call.pythonThen("partial(os.read, os.pipe()[0], 1)"));
    call.waitUntilStuck();
    auto answer = distributor()->cancel(waiting.id, true);
    call.release();
    EXPECT_EQ(waiting.error().GetID(), "yvm.Interrupt");
    EXPECT_EQ(answer.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
}

TEST_F(EngineTest, ACancelOfACommandThatCannotBeBrokenIsAnsweredWhenItCan) {
    StuckCall call;
    auto stuck = submitEval(call.pythonThen("partial(print, 'the call returned')") + "\nprint('went on')");
    call.waitUntilStuck();
    auto answer = distributor()->cancel(stuck.id, true);
    EXPECT_EQ(cancel(stuck.id, false), CmdDistributor::UNABLE_TO_CANCEL_OTHER);
    EXPECT_FALSE(answer.is_ready());
    EXPECT_FALSE(stuck.isDone());
    call.release();
    EXPECT_EQ(stuck.error().GetID(), "yvm.Interrupt");
    EXPECT_EQ(answer.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(stuck.transcript->text().find("went on"), std::string::npos);
}

TEST_F(EngineTest, ACommandThatEndsWithTheCallThatCouldNotBeBrokenWasDone) {
    StuckCall call;
    auto stuck = submitEval(call.python());
    call.waitUntilStuck();
    auto answer = distributor()->cancel(stuck.id, true);
    call.release();
    // Its end may be before or after the next look at the signals: what counts is that both agree.
    EXPECT_EQ(answer.get() == CmdDistributor::CANCEL_WHILE_RUNNING,
              std::holds_alternative<RuntimeException>(stuck.outcome.get()));
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

TEST_F(EngineTest, AnInterruptBetweenTwoCommandsHitsNeither) {
    Submission interruptsAtItsEnd;
    interruptsAtItsEnd.inCompletion = [] { engine()->interrupt(); };
    auto first = submitEval("print('first')", interruptsAtItsEnd);
    auto second = submitEval("for i in range(10000): pass\nprint('second')");
    first.get();
    second.get();
    EXPECT_EQ(first.transcript->text() + second.transcript->text(), "first\nsecond\n");
}

TEST_F(EngineTest, AFloodOfInterruptsLeavesTheEngineUsable) {
    std::atomic<bool> isFlooding{true};
    std::vector<std::thread> flood;
    for (int i = 0; i < 3; ++i) {
        flood.emplace_back([&isFlooding] {
            while (isFlooding) {
                engine()->interrupt();
                std::this_thread::yield();
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        auto victim = submitEval("while True: pass");
        EXPECT_EQ(victim.error().getExecutionStatus(), Status::Cancelled);
    }
    isFlooding = false;
    for (auto& thread : flood) {
        thread.join();
    }
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(eval("for i in range(1000): pass\ni"), "999\n");
    }
}

TEST_F(EngineTest, AFloodOfCancelsHitsItsCommandAlone) {
    for (int round = 0; round < 20; ++round) {
        auto victim = startAndWait("while True: pass");
        auto bystander = submitEval("for i in range(5000): pass\ni");
        auto flood = [&victim] {
            for (int i = 0; i < 500; ++i) {
                distributor()->cancel(victim.id, true);
            }
        };
        std::thread other(flood);
        flood();
        other.join();
        EXPECT_EQ(victim.error().getExecutionStatus(), Status::Cancelled);
        bystander.get();
        EXPECT_EQ(bystander.transcript->text(), "4999\n");
    }
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

TEST_F(EngineTest, ACommandMaySwallowTwoInterruptsAndEndByItself) {
    auto patient = submitEval(
        "caught = 0\n"
        "while caught < 2:\n"
        "    try:\n"
        "        print('ready', caught, flush=True)\n"
        "        while True: pass\n"
        "    except KeyboardInterrupt: caught += 1\n"
        "print('ended')");
    patient.transcript->waitFor("ready 0\n");
    auto answer = distributor()->cancel(patient.id, true);
    patient.transcript->waitFor("ready 1\n");
    engine()->interrupt();
    patient.get();
    EXPECT_EQ(patient.transcript->text(), "ready 0\nready 1\nended\n");
    EXPECT_EQ(answer.get(), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
}

TEST_F(EngineTest, ACommandThatSwallowsAnInterruptAndFailsIsReportedWithItsOwnError) {
    auto failing = submitEval(
        "try:\n    print('in', flush=True)\n    while True: pass\nexcept KeyboardInterrupt: pass\n1/0");
    failing.transcript->waitFor("in\n");
    EXPECT_EQ(cancel(failing.id, true), CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE);
    const auto error = failing.error();
    EXPECT_EQ(error.GetID(), "ZeroDivisionError");
    EXPECT_EQ(error.getExecutionStatus(), Status::CommandFailed);
}

/// Presses the button again and again until the command has ended.
template <typename Interrupt>
void interruptUntilDone(const Submitted& command, Interrupt interrupt) {
    const auto giveUp = std::chrono::steady_clock::now() + deadline;
    while (!command.isDone() && std::chrono::steady_clock::now() < giveUp) {
        interrupt();
        std::this_thread::yield();
    }
}

TEST_F(EngineTest, InterruptsOneBehindTheOtherCannotBeSwallowedForEver) {
    for (const char* body :
         {"while True:\n    try:\n        while True: pass\n    except: pass",
          "while True:\n    try:\n        while True: pass\n    except BaseException:\n        continue",
          "import time\nwhile True:\n    try: time.sleep(1000)\n    except: pass",
          "import yvm\nwhile True:\n    try: yvm.pause(1000)\n    except: pass",
          "def endless():\n    while True:\n        try: yield\n        except: pass\nfor x in endless(): "
          "pass",
          "import contextlib\nwhile True:\n    with contextlib.suppress(BaseException):\n        while True: "
          "pass",
          "def f():\n    while True:\n        try:\n            try:\n                while True: pass\n"
          "            except: f()\n        except: f()\nf()"}) {
        auto stubborn = startAndWait(body);
        interruptUntilDone(stubborn, [] { engine()->interrupt(); });
        ASSERT_EQ(stubborn.error().getExecutionStatus(), Status::Cancelled) << body;

        stubborn = startAndWait(body);
        auto answer = distributor()->cancel(stubborn.id, true);
        interruptUntilDone(stubborn, [&stubborn] { distributor()->cancel(stubborn.id, true); });
        ASSERT_EQ(stubborn.error().getExecutionStatus(), Status::Cancelled) << body;
        EXPECT_EQ(answer.get(), CmdDistributor::CANCEL_WHILE_RUNNING) << body;
        EXPECT_EQ(eval("for i in range(100): pass\ni"), "99\n") << body;
        EXPECT_TRUE(evalError("1/0").getCauses().empty()) << "nothing of it is left: " << body;
    }
}

TEST_F(EngineTest, AnInterruptThatCannotBeSwallowedLeavesATraceFunctionInPlace) {
    eval(
        "import sys\ntraced = 0\ndef trace(frame, event, argument):\n    global traced\n    traced += 1\n"
        "sys.settrace(trace)");
    auto stubborn = startAndWait("while True:\n    try:\n        while True: pass\n    except: pass");
    interruptUntilDone(stubborn, [] { engine()->interrupt(); });
    EXPECT_EQ(stubborn.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(eval("before = traced\n(lambda: 1)()\nsys.gettrace() is trace and traced > before"), "True\n");
    eval("sys.settrace(None)");
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

TEST_F(EngineTest, AnInterruptWhileAnotherIsBeingDescribedLeavesItAnInterrupt) {
    auto loop = submitEval(
        "class Slow(Exception):\n    def __str__(self):\n        print('told', flush=True)\n        while "
        "True: pass\n"
        "try:\n    raise Slow\nexcept Slow:\n    print('in', flush=True)\n    while True: pass");
    loop.transcript->waitFor("in\n");
    auto first = distributor()->cancel(loop.id, true);
    loop.transcript->waitFor("told\n");
    distributor()->cancel(loop.id, true);
    const auto error = loop.error();
    EXPECT_EQ(error.getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(error.GetID(), "yvm.Interrupt");
    EXPECT_STREQ(error.what(), "the command was interrupted");
    EXPECT_TRUE(error.getCauses().empty());
    EXPECT_EQ(first.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
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

TEST_F(EngineTest, ACancelOfTheCommandBeneathPassesByTheQueryAboveIt) {
    auto outer = startAndWait("while True: pass");
    auto query = startAndWait("import time; time.sleep(0.05); print('query done')", atPreemption());
    auto answer = distributor()->cancel(outer.id, true);
    query.get();
    EXPECT_EQ(query.transcript->text(), "started\nquery done\n");
    EXPECT_EQ(outer.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(answer.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
}

TEST_F(EngineTest, ACancelOfAQueryStopsTheQueryAlone) {
    eval("leave = False");
    auto outer = startAndWait("while not leave: pass\nprint('left')");
    auto query = startAndWait("while True: pass", atPreemption());
    EXPECT_EQ(cancel(query.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(query.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_FALSE(outer.isDone());
    submitEval("leave = True", atPreemption()).get();
    outer.get();
    EXPECT_EQ(outer.transcript->text(), "started\nleft\n");
}

TEST_F(EngineTest, AnInterruptIsNotHeldUpByQueriesThatKeepComing) {
    auto outer = startAndWait("while True: pass");
    // Each submits the next before it is answered, so there is always one to take.
    std::promise<void> tenCame;
    std::promise<void> lastCame;
    std::atomic<bool> isEnough{false};
    int count = 0;
    std::function<void()> another = [&] {
        if (++count == 10) {
            tenCame.set_value();
        }
        if (isEnough) {
            lastCame.set_value();
            return;
        }
        Submission next = atPreemption();
        next.inCompletion = another;
        submitEval("1;", next);
    };
    Submission first = atPreemption();
    first.inCompletion = another;
    submitEval("1;", first);
    tenCame.get_future().wait();
    engine()->interrupt();
    EXPECT_EQ(outer.error().getExecutionStatus(), Status::Cancelled);
    isEnough = true;
    lastCame.get_future().wait();
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
