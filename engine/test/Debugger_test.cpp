#include "engine/test/DebuggerFixture.hpp"
#include "ylutil/prompt/PromptEvent.hpp"
#include "yvm/BreakpointsChangedEvent.hpp"
#include "yvm/DebuggerResumedEvent.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace yvm::engine::test {
namespace {

using Status = ylutil::cmddistributor::inExecutionStatus;

TEST_F(DebuggerTest, ABreakpointInACommandStopsItUntilItIsResumed) {
    const std::string source = "x = 1\nx = x + 1\nprint('x is', x)";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source, withoutControlOutput());
    stops->waitFor("breakpoint <module>:2");
    EXPECT_FALSE(command.isDone());
    EXPECT_EQ(evalStopped("x"), "1\n");
    evalStopped("x = 41");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "x is 42\n");
    EXPECT_EQ(stops->text(), "breakpoint <module>:2");
}

const char* const twoFunctions =
    "# a comment\n"             // 1
    "\n"                        // 2
    "def first(n):\n"           // 3
    "    total = 0\n"           // 4
    "    for i in range(n):\n"  // 5
    "        total += i\n"      // 6
    "    return total\n"        // 7
    "def second(n):\n"          // 8
    "    a = first(n)\n"        // 9
    "    # nothing here\n"      // 10
    "    b = a + 1\n"           // 11
    "    return b\n";           // 12

TEST_F(DebuggerTest, ABreakpointInAFileStopsWhereverItsLineRuns) {
    const auto file = writeModule("stops_in_file", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(6))), "");
    auto command = submitEval("import stops_in_file; print(stops_in_file.second(2))", withoutControlOutput());
    stops->waitFor("breakpoint first:6");
    act("resume");
    stops->waitFor("breakpoint first:6", 2);
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "2\n");
    EXPECT_EQ(stops->all().size(), 2U);
}

TEST_F(DebuggerTest, AStopTellsTheStackOfItsCommandOutermostFirst) {
    const auto file = writeModule("tells_stack", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(4))), "");
    const EventRecorder<DebuggerStoppedEvent> stacks([](const DebuggerStoppedEvent& event) {
        std::string text;
        for (const auto& frame : event.frames()) {
            text += std::filesystem::path(frame.fileName).filename().string() + ":" + frame.functionName +
                    ":" + std::to_string(frame.lineNumber) + ":" + frame.sourceLine + ";";
        }
        return text + std::to_string(event.level()) + fl::i18n::to_string(event.message());
    });
    const std::string source = "import tells_stack\ntells_stack.second(1);";
    const auto name = fl::i18n::to_string(nameOf(source));
    auto command = submitEval(source);
    stops->waitFor("breakpoint first:4");
    act("resume");
    command.get();
    EXPECT_EQ(stacks->text(), name +
                                  ":<module>:2:tells_stack.second(1);;tells_stack.py:second:9:a = first(n);"
                                  "tells_stack.py:first:4:total = 0;1");
}

TEST_F(DebuggerTest, ABreakpointMovesToTheNextLineWithCodeAndIsClearedByEitherLine) {
    const auto file = writeModule("moves_down", twoFunctions);
    std::atomic<bool> isAnswered{false};
    const EventRecorder<BreakpointsChangedEvent> changes([&](const BreakpointsChangedEvent& event) {
        std::string text = isAnswered ? "late" : "";
        for (const auto& entry : event.breakpoints()) {
            text += std::to_string(entry.lineNumber.value_or(0)) + ";";
        }
        return "[" + text + "]";
    });
    EXPECT_EQ(set(LineBreakpoint(file, Location(10))), "");
    isAnswered = true;
    EXPECT_EQ(changes->text(), "[11;]");
    isAnswered = false;
    EXPECT_EQ(clear(LineBreakpoint(file, Location(11))), "");
    EXPECT_EQ(changes->text(), "[11;] []");
    EXPECT_EQ(set(LineBreakpoint(file, Location(1))), "");
    EXPECT_EQ(clear(LineBreakpoint(file, Location(1))), "");
    EXPECT_EQ(changes->text(), "[11;] [] [3;] []");
    EXPECT_EQ(clear(LineBreakpoint(file, Location(1))), "") << "clearing what is not there is no error";
    EXPECT_EQ(changes->text(), "[11;] [] [3;] []");
}

TEST_F(DebuggerTest, ABreakpointThatCannotStandIsRefusedWithTheReason) {
    const auto file = writeModule("refuses", "x = 1\nf = lambda: 1\n");
    const auto path = fl::i18n::to_string(file);
    const auto broken = writeModule("refuses_broken", "def f(:\n");
    EXPECT_EQ(set(LineBreakpoint(u"/no/such/file.py", Location(1))), "no such file: /no/such/file.py");
    EXPECT_EQ(set(LineBreakpoint(u"")), "a breakpoint without a file name");
    EXPECT_EQ(set(LineBreakpoint(file, Location(3))), "no code at or behind line 3 of " + path);
    EXPECT_EQ(set(LineBreakpoint(file, Location(~0ULL))),
              "no code at or behind line 18446744073709551615 of " + path);
    EXPECT_EQ(set(LineBreakpoint(file, Location(0))), "line 0: lines count from 1");
    EXPECT_EQ(set(LineBreakpoint(file, Location("g"))), "no function g in " + path);
    EXPECT_EQ(set(LineBreakpoint(file, Location(2, 2))),
              "no anonymous function 2 on line 2 of " + path + ", which has 1");
    EXPECT_EQ(set(LineBreakpoint(file, Location(~0ULL, ~0ULL))),
              "no anonymous function 18446744073709551615 on line 18446744073709551615 of " + path +
                  ", which has 0");
    EXPECT_EQ(set(LineBreakpoint(file, Location(1), u"x +")),
              "the condition 'x +' is no expression: invalid syntax");
    EXPECT_EQ(set(LineBreakpoint(file, Location(1), u"x = 2")),
              "the condition 'x = 2' is no expression: invalid syntax");
    EXPECT_THAT(set(LineBreakpoint(broken, Location(1))), testing::HasSubstr("cannot be compiled"));
    EXPECT_THAT(set(LineBreakpoint(u"<command 999999>", Location(1))), testing::HasSubstr("no such command"));
    EXPECT_THAT(set(GlobalBreakpoint(Condition::NanInf, "x")), testing::HasSubstr("message identifier"));
    EXPECT_TRUE(eval("import yvm; print(yvm.debug.breakpoints())") == "[]\n");
}

