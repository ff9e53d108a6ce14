#include "engine/test/DebuggerFixture.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <utility>
#include <vector>

namespace yvm::engine::test {
namespace {

class DebuggerConditionsTest : public DebuggerTest {
  public:
    const EventRecorder<DebuggerStoppedEvent> messages{
        [](const DebuggerStoppedEvent& event) { return fl::i18n::to_string(event.message()); }};

    /// As NumPy starts.
    static void resetNumpy() {
        eval("import numpy as np\nnp.seterr(all='warn', under='ignore')\nnp.seterrcall(None);");
    }
};

TEST_F(DebuggerConditionsTest, AFileThatIsNoRegularOneIsRefusedAndNotRead) {
    const auto pipe = (std::filesystem::current_path() / "pipe.py").string();
    std::filesystem::remove(pipe);
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    for (const std::string& file : {pipe, std::string("/dev/zero"), std::string("/")}) {
        EXPECT_EQ(set(LineBreakpoint(fl::i18n::to_ustring(file), Location(1))), "no regular file: " + file);
    }
}

TEST_F(DebuggerConditionsTest, NanInfIsClearedInsideABlockOfErrstate) {
    resetNumpy();
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    auto command = submitEval(
        "with np.errstate(over='ignore'):\n    breakpoint()\nprint(np.array([1.0]) / 0)\n"
        "print(np.geterr())",
        withoutControlOutput());
    stops->waitFor("break <module>:2");
    ASSERT_EQ(clear(GlobalBreakpoint(Condition::NanInf)), "");
    act("resume");
    command.get();
    EXPECT_THAT(command.transcript->text(), testing::HasSubstr("RuntimeWarning: divide by zero encountered"));
    EXPECT_THAT(command.transcript->text(), testing::HasSubstr("[inf]\n{'divide': 'warn', 'over': 'warn', "));
    EXPECT_EQ(stops->all().size(), 1U);
}

TEST_F(DebuggerConditionsTest, ModesThatWereReadWhileNanInfWasSetMayBeSetAfterwards) {
    resetNumpy();
    eval("np.seterr(divide='raise');");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    eval("old = np.seterr();");
    ASSERT_EQ(clear(GlobalBreakpoint(Condition::NanInf)), "");
    EXPECT_EQ(evalError("np.seterr(**old)\nnp.array([1.0]) / 0").GetID(), "FloatingPointError");
    EXPECT_THAT(eval("np.array([np.inf]) - np.inf"), testing::HasSubstr("RuntimeWarning: invalid value"));
    EXPECT_EQ(stops->text(), "");
    resetNumpy();
}

TEST_F(DebuggerConditionsTest, WhatRunsInsideABlockOfErrstateLeavesTheModesAroundIt) {
    resetNumpy();
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    auto command = submitEval(
        "with np.errstate(all='ignore'):\n    breakpoint()\n    np.array([1.0]) / 0\nnp.array([1.0]) / 0",
        withoutControlOutput());
    stops->waitFor("break <module>:2");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error)), "");
    act("resume");
    stops->waitFor("nan <module>:4");
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 2U);
    EXPECT_THAT(command.transcript->text(), testing::HasSubstr("RuntimeWarning: divide by zero encountered"));
}

TEST_F(DebuggerConditionsTest, WhatTheUserAskedForAtAnUnderflowHappensAsEver) {
    eval(
        "import numpy as np\nseen = []\ndef note(kind, flags): seen.append(kind)\n"
        "class Log:\n    def write(self, text): seen.append(text)\n"
        "np.seterrcall(note)\nnp.seterr(under='call');");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    EXPECT_EQ(eval("np.array([1e-300]) * 1e-300\nseen"), "['underflow']\n");
    ASSERT_EQ(clear(GlobalBreakpoint(Condition::NanInf)), "");
    EXPECT_EQ(eval("np.geterrcall() is note"), "True\n");
    eval("log = Log()\nnp.seterrcall(log)\nnp.seterr(under='log');");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    EXPECT_THAT(eval("np.array([1e-300]) * 1e-300\nseen[1:]"), testing::StartsWith("['Warning: underflow"));
    ASSERT_EQ(clear(GlobalBreakpoint(Condition::NanInf)), "");
    EXPECT_EQ(eval("np.geterrcall() is log"), "True\n");
    EXPECT_EQ(stops->text(), "");
    resetNumpy();
}

TEST_F(DebuggerConditionsTest, AnErrorWithoutFramesDoesNotStop) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error)), "");
    EXPECT_EQ(evalError("def f(:").GetID(), "SyntaxError");
    EXPECT_EQ(submitFeval("no_such_function", {}).error().GetID(), "NameError");
    EXPECT_EQ(stops->text(), "");
}

