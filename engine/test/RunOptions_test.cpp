#include "engine/test/EngineFixture.hpp"
#include "yvm/makeTextEventBuffer.hpp"

#include <mutex>
#include <sstream>

namespace yvm::engine::test {
namespace {

/// Submits commands behind a blocked engine, lets go, and returns the order in which they ran.
std::string orderOf(const std::vector<std::pair<std::string, Submission>>& commands) {
    std::mutex mutex;
    std::string order;
    auto busy = EngineTest::occupy();
    std::vector<Submitted> submitted;
    for (const auto& [name, submission] : commands) {
        Submission noted = submission;
        noted.inCompletion = [&mutex, &order, label = name] {
            const std::lock_guard lock(mutex);
            order += label;
        };
        submitted.push_back(EngineTest::submitEval("1;", noted));
    }
    EngineTest::release();
    busy.get();
    for (auto& command : submitted) {
        command.get();
    }
    return order;
}

TEST_F(EngineTest, CommandsOfOneQueueRunInTheirOrder) {
    EXPECT_EQ(
        orderOf({{"a", {}}, {"b", {}}, {"c", inMode(DequeueMode::DEQUEUE_AT_NON_DEBUG_PROMPT)}, {"d", {}}}),
        "abcd");
}

TEST_F(EngineTest, IdleCommandsComeLastAndBootstrapCommandsFirst) {
    EXPECT_EQ(orderOf({{"i", inMode(DequeueMode::DEQUEUE_AT_IDLE)},
                       {"a", {}},
                       {"b", inMode(DequeueMode::DEQUEUE_AT_BOOTSTRAP)},
                       {"c", {}}}),
              "baci");
}

TEST_F(EngineTest, ACommandForThePromptDoesNotRunInAPause) {
    auto host = submitEval("import yvm\nprint('paused', flush=True)\nyvm.pause(1000)");
    host.transcript->waitFor("paused\n");
    auto later = submitEval("print('at the prompt')");
    auto now = submitEval("print('in the pause')", inMode(DequeueMode::DEQUEUE_AT_PAUSE));
    now.get();
    EXPECT_FALSE(later.isDone());
    EXPECT_FALSE(host.isDone());
    cancel(host.id, true);
    host.error();
    later.get();
}

TEST_F(EngineTest, APauseEndsByItself) {
    auto host = submitEval("import yvm\nyvm.pause(0.01)\nyvm.pause()\nprint('on')");
    host.get();
    EXPECT_EQ(host.transcript->text(), "on\n");
}

TEST_F(EngineTest, APauseOfBadLengthIsRefused) {
    EXPECT_STREQ(evalError("import yvm; yvm.pause(-1)").what(),
                 "a pause of -1.0 seconds: zero or a positive number is accepted");
    EXPECT_EQ(evalError("yvm.pause(float('nan'))").GetID(), "ValueError");
    EXPECT_EQ(evalError("yvm.pause('x')").GetID(), "ValueError");
}

TEST_F(EngineTest, APauseOnAnotherThreadIsRefused) {
    auto submitted = submitEval(
        "import threading, yvm\n"
        "def work():\n"
        "    try: yvm.pause(0)\n"
        "    except RuntimeError as error: print(error)\n"
        "t = threading.Thread(target=work); t.start(); t.join()");
    submitted.get();
    EXPECT_EQ(submitted.transcript->text(),
              "yvm.pause is for the engine's own thread: elsewhere, use time.sleep\n");
}

TEST_F(EngineTest, APauseShowsTheTextBeforeIt) {
    auto host = submitEval("import yvm\nprint('a')\nprint('b')\nyvm.pause(1000)");
    host.transcript->waitForSynchronised("a\nb\n");
    EXPECT_FALSE(host.isDone());
    cancel(host.id, true);
    host.error();
}

TEST_F(EngineTest, TextOfACommandInAPauseGoesToItsOwnStreams) {
    auto host = submitEval(
        "import yvm, contextlib, io\n"
        "print('before', flush=True)\n"
        "with contextlib.redirect_stdout(io.StringIO()): yvm.pause(1000)");
    host.transcript->waitFor("before\n");
    auto inner = submitEval("print('mine')", inMode(DequeueMode::DEQUEUE_AT_PAUSE));
    inner.get();
    EXPECT_EQ(inner.transcript->text(), "mine\n");
    cancel(host.id, true);
    host.error();
    EXPECT_EQ(host.transcript->text(), "before\n");
}

TEST_F(EngineTest, ACommandAboveOneThatDeletedItsStreamsHasItsOwn) {
    auto host = submitEval(
        "import sys, yvm\nprint('on', flush=True)\nkept = sys.stdout, sys.displayhook\ndel sys.stdout, "
        "sys.displayhook\n"
        "try: yvm.pause(1000)\nfinally: sys.stdout, sys.displayhook = kept");
    host.transcript->waitFor("on\n");
    auto inner = submitEval("6*7", inMode(DequeueMode::DEQUEUE_AT_PAUSE));
    inner.get();
    EXPECT_EQ(inner.transcript->text(), "42\n");
    cancel(host.id, true);
    host.error();
    EXPECT_EQ(eval("1+1"), "2\n");
}

TEST_F(EngineTest, APreemptionCommandRunsInsideABusyLoop) {
    auto loop = submitEval("leave = False\nprint('loop', flush=True)\nwhile not leave: pass\nprint('left')");
    loop.transcript->waitFor("loop\n");
    auto first = submitEval("print('one')", inMode(DequeueMode::DEQUEUE_AT_PPE));
    first.get();
    EXPECT_EQ(first.transcript->text(), "one\n");
    EXPECT_FALSE(loop.isDone());
    auto failing = submitEval("1/0", inMode(DequeueMode::DEQUEUE_AT_PPE));
    EXPECT_EQ(failing.error().GetID(), "ZeroDivisionError");
    submitEval("leave = True", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    loop.get();
    EXPECT_EQ(loop.transcript->text(), "loop\nleft\n");
}

TEST_F(EngineTest, APreemptionCommandRunsInsideASleepAndAPause) {
    for (const char* wait : {"import time; time.sleep(1000)", "import yvm; yvm.pause(1000)"}) {
        auto host = submitEval(std::string("print('waits', flush=True)\n") + wait);
        host.transcript->waitFor("waits\n");
        submitEval("1;", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
        EXPECT_FALSE(host.isDone());
        cancel(host.id, true);
        host.error();
    }
}

TEST_F(EngineTest, EveryPreemptionCommandOfABurstRuns) {
    auto loop = submitEval("count = 0\nprint('loop', flush=True)\nwhile count < 500: pass");
    loop.transcript->waitFor("loop\n");
    std::vector<Submitted> burst;
    for (int i = 0; i < 500; ++i) {
        burst.push_back(submitEval("count += 1", inMode(DequeueMode::DEQUEUE_AT_PPE)));
    }
    for (auto& command : burst) {
        command.get();
    }
    loop.get();
}

TEST_F(EngineTest, PreemptionCommandsNestAndTheirLimitLosesNone) {
    auto loop = submitEval("done = 0\nprint('loop', flush=True)\nwhile done < 12: pass");
    loop.transcript->waitFor("loop\n");
    std::vector<Submitted> nested;
    for (int i = 0; i < 12; ++i) {
        // Each waits until the next one has come, so they pile up as far as they may.
        nested.push_back(submitEval("print('n', flush=True)\nfor i in range(200000): pass\ndone += 1",
                                    inMode(DequeueMode::DEQUEUE_AT_PPE)));
    }
    for (auto& command : nested) {
        command.get();
    }
    loop.get();
}

TEST_F(EngineTest, APreemptionCommandThatCameFirstRunsBesideALongCommand) {
    auto busy = occupy();
    auto loop = submitEval("leave = False\nwhile not leave: pass");
    // Waits while nothing that it could break into has begun, or runs in the command that blocks.
    auto query = submitEval("leave = True", inMode(DequeueMode::DEQUEUE_AT_PPE));
    release();
    busy.get();
    query.get();
    cancel(loop.id, true);
}

TEST_F(EngineTest, TheStackOfCommandsNamesTheOuterOneFirst) {
    auto outer = submitEval("import yvm\nprint('1', flush=True)\nyvm.pause(1000)");
    outer.transcript->waitFor("1\n");
    auto running = submitFeval("yvm.state", {}, 1, inMode(DequeueMode::DEQUEUE_AT_PAUSE)).get();
    const Array ids = running.at(0).record()[0].second;
    ASSERT_EQ(ids.size(), 2U);
    std::ostringstream id;
    id << outer.id;
    EXPECT_EQ(utf8(ids.list()[0]), id.str());
    cancel(outer.id, true);
    outer.error();
}

TEST_F(EngineTest, TextEventsThatNobodyTakesAreShownUnlessThatIsTurnedOff) {
    Submission shown;
    shown.ownStreams = false;
    shown.runOptions.setOutStream(makeTextEventBuffer(ylutil::io::StreamTypeEnum::Output), {});
    Submission dropped = shown;
    dropped.runOptions.removeDefaultCallbacks();
    takeConsoleText();
    submitEval("print('shown')", shown).get();
    submitEval("print('dropped')", dropped).get();
    Submission toTheConsole;
    toTheConsole.ownStreams = false;
    submitEval("print('console')", toTheConsole).get();
    EXPECT_EQ(takeConsoleText(), "shown\nconsole\n");
}

}  // namespace
}  // namespace yvm::engine::test