TEST_F(DebuggerTest, ABreakpointOnAFunctionStopsOnItsFirstLineEachTime) {
    const auto file =
        writeModule("stops_in_function",
                    "class Box:\n    def open(self):\n        x = 1\n        yield x\n        yield 2\n"
                    "def open(): return 5\n"
                    "def outer():\n    def inner():\n        return 1\n    return inner()\n");
    EXPECT_EQ(set(LineBreakpoint(file, Location("outer.<locals>.inner"))), "");
    EXPECT_EQ(set(LineBreakpoint(file, Location("Box.open"))), "");
    auto command =
        submitEval("import stops_in_function as m\nm.open()\nm.outer()\nprint(list(m.Box().open()))",
                   withoutControlOutput());
    stops->waitFor("breakpoint outer.<locals>.inner:9");
    act("resume");
    stops->waitFor("breakpoint Box.open:3");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "[1, 2]\n");
    EXPECT_EQ(stops->all().size(), 2U);
    // By its own name, if only one has it.
    EXPECT_EQ(set(LineBreakpoint(file, Location("inner"))), "");
    EXPECT_EQ(clear(LineBreakpoint(file, Location("inner"))), "");
    EXPECT_EQ(eval("len(yvm.debug.breakpoints())"), "1\n");
}

TEST_F(DebuggerTest, TheLambdasOfALineCountFromOneByColumn) {
    const auto file = writeModule(
        "lambdas", "fs = [lambda: 'a', lambda: 'b', (lambda: 'c')]\ndef run(): return [f() for f in fs]\n");
    eval("import lambdas, yvm");
    ASSERT_EQ(set(LineBreakpoint(file, Location(1, 2))), "");
    auto command = submitEval("lambdas.run()", withoutControlOutput());
    stops->waitFor("breakpoint <lambda>:1");
    EXPECT_EQ(evalStopped("import yvm; [frame['function'] for frame in yvm.debug.stack()][-3:]"),
              "['run', 'run.<locals>.<listcomp>', '<lambda>']\n");
    act("step_out");
    stops->waitFor("step run.<locals>.<listcomp>:2");
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 2U);
}

TEST_F(DebuggerTest, IndexZeroMeansTheLinesOwnCodeAndNoneMeansAllCodeOfTheLine) {
    const std::string source = "f = lambda: 1\nf()\nf();";
    const auto name = nameOf(source);
    ASSERT_EQ(set(LineBreakpoint(name, Location(1, 0))), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:1");
    EXPECT_EQ(set(LineBreakpoint(name, Location(1))), "");
    EXPECT_EQ(clear(LineBreakpoint(name, Location(1, 0))), "");
    act("resume");
    stops->waitFor("breakpoint <lambda>:1");
    act("resume");
    stops->waitFor("breakpoint <lambda>:1", 2);
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 3U);
}

TEST_F(DebuggerTest, AConditionIsEvaluatedInTheFrame) {
    const auto file = writeModule("conditions", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(6), u"i == 3 and total == 3")), "");
    auto command = submitEval("import conditions; conditions.first(5)", withoutControlOutput());
    stops->waitFor("breakpoint first:6");
    EXPECT_EQ(evalStopped("i, total"), "(3, 3)\n");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "10\n");
    EXPECT_EQ(stops->all().size(), 1U);
}

TEST_F(DebuggerTest, AConditionThatRaisesStopsAndSaysWhy) {
    const EventRecorder<DebuggerStoppedEvent> messages(
        [](const DebuggerStoppedEvent& event) { return fl::i18n::to_string(event.message()); });
    const std::string source = "y = 1\ny = 2";
    ASSERT_EQ(set(LineBreakpoint(nameOf(source), Location(2), u"1 / 0")), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    act("resume");
    command.get();
    EXPECT_EQ(messages->text(), "the condition 1 / 0 failed: ZeroDivisionError: division by zero");
}

TEST_F(DebuggerTest, AnInterruptEndsAConditionThatDoesNotEnd) {
    const std::string source = "def endless():\n    print('in', flush=True)\n    while True: pass\nz = 1";
    ASSERT_EQ(set(LineBreakpoint(nameOf(source), Location(4), u"endless()")), "");
    auto command = submitEval(source);
    command.transcript->waitFor("in\n");
    engine()->interrupt();
    EXPECT_EQ(command.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(stops->text(), "");
}

TEST_F(DebuggerTest, ABreakpointOnAFileStopsOnTheFirstLineOfEachEntry) {
    const auto file = writeModule("entered", "def g():\n    return 1\ndef h():\n    return g()\nh()\n");
    ASSERT_EQ(set(LineBreakpoint(file)), "");
    auto command = submitEval("import entered\nentered.h()\nentered.h();");
    stops->waitFor("breakpoint <module>:1");
    act("resume");
    stops->waitFor("breakpoint h:4");
    act("resume");
    stops->waitFor("breakpoint h:4", 2);
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 3U);
    EXPECT_EQ(clear(LineBreakpoint(file)), "");
    EXPECT_EQ(eval("len(yvm.debug.breakpoints())"), "0\n");
}

TEST_F(DebuggerTest, ABreakpointIsArmedInCodeThatRunsAlready) {
    const std::string source =
        "def work():\n    n = 0\n    while True:\n        n += 1\n        if n < 0: break\nprint('go', "
        "flush=True)\nwork()";
    const auto name = nameOf(source);
    auto command = submitEval(source, withoutControlOutput());
    command.transcript->waitFor("go\n");
    ASSERT_EQ(set(LineBreakpoint(name, Location(4))), "");
    stops->waitFor("breakpoint work:4");
    ASSERT_EQ(clearAll(), "");
    evalStopped("n = -10");
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, StepsGoAsThePromptSays) {
    const auto file = writeModule("steps", twoFunctions);
    eval("import steps");
    ASSERT_EQ(set(LineBreakpoint(file, Location(9))), "");
    auto command = submitEval("steps.second(1)\nprint('end')", withoutControlOutput());
    stops->waitFor("breakpoint second:9");
    act("step_in");
    stops->waitFor("step first:4");
    act("step");
    stops->waitFor("step first:5");
    act("step_out");
    stops->waitFor("step second:11");
    act("step");
    stops->waitFor("step second:12");
    act("step");
    stops->waitFor("step <module>:2");
    act("step");
    command.get();
    EXPECT_EQ(stops->all().size(), 6U);
    EXPECT_EQ(command.transcript->text(), "end\n");
    EXPECT_EQ(eval("1;"), "") << "the step has ended with its command";
    EXPECT_EQ(stops->all().size(), 6U);
}

TEST_F(DebuggerTest, AStepOverACallStopsInItAtABreakpointOnly) {
    const auto file = writeModule("steps_over", twoFunctions);
    eval("import steps_over");
    ASSERT_EQ(set(LineBreakpoint(file, Location(9))), "");
    auto command = submitEval("steps_over.second(2);");
    stops->waitFor("breakpoint second:9");
    act("step");
    stops->waitFor("step second:11");
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 2U);
}