TEST_F(DebuggerConditionsTest, AtTheDebugPromptOnlyAnErrorOutOfAFunctionStops) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error)), "");
    auto command = submitEval("def f(a):\n    return a / 0\nf(1)");
    stops->waitFor("error f:2");
    EXPECT_EQ(submitEval("a = = 1", atDebugPrompt()).error().GetID(), "SyntaxError");
    EXPECT_EQ(submitEval("aa", atDebugPrompt()).error().GetID(), "NameError");
    EXPECT_EQ(stops->all().size(), 1U);
    auto inner = submitEval("def g(b):\n    return b / 0\ng(2)", atDebugPrompt());
    stops->waitFor("error g:2");
    EXPECT_EQ(evalStopped("b"), "2\n");
    act("resume");
    EXPECT_EQ(inner.error().GetID(), "ZeroDivisionError");
    act("resume");
    command.error();
}

TEST_F(DebuggerConditionsTest, ABreakpointThatWasSetAnewIsClearedByEachOfItsSpellings) {
    const auto file = writeModule("spellings",
                                  "def outer():\n"          // 1
                                  "    def inner():\n"      // 2
                                  "        # a comment\n"   // 3
                                  "        return 1\n"      // 4
                                  "    return inner()\n");  // 5
    for (const unsigned long long line : {3, 4}) {
        ASSERT_EQ(set(LineBreakpoint(file, Location(3))), "");
        ASSERT_EQ(set(LineBreakpoint(file, Location(4), u"True")), "");
        ASSERT_EQ(clear(LineBreakpoint(file, Location(line))), "");
        EXPECT_EQ(eval("import yvm; yvm.debug.breakpoints()"), "[]\n") << line;
    }
    for (const char* name : {"inner", "outer.<locals>.inner"}) {
        ASSERT_EQ(set(LineBreakpoint(file, Location("inner"))), "");
        ASSERT_EQ(set(LineBreakpoint(file, Location("outer.<locals>.inner"))), "");
        ASSERT_EQ(clear(LineBreakpoint(file, Location(name))), "");
        EXPECT_EQ(eval("import yvm; yvm.debug.breakpoints()"), "[]\n") << name;
    }
}

TEST_F(DebuggerConditionsTest, AStopAtTheOutputOfADebugPromptsCommandIsInItsFrame) {
    const std::string source = "def f(n):\n    return n + 1\nf(41)";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source, withoutControlOutput());
    stops->waitFor("breakpoint f:2");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::UnsuppressedOutput)), "");
    auto inner = submitEval("n = n + 1\nn", atDebugPrompt());
    stops->waitFor("output <module>:2");
    EXPECT_EQ(evalStopped("print(n)"), "42\n");
    evalStopped("n = 50");
    ASSERT_EQ(clear(GlobalBreakpoint(Condition::UnsuppressedOutput)), "");
    act("resume");
    inner.get();
    EXPECT_EQ(evalStopped("n"), "50\n");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "51\n");
}

TEST_F(DebuggerConditionsTest, ACaughtErrorIsNarrowedByItsType) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::CaughtError, "LookupError")), "");
    auto command = submitEval(
        "try: 1/0\nexcept ZeroDivisionError: pass\n"
        "try: {}['x']\nexcept KeyError: pass");
    stops->waitForCount(1);
    act("resume");
    command.get();
    EXPECT_EQ(stops->text(), "caught <module>:3");
}

TEST_F(DebuggerConditionsTest, OverflowsAndInvalidOperationsStopAsDivisionsDo) {
    resetNumpy();
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    auto command = submitEval("a = np.array([1e308, np.inf])\na[:1] * 10\na[1:] - a[1:];");
    stops->waitFor("nan <module>:2");
    act("resume");
    stops->waitFor("nan <module>:3");
    act("resume");
    command.get();
    EXPECT_EQ(messages->text(), "overflow encountered invalid value encountered");
}

TEST_F(DebuggerConditionsTest, AFunctionsOwnNameIsRefusedIfSeveralHaveIt) {
    const auto file = writeModule("ambiguous",
                                  "class A:\n    def open(self): return 1\n"
                                  "class B:\n    def open(self): return 2\n");
    EXPECT_EQ(set(LineBreakpoint(file, Location("open"))),
              "more than one function open in " + fl::i18n::to_string(file) +
                  ", such as A.open: the qualified name is accepted");
    EXPECT_EQ(set(LineBreakpoint(file, Location("B.open"))), "");
}

TEST_F(DebuggerConditionsTest, BeyondTheLastLevelCommandsRunPastTheirStops) {
    std::vector<Submitted> commands{submitEval("breakpoint()")};
    stops->waitForCount(1);
    for (std::size_t level = 2; level <= 8; ++level) {
        commands.push_back(submitEval("breakpoint()", atDebugPrompt()));
        stops->waitForCount(level);
    }
    EXPECT_EQ(evalStopped("breakpoint()\nprint('past')"), "past\n");
    EXPECT_EQ(stops->all().size(), 8U);
    for (; !commands.empty(); commands.pop_back()) {
        act("resume");
        commands.back().get();
    }
}

