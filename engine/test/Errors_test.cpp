#include "engine/test/EngineFixture.hpp"

namespace yvm::engine::test {
namespace {

using Status = ylutil::cmddistributor::inExecutionStatus;

TEST_F(EngineTest, AnErrorCarriesTypeTextFunctionAndFrames) {
    eval("def divide(a, b):\n    return a / b  # here");
    const auto error = evalError("x = 1\ndivide(x, 0)");
    EXPECT_EQ(error.getExecutionStatus(), Status::CommandFailed);
    EXPECT_EQ(error.GetID(), "ZeroDivisionError");
    EXPECT_STREQ(error.what(), "division by zero");
    EXPECT_EQ(error.getFunctionName(), "divide");
    EXPECT_FALSE(error.getShutdown());
    const auto& frames = error.getStackFrames();
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].functionName, "<module>");
    EXPECT_EQ(frames[0].lineNumber, 2U);
    EXPECT_EQ(frames[0].sourceLine, "divide(x, 0)");
    EXPECT_EQ(frames[0].fileName.rfind("<command ", 0), 0U) << frames[0].fileName;
    EXPECT_EQ(frames[1].functionName, "divide");
    EXPECT_EQ(frames[1].lineNumber, 2U);
    EXPECT_EQ(frames[1].sourceLine, "return a / b  # here");
}

TEST_F(EngineTest, AFailedCommandPrintsNothing) {
    auto submitted = submitEval("1/0");
    submitted.error();
    EXPECT_EQ(submitted.transcript->text(), "");
}

TEST_F(EngineTest, TracebacksThatTheUserPrintsShowTheCommandsOwnLines) {
    const std::string text = eval(
        "import traceback\ntry:\n    raise KeyError('k')  # marked\nexcept KeyError:\n    "
        "traceback.print_exc()");
    EXPECT_NE(text.find("raise KeyError('k')  # marked"), std::string::npos) << text;
    EXPECT_EQ(text.rfind("[err]Traceback", 0), 0U) << text;
}

TEST_F(EngineTest, TypesOutsideTheBuiltinsAreQualified) {
    EXPECT_EQ(evalError("class Own(Exception): pass\nraise Own('o')").GetID(), "__main__.Own");
    EXPECT_EQ(evalError("import numpy; numpy.linalg.inv(numpy.zeros((2, 2)))").GetID(),
              "numpy.linalg.LinAlgError");
}

TEST_F(EngineTest, ASyntaxErrorCarriesItsLine) {
    const auto error = evalError("a = 1\nb = 2\nc = = 3");
    EXPECT_EQ(error.GetID(), "SyntaxError");
    ASSERT_EQ(error.getStackFrames().size(), 1U);
    EXPECT_EQ(error.getStackFrames()[0].lineNumber, 3U);
    EXPECT_EQ(error.getStackFrames()[0].sourceLine, "c = = 3");
    EXPECT_NE(std::string(error.what()).find("line 3"), std::string::npos) << error.what();
}

TEST_F(EngineTest, ChainedExceptionsAreCauses) {
    const auto error = evalError(
        "try:\n    try:\n        1/0\n    except ZeroDivisionError as e:\n        raise ValueError('v') from "
        "e\n"
        "except ValueError:\n    raise KeyError('k')");
    EXPECT_EQ(error.GetID(), "KeyError");
    ASSERT_EQ(error.getCauses().size(), 1U);
    const auto& cause = error.getCauses()[0];
    EXPECT_EQ(cause.GetID(), "ValueError");
    EXPECT_STREQ(cause.what(), "v");
    ASSERT_EQ(cause.getCauses().size(), 1U);
    EXPECT_EQ(cause.getCauses()[0].GetID(), "ZeroDivisionError");
    EXPECT_EQ(cause.getCauses()[0].getStackFrames().back().sourceLine, "1/0");
    EXPECT_TRUE(cause.getCauses()[0].getCauses().empty());
}

TEST_F(EngineTest, ASuppressedContextIsNoCause) {
    EXPECT_TRUE(evalError("try:\n    1/0\nexcept ZeroDivisionError:\n    raise ValueError('v') from None")
                    .getCauses()
                    .empty());
}

TEST_F(EngineTest, AChainThatBitesItsTailEnds) {
    const auto error =
        evalError("a = ValueError('a')\nb = KeyError('b')\na.__context__ = b\nb.__context__ = a\nraise a");
    EXPECT_EQ(error.GetID(), "ValueError");
    ASSERT_EQ(error.getCauses().size(), 1U);
    EXPECT_TRUE(error.getCauses()[0].getCauses().empty());
}

TEST_F(EngineTest, ExitEndsTheCommandAndNotTheEngine) {
    const auto error = evalError("import sys\nsys.exit(3)");
    EXPECT_EQ(error.GetID(), "SystemExit");
    EXPECT_STREQ(error.what(), "exit was asked for with code 3; the command ended, the engine goes on");
    EXPECT_FALSE(error.getShutdown());
    EXPECT_EQ(evalError("exit()").GetID(), "SystemExit");
    EXPECT_EQ(evalError("raise SystemExit").GetID(), "SystemExit");
    EXPECT_EQ(eval("1+1"), "2\n");
}

TEST_F(EngineTest, EndlessRecursionIsAnErrorOfBoundedSize) {
    const auto error = evalError("def endless(n): return endless(n + 1)\nendless(0)");
    EXPECT_EQ(error.GetID(), "RecursionError");
    EXPECT_LE(error.getStackFrames().size(), 201U);
    EXPECT_GT(error.getStackFrames().size(), 100U);
    EXPECT_EQ(error.getStackFrames().back().functionName, "endless");
    EXPECT_EQ(eval("1+1"), "2\n");
}