TEST_F(DebuggerTest, AStepInAGeneratorPassesByItsYield) {
    const std::string source =
        "def gen():\n    a = 1\n    yield a\n    b = 2\n    yield b\nfor x in gen():\n    y = x;";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint gen:2");
    act("step");
    stops->waitFor("step gen:3");
    act("step");
    stops->waitFor("step gen:4");
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 3U);
}

TEST_F(DebuggerTest, LocalsAreReadAndWrittenInTheSelectedFrame) {
    const auto file = writeModule("frames", twoFunctions);
    eval("import frames, yvm");
    ASSERT_EQ(set(LineBreakpoint(file, Location(7))), "");
    auto command = submitEval("frames.second(3)", withoutControlOutput());
    stops->waitFor("breakpoint first:7");
    evalStopped("total = 100");
    EXPECT_EQ(evalStopped("import yvm; sorted(v['name'] + '=' + v['text'] for v in yvm.debug.locals())"),
              "['i=2', 'n=3', 'total=100']\n");
    EXPECT_EQ(evalStopped("import yvm; [(f['function'], f['selected']) for f in yvm.debug.up()]"),
              "[('<module>', False), ('second', True), ('first', False)]\n");
    EXPECT_EQ(evalStopped("n"), "3\n");
    EXPECT_EQ(evalStopped("import yvm; yvm.debug.up(100)\n'frames' in dir()"), "False\n")
        << "a command stays in the frame that was selected when it began";
    EXPECT_EQ(evalStopped("'frames' in dir()"), "True\n");
    evalStopped("import yvm; yvm.debug.down(100);");
    EXPECT_EQ(evalStopped("total"), "100\n");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "101\n");
}

