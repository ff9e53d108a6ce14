#include "engine/test/EngineFixture.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace yvm::engine::test {
namespace {

/// Python: the exit code of a child, which is killed if it does not end in time.
const std::string reap =
    "import os, select\n"
    "def reap(pid):\n"
    "    end = os.pidfd_open(pid)\n"
    "    if not select.select([end], [], [], 60)[0]: os.kill(pid, 9)\n"
    "    os.close(end)\n"
    "    return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])\n";

TEST_F(EngineTest, AForkedChildPublishesNothingAndTheParentGoesOn) {
    auto submitted = submitEval(reap +
                                "import sys\n"
                                "pid = os.fork()\n"
                                "if pid == 0:\n"
                                "    print('child', file=sys.stderr)\n"
                                "    sys.exit(7)\n"
                                "print(reap(pid))");
    submitted.get();
    EXPECT_EQ(submitted.transcript->text(), "7\n");
    EXPECT_EQ(eval("1+1"), "2\n");
}

TEST_F(EngineTest, AForkedChildThatRunsToTheEndOfItsCommandEnds) {
    EXPECT_EQ(eval(reap + "pid = os.fork()\n"
                          "if pid: print(reap(pid))"),
              "0\n");
    EXPECT_EQ(eval("pid = os.fork()\n"
                   "if pid == 0: raise SystemExit\n"
                   "print(reap(pid))"),
              "0\n");
    EXPECT_EQ(eval("pid = os.fork()\n"
                   "if pid == 0: os.close(2); raise ValueError\n"
                   "print(reap(pid))"),
              "1\n");
}

TEST_F(EngineTest, AThreadThatForksEndsItsChild) {
    EXPECT_EQ(eval(reap + "import threading\n"
                          "def work():\n"
                          "    global status\n"
                          "    pid = os.fork()\n"
                          "    if pid: status = reap(pid)\n"
                          "t = threading.Thread(target=work); t.start(); t.join(); status"),
              "0\n");
}

TEST_F(EngineTest, AForkWhileOtherThreadsWorkForCommandsDoesNotHang) {
    // Their commands are let go of in the child, by the interpreter's own work after the fork.
    eval(
        "import threading\nstop = threading.Event()\n"
        "def chatter():\n    while not stop.is_set(): print('x', end='')\n"
        "threads = [threading.Thread(target=chatter) for i in range(4)]\n"
        "for t in threads: t.start()");
    EXPECT_EQ(eval(reap + "import yvm\ncodes = set()\n"
                          "for i in range(20):\n"
                          "    pid = os.fork()\n"
                          "    if pid == 0: raise SystemExit(0 if yvm.queue() == [] else 3)\n"
                          "    codes.add(reap(pid))\n"
                          "stop.set()\n"
                          "for t in threads: t.join()\n"
                          "codes"),
              "{0}\n");
}

TEST_F(EngineTest, AChildThatUsesThreadsEndsWithItsOwnStatus) {
    EXPECT_EQ(eval("import multiprocessing, sys, threading\n"
                   "from concurrent.futures import ThreadPoolExecutor\n"
                   "def work():\n"
                   "    with ThreadPoolExecutor(2) as pool: total = sum(pool.map(abs, range(-3, 0)))\n"
                   "    t = threading.Thread(target=abs, args=(1,)); t.start(); t.join()\n"
                   "    sys.exit(total + 1)\n"
                   "p = multiprocessing.get_context('fork').Process(target=work); p.start(); p.join(60)\n"
                   "if p.exitcode is None: p.kill(); p.join()\n"
                   "p.exitcode"),
              "7\n");
}

TEST_F(EngineTest, WorkersOfAPoolMayStartThreads) {
    EXPECT_EQ(eval("import multiprocessing, threading\n"
                   "def threaded(x):\n"
                   "    result = []\n"
                   "    t = threading.Thread(target=lambda: result.append(x * x)); t.start(); t.join()\n"
                   "    return result[0]\n"
                   "with multiprocessing.get_context('fork').Pool(2) as pool:\n"
                   "    print(pool.map_async(threaded, range(5)).get(60))"),
              "[0, 1, 4, 9, 16]\n");
}

TEST_F(EngineTest, MultiprocessingByForkWorks) {
    auto submitted = submitEval(
        "import multiprocessing\n"
        "def square(x): return x * x\n"
        "with multiprocessing.get_context('fork').Pool(2) as pool: print(pool.map(square, range(5)))");
    submitted.get();
    EXPECT_EQ(submitted.transcript->text(), "[0, 1, 4, 9, 16]\n");
    EXPECT_EQ(eval("1+1"), "2\n");
}

TEST_F(EngineTest, AChildThatIsTerminatedDoesNotTerminateTheServer) {
    // The server's handler writes to a pipe that a forked child shares.
    static int signalPipe[2];
    ASSERT_EQ(::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK), 0);
    struct sigaction handler{};
    struct sigaction before{};
    handler.sa_handler = [](int) { [[maybe_unused]] const auto written = ::write(signalPipe[1], "t", 1); };
    ASSERT_EQ(sigaction(SIGTERM, &handler, &before), 0);
    EXPECT_EQ(eval("import multiprocessing, time\n"
                   "ctx = multiprocessing.get_context('fork'); started = ctx.Event()\n"
                   "def linger(): started.set(); time.sleep(1000)\n"
                   "p = ctx.Process(target=linger); p.start()\n"
                   "assert started.wait(60)\n"
                   "p.terminate(); p.join(); p.exitcode"),
              "-15\n");
    char byte = 0;
    EXPECT_EQ(::read(signalPipe[0], &byte, 1), -1) << "the child told the server that it was asked to stop";
    sigaction(SIGTERM, &before, nullptr);
}

TEST_F(EngineTest, ASubprocessListensToSignals) {
    EXPECT_EQ(eval("import subprocess\n"
                   "p = subprocess.Popen(['sleep', '1000']); p.terminate(); p.wait(60)"),
              "-15\n");
    EXPECT_EQ(eval("import os\nos.system('kill -TERM $$')"), "15\n");
    EXPECT_EQ(eval("subprocess.run(['echo', 'x'], capture_output=True).stdout"), "b'x\\n'\n");
}

TEST_F(EngineTest, TheThreadsOfCommandsLeaveTheServersSignalsBlocked) {
    EXPECT_EQ(eval("import signal\nsorted(s.name for s in signal.pthread_sigmask(signal.SIG_BLOCK, []))"),
              "['SIGINT', 'SIGTERM']\n");
}

TEST_F(EngineTest, AnInterruptBesideTheStartOfAProcessLeavesTheServersSignalsBlocked) {
    for (int round = 0; round < 20; ++round) {
        auto starting = submitEval(
            "import os\nprint('in', flush=True)\n"
            "while True:\n"
            "    try: os.posix_spawn('/no/such/program', ['x'], {})\n"
            "    except FileNotFoundError: pass");
        starting.transcript->waitFor("in\n");
        EXPECT_EQ(cancel(starting.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
        starting.error();
        ASSERT_EQ(eval("import signal\nsorted(s.name for s in signal.pthread_sigmask(signal.SIG_BLOCK, []))"),
                  "['SIGINT', 'SIGTERM']\n");
    }
}

TEST_F(EngineTest, TheInterpreterIsTheOneThatWasBuiltFor) {
    EXPECT_EQ(eval("import sys\n(sys.executable, sys.prefix, sys.flags.utf8_mode, sys.path[0])"),
              "('/usr/bin/python3', '/usr', 1, '')\n");
}

}  // namespace
}  // namespace yvm::engine::test