TEST_F(EngineTest, AnExpressionNestedBeyondMeasureIsAnError) {
    EXPECT_EQ(evalError(std::string(100'000, '(')).GetID(), "SyntaxError");
    std::string sum = "1";
    for (int i = 0; i < 100'000; ++i) {
        sum += "+1";
    }
    EXPECT_EQ(evalError(sum).GetID(), "RecursionError");
}

TEST_F(EngineTest, RunningOutOfMemoryIsAnError) {
    EXPECT_EQ(evalError("bytearray(1 << 62)").GetID(), "MemoryError");
    EXPECT_EQ(evalError("raise MemoryError").GetID(), "MemoryError");
}

TEST_F(EngineTest, AnExceptionThatCannotBeShownIsStillAnError) {
    const auto error =
        evalError("class Mute(Exception):\n    def __str__(self): raise ValueError('no')\nraise Mute");
    EXPECT_EQ(error.GetID(), "__main__.Mute");
    EXPECT_STREQ(error.what(), "<Mute, which cannot be shown as text>");
    const auto worse =
        evalError("class Worse(Exception):\n    def __str__(self): raise SystemExit\nraise Worse");
    EXPECT_EQ(worse.GetID(), "Worse");
    EXPECT_STREQ(worse.what(), "the error could not be described");
}

TEST_F(EngineTest, ASyntaxErrorWithAnImpossibleLineIsStillAnError) {
    for (const std::string line : {"-1", "2**70", "'two'"}) {
        const auto error = evalError("raise SyntaxError('x', ('f', " + line + ", 1, 't'))");
        EXPECT_EQ(error.GetID(), "SyntaxError") << line;
        ASSERT_FALSE(error.getStackFrames().empty()) << line;
        EXPECT_EQ(error.getStackFrames().back().fileName, "f") << line;
        EXPECT_EQ(error.getStackFrames().back().lineNumber, 0U) << line;
    }
}

TEST_F(EngineTest, ALineNumberThatLiesAboutItsSizeIsStillAnError) {
    const auto error = evalError(
        "class Liar(int):\n    def __gt__(self, other): return True\n    __le__ = __ge__ = __lt__ = __gt__\n"
        "raise SyntaxError('x', ('f', Liar(2**70), 1, 't'))");
    EXPECT_EQ(error.GetID(), "SyntaxError");
    EXPECT_STREQ(error.what(), "the error could not be described");
    EXPECT_EQ(eval("1+1"), "2\n");
}

TEST_F(EngineTest, ATypeWhoseNameIsNoTextIsAnError) {
    eval(
        "class Meta(type):\n    def __getattribute__(cls, name):\n"
        "        return 3 if name == '__qualname__' else type.__getattribute__(cls, name)\n"
        "class Nameless(metaclass=Meta): pass\ndef nameless(): return Nameless()");
    const auto error = submitFeval("nameless", {}).error();
    EXPECT_EQ(error.GetID(), "TypeError");
    EXPECT_STREQ(error.what(), "a value of type int stands where a str is needed");
}

TEST_F(EngineTest, NotesBelongToTheText) {
    EXPECT_STREQ(evalError("e = ValueError('v')\ne.add_note('and more')\nraise e").what(), "v\nand more");
}

TEST_F(EngineTest, LoneSurrogatesInAnErrorDoNotHurt) {
    const auto error = evalError("raise ValueError('a\\ud800b')");
    EXPECT_EQ(error.GetUnicodeMessageTxt(), (std::u16string{u'a', char16_t(0xD800), u'b'}));
    EXPECT_STREQ(error.what(),
                 "a\xEF\xBF\xBD"
                 "b");
}

TEST_F(EngineTest, AFailingFunctionHasItsOwnFramesAlone) {
    eval("def fails(): raise RuntimeError('r')");
    const auto error = submitFeval("fails", {}).error();
    ASSERT_EQ(error.getStackFrames().size(), 1U);
    EXPECT_EQ(error.getFunctionName(), "fails");
}

TEST_F(EngineTest, AnErrorInADisplayIsAnErrorOfTheCommand) {
    EXPECT_STREQ(evalError("class Shy:\n    def __repr__(self): raise ValueError('shy')\nShy()").what(),
                 "shy");
}

TEST_F(EngineTest, AnErrorInAPauseDoesNotCarryWhatItsHostWasHandling) {
    Submission atPause;
    atPause.runOptions = withMode(DequeueMode::DEQUEUE_AT_PAUSE);
    auto host = submitEval(
        "import yvm\ntry:\n    1/0\nexcept ZeroDivisionError:\n    print('in', flush=True)\n    "
        "yvm.pause(1000)");
    host.transcript->waitFor("in\n");
    const auto error = submitEval("raise KeyError('k')", atPause).error();
    EXPECT_TRUE(error.getCauses().empty());
    EXPECT_EQ(cancel(host.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
}

TEST_F(EngineTest, CommandsWithoutEndOfLineCharactersOfPythonKeepTheirLines) {
    // U+2028 ends a line for str.splitlines, and not for the parser.
    const auto error = evalError("s = 'a\u2028b'\n1/0");
    EXPECT_EQ(error.getStackFrames().back().lineNumber, 2U);
    EXPECT_EQ(error.getStackFrames().back().sourceLine, "1/0");
}

}  // namespace
}  // namespace yvm::engine::test