TEST_F(DebuggerTest, CommandsOfEveryModeButTheTopPromptsRunAtTheDebugPrompt) {
    const std::string source = "def f():\n    inside = 'seen'\n    return 1\nf();";
    ASSERT_EQ(setInCommand(source, 3), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint f:3");
    auto later = submitEval("1;", inMode(DequeueMode::DEQUEUE_AT_NON_DEBUG_PROMPT));
    for (const auto mode : {DequeueMode::DEQUEUE_AT_DEBUG_PROMPT, DequeueMode::DEQUEUE_AT_PROMPT,
                            DequeueMode::DEQUEUE_AT_PAUSE, DequeueMode::DEQUEUE_AT_PPE}) {
        auto query = submitEval("inside", inMode(mode));
        query.get();
        EXPECT_EQ(query.transcript->text(), "'seen'\n") << static_cast<int>(mode);
    }
    EXPECT_FALSE(later.isDone());
    act("resume");
    command.get();
    later.get();
}

TEST_F(DebuggerTest, QuitEndsTheStoppedCommandAsAnInterrupt) {
    const std::string source = "x = 1\nprint('not reached')";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source, withoutControlOutput());
    stops->waitFor("breakpoint <module>:2");
    act("quit");
    EXPECT_EQ(command.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(command.transcript->text(), "");
}

TEST_F(DebuggerTest, AnInterruptQuitsTheStopWhenNothingRunsThere) {
    const std::string source = "x = 10\nprint('not reached')";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source, withoutControlOutput());
    stops->waitFor("breakpoint <module>:2");
    engine()->interrupt();
    EXPECT_EQ(command.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(command.transcript->text(), "");
}

TEST_F(DebuggerTest, AnInterruptStopsACommandOfTheDebugPromptAndLeavesTheStop) {
    const std::string source = "x = 20\nx = 21";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    auto busy = submitEval("print('in', flush=True)\nwhile True: pass", atDebugPrompt());
    busy.transcript->waitFor("in\n");
    engine()->interrupt();
    EXPECT_EQ(busy.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_FALSE(command.isDone());
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, ACancelOfTheStoppedCommandLeavesTheStop) {
    const std::string source = "x = 30\nx = 31";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    EXPECT_EQ(cancel(command.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(command.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(evalError("import yvm; yvm.debug.resume()").GetID(), "RuntimeError");
}

TEST_F(DebuggerTest, BreakingInStopsALoopAndASleep) {
    for (const char* body : {"while not done: pass", "import time\nwhile not done: time.sleep(0.05)"}) {
        eval("done = False");
        const std::size_t before = stops->all().size();
        auto command = submitEval(std::string("print('in', flush=True)\n") + body);
        command.transcript->waitFor("in\n");
        engine()->breakInDebugger();
        stops->waitForCount(before + 1);
        EXPECT_THAT(stops->all().back(), testing::StartsWith("break <module>:")) << body;
        evalStopped("done = True");
        act("resume");
        command.get();
    }
}

TEST_F(DebuggerTest, BreakingInStopsAPauseThatGoesOnAfterwards) {
    auto command = submitEval("import yvm; print('in', flush=True)\nyvm.pause(1000)");
    const auto waitForPause = [] { submitEval("1;", inMode(DequeueMode::DEQUEUE_AT_PAUSE)).get(); };
    command.transcript->waitFor("in\n");
    waitForPause();
    engine()->breakInDebugger();
    stops->waitFor("break <module>:2");
    act("resume");
    waitForPause();
    EXPECT_EQ(cancel(command.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(command.error().getExecutionStatus(), Status::Cancelled);
}

TEST_F(DebuggerTest, BreakingInWhileNothingRunsStopsNothingLater) {
    engine()->breakInDebugger();
    EXPECT_EQ(eval("for i in range(1000): pass\ni"), "999\n");
    EXPECT_EQ(stops->text(), "");
}

TEST_F(DebuggerTest, AStepAfterBreakingInGoesToTheNextLine) {
    eval("done = False");
    auto command = submitEval("print('in', flush=True)\nwhile not done:\n    pass\nlast = 1");
    command.transcript->waitFor("in\n");
    engine()->breakInDebugger();
    stops->waitForCount(1);
    evalStopped("done = True");
    act("step");
    stops->waitForCount(2);
    EXPECT_THAT(stops->all().back(), testing::StartsWith("step <module>:"));
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, ACommandOfTheDebugPromptStopsInItsTurn) {
    const EventRecorder<DebuggerStoppedEvent> levels(
        [](const DebuggerStoppedEvent& event) { return std::to_string(event.level()); });
    const EventRecorder<DebuggerResumedEvent> resumes(
        [](const DebuggerResumedEvent& event) { return std::to_string(event.level()); });
    const auto file = writeModule("nested", twoFunctions);
    eval("import nested");
    ASSERT_EQ(set(LineBreakpoint(file, Location(7))), "");
    auto outer = submitEval("nested.first(1)", withoutControlOutput());
    stops->waitFor("breakpoint first:7");
    auto inner = submitEval("import nested; nested.first(4)", atDebugPrompt());
    stops->waitFor("breakpoint first:7", 2);
    EXPECT_EQ(evalStopped("total"), "6\n");
    act("step_out");
    inner.get();
    EXPECT_EQ(evalStopped("total"), "0\n");
    act("resume");
    outer.get();
    EXPECT_EQ(outer.transcript->text(), "0\n");
    EXPECT_EQ(levels->text(), "1 2");
    EXPECT_EQ(resumes->text(), "2 1");
}

TEST_F(DebuggerTest, AnUncaughtErrorStopsWithItsFramesBeforeItIsAnswered) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error)), "");
    auto command = submitEval("def f(a):\n    b = a * 2\n    return b / 0\nf(21)");
    stops->waitFor("error f:3");
    EXPECT_FALSE(command.isDone());
    EXPECT_EQ(evalStopped("a, b"), "(21, 42)\n");
    evalStopped("import yvm; yvm.debug.up();");
    EXPECT_EQ(evalStopped("f.__name__"), "'f'\n");
    act("step");
    EXPECT_EQ(command.error().GetID(), "ZeroDivisionError");
    EXPECT_EQ(stops->all().size(), 1U);
    EXPECT_EQ(eval("try: 1/0\nexcept ZeroDivisionError: print('caught')"), "caught\n");
    EXPECT_EQ(stops->all().size(), 1U) << "a caught error is none";
}

TEST_F(DebuggerTest, AConditionIsNarrowedByTheTypeAndItsBases) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error, "ArithmeticError")), "");
    EXPECT_EQ(evalError("{}['x']").GetID(), "KeyError");
    auto command = submitEval("1/0");
    stops->waitFor("error <module>:1");
    act("resume");
    command.error();
    EXPECT_EQ(clear(GlobalBreakpoint(Condition::Error)), "") << "clears it with every identifier";
    EXPECT_EQ(evalError("1/0").GetID(), "ZeroDivisionError");
    EXPECT_EQ(stops->all().size(), 1U);
}

TEST_F(DebuggerTest, ACaughtErrorStopsWhereItIsRaised) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::CaughtError)), "");
    auto command = submitEval(
        "def f(v):\n    return 1 / v\n"
        "try:\n    f(0)\nexcept ZeroDivisionError:\n    print('caught')\n"
        "print(hasattr(1, 'nothing'), sum(x for x in range(3)))",
        withoutControlOutput());
    stops->waitFor("caught f:2");
    EXPECT_EQ(evalStopped("v"), "0\n");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "caught\nFalse 3\n");
    EXPECT_EQ(stops->all().size(), 1U);
    EXPECT_EQ(evalError("try:\n    1/0\nfinally:\n    pass").GetID(), "ZeroDivisionError");
    EXPECT_EQ(stops->all().size(), 1U) << "nobody catches it";
}

