#include "engine/test/EngineFixture.hpp"

#include <boost/make_shared.hpp>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <fstream>
#include <utility>

#ifdef __SANITIZE_ADDRESS__
// GCC brings no header that declares it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                                         void (*)(const volatile void*));
#endif

namespace yvm::engine::test {
namespace {

using Way = OutputGate::Way;

class Gate : public EngineTest {
  protected:
    ~Gate() override { gate().openAll(); }

    /// A command that writes when it is told to, and whose gate is closed then.
    static Submitted submitRefused(const std::string& write, Submission submission = {}) {
        eval("import threading, sys\ngo = threading.Event()");
        auto submitted = submitEval("go.wait()\n" + write, std::move(submission));
        gate().close(submitted.id);
        query("go.set()").get();
        gate().waitForRefusal(submitted.id);
        return submitted;
    }
    static Submitted query(const std::string& source, DequeueMode mode = DequeueMode::DEQUEUE_AT_PPE) {
        return submitEval(source, inMode(mode));
    }
};

TEST_F(Gate, IsToldOfAllThatIsWritten) {
    auto submitted = submitEval("import sys\nprint('abc')\nprint('\U0001F600', file=sys.stderr)");
    submitted.get();
    EXPECT_EQ(gate().written(Way::OwnStreams, submitted.id), 7U);
}

TEST_F(Gate, IsNotAskedForTheConsole) {
    Submission submission;
    submission.ownStreams = false;
    auto submitted = submitEval("print('abc')", std::move(submission));
    submitted.get();
    EXPECT_EQ(gate().writes(submitted.id), 0);
}

TEST_F(Gate, KnowsTextForTheClientWideSinksAndWhenTheyAreReplaced) {
    const int before = gate().sinksReplacedCount();
    Submitted submitted;
    {
        const auto restorer = engine()->makeSinkRestorer(engine());
        auto [out, err] = makeSinks(std::make_shared<Transcript>());
        engine()->replaceSinks(std::move(out), std::move(err));
        Submission submission;
        submission.ownStreams = false;
        submitted = submitEval("print('abc')", std::move(submission));
        submitted.get();
    }
    EXPECT_EQ(gate().written(Way::ClientWideSinks, submitted.id), 4U);
    EXPECT_EQ(gate().sinksReplacedCount(), before + 2);
}

TEST_F(Gate, HoldsTheWriterBackUntilItOpens) {
    auto held = submitRefused("print('through')");
    EXPECT_EQ(held.transcript->text(), "");
    gate().open(held.id);
    held.get();
    EXPECT_EQ(held.transcript->text(), "through\n");
}

TEST_F(Gate, HoldsDisplayedValuesBackThatGoToAHandler) {
    Submission submission;
    std::atomic<int> values{0};
    submission.runOptions.setCallbackImpl([&](const foundation::msg_svc::eventmgr::BaseEvent&) { ++values; },
                                          u"ylutil::io::StructuredOutputEvent");
    auto held = submitRefused("7", submission);
    EXPECT_EQ(values, 0);
    gate().open(held.id);
    held.get();
    EXPECT_EQ(values, 1);

    auto interrupted = submitRefused("import yvm; yvm.display(8); yvm.display(9)", submission);
    EXPECT_EQ(cancel(interrupted.id, true), CancelStatus::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(interrupted.error().GetID(), "yvm.Interrupt");
    EXPECT_EQ(values, 2);
}

TEST_F(Gate, WhatStoodBeforeTheRefusalLeavesFirst) {
    auto held = submitRefused("print('late')");
    gate().closeAfterEachWriteOf(held.id);
    gate().open(held.id);
    held.transcript->waitForSynchronised("late");
    gate().openAll();
    held.get();
}

TEST_F(Gate, CommandsOfAPauseRunWhileItIsClosed) {
    auto held = submitRefused("print('through')");
    auto first = query("1+1");
    first.get();
    EXPECT_EQ(first.transcript->text(), "2\n");
    auto second = query("2+2", DequeueMode::DEQUEUE_AT_PAUSE);
    second.get();
    EXPECT_EQ(second.transcript->text(), "4\n");
    EXPECT_FALSE(held.isDone());
    gate().open(held.id);
    held.get();
}

TEST_F(Gate, AQueryMayWaitAboveACommandThatWaits) {
    auto outer = submitRefused("print('outer')");
    auto inner =
        submitEval("innerGo = threading.Event(); print('runs', flush=True); innerGo.wait()\nprint('inner')",
                   inMode(DequeueMode::DEQUEUE_AT_PPE));
    inner.transcript->waitForSynchronised("runs\n");
    gate().close(inner.id);
    query("innerGo.set()").get();
    gate().waitForRefusal(inner.id);
    gate().open(outer.id);
    query("1+1").get();
    EXPECT_FALSE(outer.isDone());
    gate().open(inner.id);
    outer.get();
    inner.get();
    EXPECT_EQ(inner.transcript->text(), "runs\ninner\n");
    EXPECT_EQ(outer.transcript->text(), "outer\n");
}

TEST_F(Gate, AnInterruptEndsTheWaitAndTheTextIsWritten) {
    auto held = submitRefused("print('written', end='')\nprint('never')");
    EXPECT_EQ(cancel(held.id, true), CancelStatus::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(held.error().GetID(), "yvm.Interrupt");
    EXPECT_EQ(held.transcript->text(), "written");
}

TEST_F(Gate, AThreadWaitsToo) {
    auto held = submitRefused(
        "def work(): print('of the thread', end='')\n"
        "thread = threading.Thread(target=work); thread.start(); thread.join()");
    EXPECT_EQ(query("1+1").get().size(), 0U);
    EXPECT_EQ(held.transcript->text(), "");
    gate().open(held.id);
    held.get();
    EXPECT_EQ(held.transcript->text(), "of the thread");
}

TEST_F(Gate, NoCommandRunsAboveOneThatWritesInAnImport) {
    int go[2];
    ASSERT_EQ(::pipe2(go, O_CLOEXEC), 0);
    eval(
        "import os, sys, importlib.abc, importlib.util\n"
        "class Loader(importlib.abc.Loader):\n"
        "    def create_module(self, spec): return None\n"
        "    def exec_module(self, module):\n"
        "        os.read(" +
        std::to_string(go[0]) +
        ", 1)\n"
        "        print('imported')\n"
        "class Finder(importlib.abc.MetaPathFinder):\n"
        "    def find_spec(self, name, path, target=None):\n"
        "        return importlib.util.spec_from_loader(name, Loader()) if name == 'that_prints' else None\n"
        "finder = Finder(); sys.meta_path.insert(0, finder)");
    auto held = submitEval("print('runs', flush=True)\nimport that_prints");
    held.transcript->waitForSynchronised("runs\n");
    gate().close(held.id);
    ASSERT_EQ(::write(go[1], "x", 1), 1);
    gate().waitForRefusal(held.id);
    auto waiting = query("1+1");
    gate().waitForRefusal(held.id, 2);  // Asked again, as the query has woken the engine.
    EXPECT_FALSE(waiting.isDone());
    gate().open(held.id);
    held.get();
    waiting.get();
    eval("sys.meta_path.remove(finder)");
    ::close(go[0]);
    ::close(go[1]);
}

TEST_F(Gate, ALongTextIsWrittenInPiecesBetweenWhichTheGateIsAsked) {
    auto held = submitRefused("print('x' * 1_000_000 + '\\U0001F600' * 1_000_000, end='')");
    gate().closeAfterEachWriteOf(held.id);
    for (int piece = 1; piece < 4; ++piece) {
        gate().open(held.id);
        gate().waitForRefusal(held.id);
        EXPECT_EQ(gate().writes(held.id), piece);
    }
    gate().openAll();
    held.get();
    EXPECT_EQ(held.transcript->units().size(), 3'000'000U);
    EXPECT_EQ(gate().written(Way::OwnStreams, held.id), 3'000'000U);
    EXPECT_EQ(held.transcript->text().find("\uFFFD"), std::string::npos);
}

TEST_F(Gate, AnInterruptEndsALongTextAfterThePieceThatWaited) {
    auto held = submitRefused("print('x' * 10_000_000, end='')");
    EXPECT_EQ(cancel(held.id, true), CancelStatus::CANCEL_WHILE_RUNNING);
    held.error();
    EXPECT_EQ(gate().writes(held.id), 1);
    EXPECT_EQ(held.transcript->units().size(), gate().written(Way::OwnStreams, held.id));
}

/// Drops what it is given.
class NoBuffer final : public std::basic_streambuf<char16_t> {
  protected:
    std::streamsize xsputn(const char16_t*, std::streamsize count) override { return count; }
};

#ifdef __SANITIZE_ADDRESS__

std::atomic<std::size_t> largestAllocation;

void noteAllocation(const volatile void*, std::size_t size) {
    std::size_t largest = largestAllocation;
    while (size > largest && !largestAllocation.compare_exchange_weak(largest, size)) {
    }
}

/// The largest piece of memory that was asked for since the construction, in bytes. The sanitizer keeps what
/// is freed for a while, so that the peak of the process would count every piece of a text.
class MemoryNeed {
  public:
    MemoryNeed() {
        static const int installed =
            __sanitizer_install_malloc_and_free_hooks(&noteAllocation, [](const volatile void*) {});
        EXPECT_NE(installed, 0);
        largestAllocation = 0;
    }
    std::size_t bytes() const { return largestAllocation; }
};

#else

std::size_t peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::stoul(line.substr(6)) * 1024;
        }
    }
    throw std::runtime_error("no VmHWM");
}

/// By how much the peak of the process has grown since the construction, in bytes.
class MemoryNeed {
  public:
    std::size_t bytes() const { return peakMemory() - before_; }

  private:
    static std::size_t resetPeak() {
        std::ofstream("/proc/self/clear_refs") << "5";
        return peakMemory();
    }

    const std::size_t before_ = resetPeak();
};

#endif

TEST_F(Gate, AHugeTextCostsNoCopyOfTheWhole) {
    Submission submission;
    submission.ownStreams = false;
    submission.runOptions.setOutStream(boost::make_shared<NoBuffer>(), RunOptions::getDefaultSinkTraits());
    eval("huge = 'x' * 100_000_000");
    const MemoryNeed need;
    submitEval("print(huge)", std::move(submission)).get();
    EXPECT_LT(need.bytes(), 20'000'000U);
    eval("del huge");
}

}  // namespace
}  // namespace yvm::engine::test