TEST_F(DebuggerConditionsTest, AConditionThatUsesUpMemoryOrRecursionStopsAndSaysSo) {
    eval("def dive(n): return dive(n + 1)");
    for (const auto& [condition, error] :
         {std::pair{u"b'x' * (1 << 62)", "MemoryError"}, std::pair{u"dive(0)", "RecursionError"}}) {
        const std::size_t before = messages->all().size();
        const std::string source = "y = 1\ny = 2";
        ASSERT_EQ(set(LineBreakpoint(nameOf(source), Location(2), condition)), "");
        auto command = submitEval(source);
        messages->waitForCount(before + 1);
        EXPECT_THAT(messages->all().back(), testing::HasSubstr(std::string(" failed: ") + error));
        EXPECT_EQ(evalStopped("y"), "1\n");
        act("resume");
        command.get();
    }
}

TEST_F(DebuggerConditionsTest, AForkedChildRunsPastBreakpoints) {
    const std::string source =
        "import os\n"
        "def f():\n"
        "    return 7\n"
        "child = os.fork()\n"
        "if child == 0:\n"
        "    os._exit(f())\n"
        "print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))\n"
        "f();";
    ASSERT_EQ(setInCommand(source, 3), "");
    auto command = submitEval(source, withoutControlOutput());
    stops->waitFor("breakpoint f:3");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "7\n");
    EXPECT_EQ(stops->all().size(), 1U);
}

TEST_F(DebuggerConditionsTest, WarningsAndNansOfTheUsersThreadsDoNotStop) {
    resetNumpy();
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Warning)), "");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    // NumPy's modes are those of each thread.
    const std::string text = eval(
        "import threading, warnings\n"
        "call, modes = np.geterrcall(), np.geterr()\n"
        "def f():\n"
        "    warnings.warn('out of a thread')\n"
        "    np.seterrcall(call)\n"
        "    np.seterr(**modes)\n"
        "    print(np.array([1.0]) / 0)\n"
        "t = threading.Thread(target=f)\n"
        "t.start()\n"
        "t.join()");
    EXPECT_THAT(text, testing::HasSubstr("UserWarning: out of a thread"));
    EXPECT_THAT(text, testing::HasSubstr("RuntimeWarning: divide by zero encountered"));
    EXPECT_THAT(text, testing::HasSubstr("[inf]"));
    EXPECT_EQ(stops->text(), "");
}

TEST_F(DebuggerConditionsTest, AStopWhereRecursionIsUsedUpLeavesTheProgramItsOwnError) {
    resetNumpy();
    eval(
        "import warnings\n"
        "def warn(): warnings.warn('deep')\n"
        "def divide(): np.array([1.0]) / 0\n"
        "def catch():\n    try: raise ValueError\n    except ValueError: pass\n"
        "def dive(n, deepest): return dive(n - 1, deepest) if n else deepest()");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Warning)), "");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::CaughtError, "ValueError")), "");
    for (const char* deepest : {"warn", "divide", "catch", "breakpoint"}) {
        int through = 0;
        int usedUp = 0;
        for (int depth = 960; depth < 1000; ++depth) {
            const std::size_t before = stops->all().size();
            auto command = submitEval("try: dive(" + std::to_string(depth) + ", " + deepest +
                                          ")\nexcept RecursionError: print('used up')",
                                      withoutControlOutput());
            while (!command.isDone()) {
                // An error where the command has not stopped.
                submitFeval("yvm.debug.resume", {}, 0).outcome.wait();
            }
            command.get();
            const bool hasStopped = stops->all().size() > before;
            const bool isUsedUp = command.transcript->text().find("used up\n") != std::string::npos;
            EXPECT_TRUE(hasStopped || isUsedUp) << deepest << " at " << depth;
            ++(isUsedUp ? usedUp : through);
        }
        EXPECT_GT(through, 0) << deepest;
        EXPECT_GT(usedUp, 0) << deepest;
    }
    EXPECT_EQ(eval("import sys; sys.getrecursionlimit()"), "1000\n");
}

TEST_F(DebuggerConditionsTest, AnErrorOfRecursionStopsWhereItIsCaughtAndWhereItIsNot) {
    eval("def endless(n): return endless(n + 1)");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::CaughtError, "RecursionError")), "");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error, "RecursionError")), "");
    auto caught = submitEval("try: endless(0)\nexcept RecursionError: pass");
    stops->waitFor("caught endless:1");
    EXPECT_EQ(evalStopped("n > 900"), "True\n");
    act("resume");
    caught.get();
    auto uncaught = submitEval("endless(0)");
    stops->waitFor("error endless:1");
    EXPECT_EQ(evalStopped("n > 900"), "True\n");
    act("resume");
    EXPECT_EQ(uncaught.error().GetID(), "RecursionError");
    EXPECT_EQ(stops->all().size(), 2U);
}

}  // namespace
}  // namespace yvm::engine::test