TEST_F(DebuggerTest, AWarningStopsEachTimeThatItIsGiven) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Warning, "UserWarning")), "");
    auto command = submitEval(
        "import warnings\ndef f(i):\n    warnings.warn('mind ' + str(i))\nfor i in range(2): f(7)\n"
        "warnings.warn('other', RuntimeWarning)");
    stops->waitFor("warning f:3");
    EXPECT_EQ(evalStopped("i"), "7\n");
    act("resume");
    stops->waitFor("warning f:3", 2);
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 2U);
    EXPECT_THAT(command.transcript->text(), testing::HasSubstr("mind 7"));
}

TEST_F(DebuggerTest, ANumpyOperationThatMakesANanStopsOnceAndThenWarnsAsEver) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    auto command = submitEval(
        "import numpy as np\ndef f(a):\n    return a / 0\nr = f(np.array([1.0, 0.0, -1.0]))\n"
        "with np.errstate(all='ignore'): f(np.array([1.0]))\nprint(r)");
    stops->waitFor("nan f:3");
    EXPECT_EQ(evalStopped("a.tolist()"), "[1.0, 0.0, -1.0]\n");
    act("resume");
    command.get();
    EXPECT_EQ(stops->all().size(), 1U);
    EXPECT_THAT(command.transcript->text(), testing::HasSubstr("RuntimeWarning: divide by zero encountered"));
    EXPECT_THAT(command.transcript->text(), testing::HasSubstr("[ inf  nan -inf]"));
    ASSERT_EQ(clear(GlobalBreakpoint(Condition::NanInf)), "");
    EXPECT_EQ(eval("import numpy; numpy.geterr()['divide']"), "'warn'\n");
}

TEST_F(DebuggerTest, AValueStopsBeforeItIsDisplayed) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::UnsuppressedOutput)), "");
    auto command = submitEval("shown = 5\n\nshown + 1", withoutControlOutput());
    stops->waitFor("output <module>:3");
    EXPECT_EQ(command.transcript->text(), "");
    EXPECT_EQ(evalStopped("print(shown)"), "5\n");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "6\n");
    eval("shown;");
    eval("None");
    EXPECT_EQ(stops->all().size(), 1U);
    auto quits = submitEval("shown", withoutControlOutput());
    stops->waitFor("output <module>:1");
    act("quit");
    EXPECT_EQ(quits.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(quits.transcript->text(), "");
}

TEST_F(DebuggerTest, TheBuiltinBreakpointStopsWhereItIsCalled) {
    auto command = submitEval("def f():\n    here = 1\n    breakpoint()\n    return here\nf();");
    stops->waitFor("break f:3");
    act("step");
    stops->waitFor("step f:4");
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, ACommandWithoutTheCapabilityRunsPastBreakpointsAndMayNotUseTheDebugger) {
    Submission restricted;
    restricted.runOptions.setCapabilities(capabilities::CapabilityList::fromStringVector({"input"}));
    const std::string source = "x = 1\nx = 2";
    ASSERT_EQ(setInCommand(source, 2), "");
    submitEval(source, restricted).get();
    EXPECT_EQ(stops->text(), "");
    for (const char* use :
         {"breakpoint()", "import yvm; yvm.debug.stack()", "import yvm; yvm.debug.resume()"}) {
        EXPECT_STREQ(submitEval(use, restricted).error().what(),
                     "this command may not use the debugger: its options lack the capability debugger")
            << use;
    }
}

TEST_F(DebuggerTest, AStopIsShownInTheOutputUnlessThatIsSuppressed) {
    const std::string source = "print('before')\nx = 2\nprint('after')";
    const auto name = fl::i18n::to_string(nameOf(source));
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    EXPECT_EQ(command.transcript->synchronisedText(), "before\n> " + name + "(2)<module>()\n-> x = 2\n");
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, ThePromptIsDebugWhileACommandIsStopped) {
    const std::string source = "x = 50\nx = 51";
    ASSERT_EQ(setInCommand(source, 2), "");
    const EventRecorder<ylutil::prompt::PromptEvent> prompts(
        [](const auto& event) { return std::string(toString(event.state())); });
    auto command = submitEval(source);
    prompts->waitFor("debug");
    act("resume");
    command.get();
    prompts->waitForText("busy debug busy idle");
}

TEST_F(DebuggerTest, AStopWithTheRecursionUsedUpLeavesRoomForThePrompt) {
    const auto file = writeModule("recursion",
                                  "def dive():\n"
                                  "    try:\n"
                                  "        return dive()\n"
                                  "    except RecursionError:\n"
                                  "        return 'surfaced'\n");
    eval("import recursion, yvm");
    ASSERT_EQ(set(LineBreakpoint(file, Location(5))), "");
    auto command = submitEval("recursion.dive()", withoutControlOutput());
    stops->waitFor("breakpoint dive:5");
    EXPECT_EQ(evalStopped("import json; json.dumps({'a': [1, 2]})"), "'{\"a\": [1, 2]}'\n");
    EXPECT_EQ(evalStopped("import yvm; len(yvm.debug.stack())"), "201\n");
    EXPECT_EQ(submitEval("(lambda f: f(f))(lambda f: f(f))", atDebugPrompt()).error().GetID(),
              "RecursionError");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "'surfaced'\n");
    EXPECT_EQ(eval("import sys; sys.getrecursionlimit()"), "1000\n");
}

TEST_F(DebuggerTest, RecursionWithoutLimitEndsAsAnErrorUnderBreakpointsToo) {
    const auto file = writeModule("endless", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(4))), "");
    eval("import sys\nsys.setrecursionlimit(10**8)\ndef endless(n): return endless(n + 1)");
    EXPECT_EQ(evalError("endless(0)").GetID(), "RecursionError");
    EXPECT_EQ(eval("sys.setrecursionlimit(1000)\n1 + 1"), "2\n");
}

TEST_F(DebuggerTest, AMemoryErrorAtTheDebugPromptIsThatCommandsError) {
    const std::string source = "x = 60\nx = 61";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    EXPECT_EQ(submitEval("b'x' * (1 << 62)", atDebugPrompt()).error().GetID(), "MemoryError");
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, AThousandBreakpointsAreSetAndMet) {
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += "x = " + std::to_string(i) + "\n";
    }
    const auto file = writeModule("thousand", lines);
    for (int i = 1; i <= 1000; ++i) {
        ASSERT_EQ(set(LineBreakpoint(file, Location(static_cast<unsigned long long>(i)),
                                     u"globals().get('x') == 998")),
                  "");
    }
    auto command = submitEval("x = 0\nimport thousand");
    stops->waitFor("breakpoint <module>:1000");
    act("resume");
    command.get();
    EXPECT_THAT(stops->all().back(), "breakpoint <module>:1000");
}

TEST_F(DebuggerTest, BreakpointsComeAndGoWhileCodeRuns) {
    const auto file = writeModule("racing", twoFunctions);
    eval("import racing\nleave = False");
    auto command = submitEval("while not leave: racing.second(20)", withoutControlOutput());
    for (int round = 0; round < 50; ++round) {
        const std::size_t before = stops->all().size();
        ASSERT_EQ(set(LineBreakpoint(file, Location(11))), "");
        stops->waitForCount(before + 1);
        ASSERT_EQ(clear(LineBreakpoint(file, Location(11))), "");
        act("resume");
    }
    submitEval("leave = True", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    command.get();
}

TEST_F(DebuggerTest, InterruptsHitCommandsAndNotTheChangesOfBreakpointsAboveThem) {
    const auto file = writeModule("interrupted_changes", twoFunctions);
    std::atomic<bool> isFlooding{true};
    std::thread flood([&isFlooding] {
        while (isFlooding) {
            engine()->interrupt();
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 50; ++i) {
        auto victim = submitEval("while True: pass");
        EXPECT_EQ(set(LineBreakpoint(file, Location(4),
                                     u"total > " + std::u16string(1, static_cast<char16_t>(u'0' + i % 10)))),
                  "");
        EXPECT_EQ(victim.error().getExecutionStatus(), Status::Cancelled);
    }
    isFlooding = false;
    flood.join();
    EXPECT_EQ(eval("import yvm; len(yvm.debug.breakpoints())"), "1\n");
}

TEST_F(DebuggerTest, AnInterruptThatCannotBeSwallowedComesPastBreakpoints) {
    const auto file = writeModule("insists", twoFunctions);
    eval("import insists");
    ASSERT_EQ(set(LineBreakpoint(file, Location(4))), "");
    auto stubborn = submitEval(
        "print('in', flush=True)\nwhile True:\n    try:\n        while True: pass\n    except: pass");
    stubborn.transcript->waitFor("in\n");
    const auto giveUp = std::chrono::steady_clock::now() + deadline;
    while (!stubborn.isDone() && std::chrono::steady_clock::now() < giveUp) {
        engine()->interrupt();
        std::this_thread::yield();
    }
    EXPECT_EQ(stubborn.error().getExecutionStatus(), Status::Cancelled);
    auto stops_ = submitEval("insists.first(1);");
    stops->waitFor("breakpoint first:4");
    act("resume");
    stops_.get();
}

TEST_F(DebuggerTest, ATraceFunctionOfTheUserIsBackWhenNoBreakpointIsLeft) {
    eval(
        "import sys\nseen = 0\ndef trace(frame, event, argument):\n    global seen\n    seen += "
        "1\nsys.settrace(trace)");
    const std::string source = "x = 70\nx = 71";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    act("resume");
    command.get();
    ASSERT_EQ(clearAll(), "");
    EXPECT_EQ(eval("before = seen\n(lambda: 1)()\nsys.gettrace() is trace and seen > before"), "True\n");
    eval("sys.settrace(None)");
}

TEST_F(DebuggerTest, AnErrorOutOfAStoppedLineKeepsTheBreakpoints) {
    const std::string source =
        "def f():\n    return 1 / 0\nfor i in range(3):\n    try: f()\n    except ZeroDivisionError: pass";
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    for (std::size_t i = 1; i <= 3; ++i) {
        stops->waitFor("breakpoint f:2", i);
        act("resume");
    }
    command.get();
}

TEST_F(DebuggerTest, ThreadsOfTheUserDoNotStop) {
    const std::string source =
        "import threading\ndef f():\n    x = 1\n    done.append(x)\ndone = []\nt = "
        "threading.Thread(target=f)\n"
        "t.start()\nt.join()\nprint(done)";
    ASSERT_EQ(setInCommand(source, 3), "");
    auto command = submitEval(source);
    command.get();
    EXPECT_EQ(command.transcript->text(), "[1]\n");
    EXPECT_EQ(stops->text(), "");
}

TEST_F(DebuggerTest, AllBreakpointsAreListedAsTheyStand) {
    const auto file = writeModule("listed", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(10), u"b > 1")), "");
    ASSERT_EQ(set(LineBreakpoint(file, Location("second"))), "");
    ASSERT_EQ(set(LineBreakpoint(file)), "");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error, "ValueError")), "");
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    EXPECT_EQ(eval("import os, yvm\n[tuple(sorted((k, v) for k, v in b.items() if k != 'file')) for b in "
                   "yvm.debug.breakpoints()]"),
              "[(('condition', 'b > 1'), ('line', 11)), (('function', 'second'),), (), (('message_id', "
              "'ValueError'), ('type', 'ERROR')), (('type', 'NAN_INF'),)]\n");
}

TEST_F(DebuggerTest, ABreakpointIsSetThroughALinkToItsFile) {
    const auto file = writeModule("real_file", twoFunctions);
    std::filesystem::remove("linked_file.py");
    std::filesystem::create_symlink("real_file.py", "linked_file.py");
    eval("import real_file");
    ASSERT_EQ(set(LineBreakpoint(u"linked_file.py", Location(4))), "");
    auto command = submitEval("real_file.first(1);");
    stops->waitFor("breakpoint first:4");
    act("resume");
    command.get();
    EXPECT_EQ(clear(LineBreakpoint(file, Location(4))), "");
    EXPECT_EQ(eval("len(yvm.debug.breakpoints())"), "0\n");
}

TEST_F(DebuggerTest, AStopUnderTheHighestLimitOfRecursionKeepsIt) {
    const std::string source = "import sys\nsys.setrecursionlimit(2**31 - 1)\nx = 3";
    ASSERT_EQ(setInCommand(source, 3), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:3");
    EXPECT_EQ(evalStopped("import sys; sys.getrecursionlimit()"), "2147483647\n");
    act("resume");
    command.get();
    EXPECT_EQ(eval("limit = sys.getrecursionlimit()\nsys.setrecursionlimit(1000)\nlimit"), "2147483647\n");
}

TEST_F(DebuggerTest, RecursionWithoutLimitEndsAsAnErrorWhereverItRuns) {
    const auto file = writeModule("endless_anywhere", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(4))), "");
    eval(
        "import sys, threading\nsys.setrecursionlimit(10**8)\n"
        "def endless(n): return endless(n + 1)\n"
        "def surface():\n    try: endless(0)\n    except RecursionError: ended.append(1)");
    for (const char* way : {"t = threading.Thread(target=surface)\nt.start()\nt.join()",
                            "sys.setprofile(lambda *_: None)\nsurface()\nsys.setprofile(None)",
                            "sys.settrace(lambda *_: None)\nsurface()\nsys.settrace(None)"}) {
        EXPECT_EQ(eval(std::string("ended = []\n") + way + "\nended"), "[1]\n") << way;
    }
    eval("sys.setrecursionlimit(1000)");
}

TEST_F(DebuggerTest, AConditionThatRecursesWithoutLimitStopsAndSaysWhy) {
    const EventRecorder<DebuggerStoppedEvent> messages(
        [](const DebuggerStoppedEvent& event) { return fl::i18n::to_string(event.message()); });
    eval("import sys\nsys.setrecursionlimit(10**8)\ndef endless(n): return endless(n + 1)");
    const std::string source = "y = 1\ny = 2";
    ASSERT_EQ(set(LineBreakpoint(nameOf(source), Location(2), u"endless(0)")), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    act("resume");
    command.get();
    EXPECT_THAT(messages->text(), testing::StartsWith("the condition endless(0) failed: RecursionError: "));
    eval("sys.setrecursionlimit(1000)");
}

TEST_F(DebuggerTest, AThreadWithASmallStackRunsUnderBreakpoints) {
    const auto file = writeModule("small_stack", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(4), u"False")), "");
    EXPECT_EQ(eval("import small_stack, threading\ndone = []\nthreading.stack_size(256 * 1024)\n"
                   "t = threading.Thread(target=lambda: done.append(small_stack.second(3)))\n"
                   "t.start()\nt.join()\nthreading.stack_size(0)\ndone"),
              "[4]\n");
}

TEST_F(DebuggerTest, ACommandThatIsLeavingItsStopDoesNotStopAgain) {
    const std::string source = "try:\n    x = 1\nfinally:\n    y = 2";
    const std::array<std::function<void(const Submitted&)>, 3> ways{
        [](const auto&) { act("quit"); }, [](const auto&) { engine()->interrupt(); },
        [](const auto& command) { cancel(command.id, true); }};
    for (std::size_t i = 0; i < ways.size(); ++i) {
        ASSERT_EQ(setInCommand(source, 2), "");
        ASSERT_EQ(setInCommand(source, 4), "");
        auto command = submitEval(source);
        stops->waitFor("breakpoint <module>:2", i + 1);
        ways[i](command);
        EXPECT_EQ(command.error().getExecutionStatus(), Status::Cancelled);
        EXPECT_EQ(stops->all().size(), i + 1);
    }
}

TEST_F(DebuggerTest, AStepThatIsChosenForACancelledCommandDoesNotBegin) {
    const std::string source = "try:\n    x = 1\nfinally:\n    y = 2";
    eval("go = False");
    ASSERT_EQ(setInCommand(source, 2), "");
    auto command = submitEval(source);
    stops->waitFor("breakpoint <module>:2");
    auto busy = submitEval("import yvm\nyvm.debug.step_in()\nprint('in', flush=True)\nwhile not go: pass",
                           atDebugPrompt());
    busy.transcript->waitFor("in\n");
    auto cancelled = distributor()->cancel(command.id, true);
    submitEval("go = True", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    busy.get();
    EXPECT_EQ(command.error().getExecutionStatus(), Status::Cancelled);
    EXPECT_EQ(cancelled.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
    EXPECT_EQ(stops->text(), "breakpoint <module>:2");
}

TEST_F(DebuggerTest, BreakingInStopsALoopThatIsBusyWithAConditionOfABreakpoint) {
    const std::string source = "print('in', flush=True)\nwhile not done:\n    n = 1";
    eval("done = False");
    ASSERT_EQ(set(LineBreakpoint(nameOf(source), Location(3), u"sum(range(10000)) < 0")), "");
    auto command = submitEval(source);
    command.transcript->waitFor("in\n");
    engine()->breakInDebugger();
    stops->waitForCount(1);
    EXPECT_THAT(stops->text(), testing::StartsWith("break <module>:"));
    evalStopped("done = True");
    act("resume");
    command.get();
}

const char* const slowModule =
    "import builtins\n"            // 1
    "print('in', flush=True)\n"    // 2
    "while not builtins.leave:\n"  // 3
    "    n = 1\n";                 // 4

TEST_F(DebuggerTest, BreakingInStopsAModuleThatIsBeingImported) {
    writeModule("imports_slowly", slowModule);
    eval("import builtins; builtins.leave = False");
    auto command = submitEval("import imports_slowly");
    command.transcript->waitFor("in\n");
    engine()->breakInDebugger();
    stops->waitForCount(1);
    EXPECT_THAT(stops->text(), testing::StartsWith("break <module>:"));
    evalStopped("builtins.leave = True");
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, ABreakpointIsSetInAModuleThatIsBeingImported) {
    const auto file = writeModule("imports_into_a_breakpoint", slowModule);
    eval("import builtins; builtins.leave = False");
    auto command = submitEval("import imports_into_a_breakpoint");
    command.transcript->waitFor("in\n");
    ASSERT_EQ(set(LineBreakpoint(file, Location(4))), "");
    stops->waitFor("breakpoint <module>:4");
    ASSERT_EQ(clearAll(), "");
    evalStopped("builtins.leave = True");
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, ACommandAtAStopInsideAnImportIsPreemptedAsAnywhere) {
    const auto file = writeModule("imports_and_stops", "here = 1\n");
    eval("busy = True");
    ASSERT_EQ(set(LineBreakpoint(file, Location(1))), "");
    auto command = submitEval("import imports_and_stops");
    stops->waitFor("breakpoint <module>:1");
    auto busy =
        submitEval("import __main__\nprint('in', flush=True)\nwhile __main__.busy: pass", atDebugPrompt());
    busy.transcript->waitFor("in\n");
    submitEval("busy = False", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    busy.get();
    act("resume");
    command.get();
}

TEST_F(DebuggerTest, ALoopIsNoLongerTracedAfterAStepThatHasEndedThere) {
    const auto file = writeModule("steps_out_of", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(4))), "");
    // What Python's loop looks at: the first byte of the innermost `_PyCFrame`, to which the state of the
    // thread points.
    auto command = submitEval(
        "import ctypes, steps_out_of\n"
        "ctypes.pythonapi.PyThreadState_Get.restype = ctypes.c_void_p\n"
        "cframe = ctypes.c_void_p.from_address(ctypes.pythonapi.PyThreadState_Get() + 56)\n"
        "steps_out_of.first(1)\n"
        "seen = [ctypes.c_uint8.from_address(cframe.value).value]\n"
        "for i in range(10): pass\n"
        "seen.append(ctypes.c_uint8.from_address(cframe.value).value)\n"
        "print(seen)",
        withoutControlOutput());
    stops->waitFor("breakpoint first:4");
    act("step_out");
    stops->waitFor("step <module>:5");
    act("step");
    stops->waitFor("step <module>:6");
    act("resume");
    command.get();
    EXPECT_EQ(command.transcript->text(), "[255, 0]\n");
}

TEST_F(DebuggerTest, ATracerOrProfilerThatAFunctionInstallsSeesItsCaller) {
    const auto file = writeModule("installs_tools", twoFunctions);
    ASSERT_EQ(set(LineBreakpoint(file, Location(4))), "");
    for (const char* tool : {"settrace", "setprofile"}) {
        EXPECT_EQ(eval(std::string("import sys\nseen = []\n") +
                       "def tool(frame, event, _): seen.append((frame.f_code.co_name, event))\n"
                       "def begin(): sys." +
                       tool + "(tool)\ndef work(): return 1\nbegin()\nwork()\nsys." + tool +
                       "(None)\n('work', 'call') in seen"),
                  "True\n")
            << tool;
    }
}

TEST_F(DebuggerTest, EachCallMeetsTheBreakpointOnItsFunctionWhateverPreemptsIt) {
    const auto file =
        writeModule("preempted_calls", "hits = []\ndef f():\n    return 1\ndef g():\n    return 2\n");
    eval("import preempted_calls as m; m.hits.clear()");
    ASSERT_EQ(set(LineBreakpoint(file, Location("f"), u"hits.append(1)")), "");
    ASSERT_EQ(set(LineBreakpoint(file, Location("g"), u"False")), "");
    // Has all code traced, that of the queries as well.
    ASSERT_EQ(set(GlobalBreakpoint(Condition::CaughtError, "NoSuchError")), "");
    auto command = submitEval("for _ in range(10_000): m.f()");
    while (!command.isDone()) {
        submitEval("m.g();", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    }
    command.get();
    EXPECT_EQ(eval("len(m.hits)"), "10000\n");
    EXPECT_EQ(stops->text(), "");
}

TEST_F(DebuggerTest, AProgramThatSwitchesTracingOffLeavesBreakpointsAndStepsWhereTheyAre) {
    const auto file = writeModule("goes_untraced",
                                  "import sys\n"                   // 1
                                  "def untraced():\n"              // 2
                                  "    before = sys.gettrace()\n"  // 3
                                  "    sys.settrace(None)\n"       // 4
                                  "    sys.settrace(before)\n"     // 5
                                  "def traced(): return 6\n"       // 6
                                  "def outer():\n"                 // 7
                                  "    untraced()\n"               // 8
                                  "    return traced()\n");        // 9
    eval("import goes_untraced as m");
    ASSERT_EQ(set(LineBreakpoint(file, Location(6))), "");
    for (const auto& [source, place] :
         {std::pair{"m.untraced()\nm.traced();", "breakpoint traced:6"},
          std::pair{"import sys\nsys.settrace(None)\nm.traced();", "breakpoint traced:6"}}) {
        const std::size_t before = stops->all().size();
        auto command = submitEval(source);
        stops->waitForCount(before + 1);
        EXPECT_EQ(stops->all().back(), place) << source;
        act("resume");
        command.get();
    }
    ASSERT_EQ(clearAll(), "");
    ASSERT_EQ(set(LineBreakpoint(file, Location(8))), "");
    auto command = submitEval("m.outer();");
    stops->waitFor("breakpoint outer:8");
    act("step");
    stops->waitFor("step outer:9");
    act("resume");
    command.get();
    EXPECT_EQ(eval("sys.gettrace()"), "");
}

}  // namespace
}  // namespace yvm::engine::test
