#include "engine/test/EngineFixture.hpp"
#include "yvm/Factory.hpp"

#include <dlfcn.h>

#include <algorithm>
#include <sstream>
#include <thread>

namespace yvm::engine::test {
namespace {

TEST_F(EngineTest, IsTheEngineOfTheProcess) {
    EXPECT_EQ(Factory::getCurrentLocalYVM(), engine());
    EXPECT_NE(engine()->getEventMgr(), nullptr);
    EXPECT_EQ(engine()->getIdentifier(), engine()->getIdentifier());
}

TEST_F(EngineTest, ASecondStartInAProcessIsRefused) {
    engine();
    EXPECT_THROW(Engine::start({}), std::logic_error);
}

TEST_F(EngineTest, TheValueOfALastBareExpressionIsDisplayed) {
    EXPECT_EQ(eval("1+1"), "2\n");
    EXPECT_EQ(eval("x = 20\nx * 2 + 2"), "42\n");
    EXPECT_EQ(eval("'text'"), "'text'\n");
    EXPECT_EQ(eval("[1, 2]; (3,\n 4)"), "(3, 4)\n");
}

TEST_F(EngineTest, WhatIsNoLastBareExpressionIsNotDisplayed) {
    EXPECT_EQ(eval("1+1\ny = 3"), "");
    EXPECT_EQ(eval("5\nfor i in range(2):\n    i"), "");
    EXPECT_EQ(eval("None"), "");
    EXPECT_EQ(eval("print('p')"), "p\n");
}

TEST_F(EngineTest, ASemicolonAtTheEndSuppressesTheDisplay) {
    EXPECT_EQ(eval("1+1;"), "");
    EXPECT_EQ(eval("1+1 ;  # why\n\n  # more\n"), "");
    EXPECT_EQ(eval("(1)\\\n ;"), "");
    EXPECT_EQ(eval("'\u00e4\u20ac\U0001F600';"), "");
    EXPECT_EQ(eval("print('p');"), "p\n");
}

TEST_F(EngineTest, ASemicolonElsewhereDoesNotSuppressTheDisplay) {
    EXPECT_EQ(eval("1; 2"), "2\n");
    EXPECT_EQ(eval("';'"), "';'\n");
    EXPECT_EQ(eval("2  # not;\n# ;"), "2\n");
    EXPECT_EQ(eval("'''a;\n;'''"), "'a;\\n;'\n");
}

TEST_F(EngineTest, AnEmptyCommandSucceedsSilently) {
    EXPECT_EQ(eval(""), "");
    EXPECT_EQ(eval("  \n# only a comment"), "");
}

TEST_F(EngineTest, TheLastValueDisplayedIsTheUnderscore) {
    EXPECT_EQ(eval("6*7"), "42\n");
    EXPECT_EQ(eval("_ + 1"), "43\n");
}

TEST_F(EngineTest, ArraysAreDisplayedInTheWidthOfTheWindow) {
    Submission narrow;
    narrow.runOptions.setCommandWindowColSize(20);
    auto submitted = submitEval("import numpy as np; np.arange(10)", narrow);
    submitted.get();
    EXPECT_EQ(submitted.transcript->text(), "array([0, 1, 2, 3,\n       4, 5, 6, 7,\n       8, 9])\n");
    EXPECT_EQ(eval("np.arange(10)"), "array([0, 1, 2, 3, 4, 5, 6, 7, 8, 9])\n");
}

TEST_F(EngineTest, AWidthThatTheUserChoseIsKept) {
    EXPECT_EQ(eval("import numpy as np\nnp.set_printoptions(linewidth=30)\nnp.arange(10)"),
              "array([0, 1, 2, 3, 4, 5, 6,\n       7, 8, 9])\n");
    eval("np.set_printoptions(linewidth=75)");
}

TEST_F(EngineTest, AllCommandsShareOneWorkspace) {
    eval("def shared():\n    return __name__");
    EXPECT_EQ(eval("shared()"), "'__main__'\n");
}

TEST_F(EngineTest, AFutureImportHoldsForTheLastExpression) {
    EXPECT_EQ(eval("from __future__ import annotations\n"
                   "def annotated(x: nowhere): pass\nannotated.__annotations__"),
              "{'x': 'nowhere'}\n");
}

TEST_F(EngineTest, ACommandWithASyntaxErrorHasNoEffect) {
    EXPECT_EQ(evalError("never_set = 1\nif").GetID(), "SyntaxError");
    // This one is found by the compiler, not by the parser.
    EXPECT_EQ(evalError("never_set = 1\nreturn 2").GetID(), "SyntaxError");
    EXPECT_EQ(evalError("never_set").GetID(), "NameError");
}

TEST_F(EngineTest, CommandsOfPeopleEnterTheHistory) {
    Submission typed;
    typed.isUserEval = true;
    submitEval("1 + 2;  # typed", typed).get();
    submitEval("1 + 3;  # by a program").get();
    const Array history = feval("yvm.history");
    EXPECT_EQ(utf8(history.list().back()), "1 + 2;  # typed");
    const Array last = feval("yvm.history", {scalar<std::int64_t>(1)});
    EXPECT_EQ(last.size(), 1U);
}

TEST_F(EngineTest, AFunctionIsLookedUpInTheWorkspaceThenBuiltinsThenImports) {
    EXPECT_EQ(*feval("len", {text("abc")}).data<std::int64_t>(), 3);
    eval("def len(x): return -1");
    EXPECT_EQ(*feval("len", {text("abc")}).data<std::int64_t>(), -1);
    eval("del len");
    EXPECT_EQ(*feval("math.hypot", {scalar(3.0), scalar(4.0)}).data<double>(), 5.0);
    eval("class Holder:\n    @staticmethod\n    def method(): return 'held'");
    EXPECT_EQ(utf8(feval("Holder.method")), "held");
    EXPECT_EQ(utf8(feval("os.path.basename", {text("/a/b")})), "b");
}

TEST_F(EngineTest, AFunctionThatIsNowhereIsAClearError) {
    const auto missing = submitFeval("nowhere.at_all", {}).error();
    EXPECT_EQ(missing.GetID(), "NameError");
    EXPECT_STREQ(
        missing.what(),
        "no function 'nowhere.at_all': it is not in the workspace, not a builtin, and cannot be imported");
    EXPECT_TRUE(missing.getStackFrames().empty()) << missing.getStackFrames().back().fileName;
    EXPECT_STREQ(submitFeval("1+1", {}).error().what(),
                 "'1+1' is no function name: names joined with dots are accepted");
    EXPECT_STREQ(submitFeval("math.pi", {}).error().what(), "'math.pi' is a float, which cannot be called");
}

TEST_F(EngineTest, AnErrorOfAModuleWhileItIsImportedIsShown) {
    eval(
        "import sys, types, importlib.abc, importlib.util\n"
        "class Broken(importlib.abc.MetaPathFinder, importlib.abc.Loader):\n"
        "    def find_spec(self, name, path=None, target=None):\n"
        "        if name == 'broken_module': return importlib.util.spec_from_loader(name, self)\n"
        "    def exec_module(self, module): import needed_by_broken\n"
        "sys.meta_path.append(Broken());");
    const auto error = submitFeval("broken_module.f", {}).error();
    EXPECT_EQ(error.GetID(), "ModuleNotFoundError");
    EXPECT_STREQ(error.what(), "No module named 'needed_by_broken'");
    eval("sys.meta_path.pop();");
}

TEST_F(EngineTest, NoOutputsDiscardsTheValue) {
    EXPECT_EQ(submitFeval("object", {}, 0).get().size(), 0U);
}

TEST_F(EngineTest, SeveralOutputsTakeTheFirstOfATupleOrList) {
    eval("def three(): return 1, 'b', None\ndef listed(): return [1, 2]");
    const Arrays all = submitFeval("three", {}, 3).get();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(utf8(all[1]), "b");
    EXPECT_EQ(submitFeval("three", {}, 2).get().size(), 2U);
    EXPECT_EQ(submitFeval("listed", {}, 2).get().size(), 2U);
    const Array one = feval("three");
    EXPECT_EQ(one.list().size(), 3U);
}

TEST_F(EngineTest, TooFewOutputsAreAClearError) {
    eval("def two(): return 1, 2\ndef text_of_four(): return 'four'");
    const auto few = submitFeval("two", {}, 3).error();
    EXPECT_EQ(few.GetID(), "ValueError");
    EXPECT_STREQ(few.what(), "3 outputs were asked for, and the function returned 2");
    const auto noSequence = submitFeval("text_of_four", {}, 4).error();
    EXPECT_EQ(noSequence.GetID(), "TypeError");
    EXPECT_STREQ(noSequence.what(),
                 "4 outputs were asked for, and the function returned a value of type str: "
                 "a tuple or list of at least as many is accepted");
}

TEST_F(EngineTest, AnAbsurdNumberOfOutputsFailsCleanly) {
    eval("def two(): return 1, 2");
    EXPECT_STREQ(submitFeval("two", {}, ~std::uint64_t{0}).error().what(),
                 "18446744073709551615 outputs were asked for, and the function returned 2");
}

TEST_F(EngineTest, CompletionsRunWithoutTheGilOnTheEnginesThread) {
    const auto gilStateCheck = reinterpret_cast<int (*)()>(dlsym(RTLD_DEFAULT, "PyGILState_Check"));
    ASSERT_NE(gilStateCheck, nullptr);
    int hasGil = -1;
    std::thread::id thread;
    Submission submission;
    submission.inCompletion = [&] {
        hasGil = gilStateCheck();
        thread = std::this_thread::get_id();
    };
    submitEval("1;", submission).get();
    EXPECT_EQ(hasGil, 0);
    Submission second;
    std::thread::id secondThread;
    second.inCompletion = [&] { secondThread = std::this_thread::get_id(); };
    submitFeval("list", {}, 1, second).get();
    EXPECT_EQ(thread, secondThread);
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(EngineTest, ACompletionMaySubmitAndCancel) {
    Submission submission;
    Submitted inner;
    submission.inCompletion = [&] { inner = submitEval("print('from a completion')"); };
    submitEval("1;", submission).get();
    inner.get();
    EXPECT_EQ(inner.transcript->text(), "from a completion\n");
}

TEST_F(EngineTest, TheWorkspaceIsListedAndReset) {
    eval("import math\nwho_a = [1]\nimport numpy\nwho_b = numpy.zeros((2, 3))\n_hidden = 1");
    const Array who = feval("yvm.who");
    std::string names;
    for (const Array& entry : who.list()) {
        names += utf8(entry.record().front().second) + " ";
        EXPECT_EQ(entry.record().front().first, "name");
    }
    EXPECT_NE(names.find("who_a who_b "), std::string::npos) << names;
    EXPECT_EQ(names.find("math"), std::string::npos);
    EXPECT_EQ(names.find("_hidden"), std::string::npos);
    EXPECT_GT(*feval("yvm.reset").data<std::int64_t>(), 3);
    EXPECT_EQ(feval("yvm.who").size(), 0U);
    EXPECT_EQ(evalError("_hidden").GetID(), "NameError");
    EXPECT_EQ(eval("1+1"), "2\n");
}

TEST_F(EngineTest, StateAndQueueTellWhatRunsAndWaits) {
    const Array idle = feval("yvm.state");
    ASSERT_EQ(idle.record().size(), 4U);
    EXPECT_EQ(idle.record()[0].first, "running");
    EXPECT_EQ(idle.record()[0].second.size(), 1U) << "the query itself";

    auto busy = occupy();
    auto waiting = submitEval("1;");
    Submission now;
    now.runOptions = withMode(DequeueMode::DEQUEUE_AT_PPE);
    auto state = submitFeval("yvm.state", {}, 1, now);
    auto queue = submitFeval("yvm.queue", {}, 1, now);
    EXPECT_EQ(state.get()[0].record()[0].second.size(), 2U);
    std::ostringstream id;
    id << waiting.id;
    const Array ids = queue.get().at(0);
    EXPECT_NE(std::find_if(ids.list().begin(), ids.list().end(),
                           [&](const Array& entry) { return utf8(entry) == id.str(); }),
              ids.list().end());
    release();
    busy.get();
    waiting.get();
}

TEST_F(EngineTest, NamesAreInspectedAndCompletedWithoutRunningCodeOfTheUser) {
    eval(
        "class Careful:\n    'Handle with care.'\n    @property\n    def trap(self): raise SystemExit\n"
        "    def method(self, a, b=2): 'Does it.'\n"
        "careful_one = Careful()");
    const Array inspected = feval("yvm.inspect", {text("careful_one.method")});
    const auto& record = inspected.record();
    ASSERT_EQ(record.size(), 5U);
    EXPECT_EQ(record[3].first, "signature");
    EXPECT_EQ(utf8(record[3].second), "(self, a, b=2)");
    EXPECT_EQ(utf8(record[4].second), "Does it.");
    EXPECT_EQ(feval("yvm.inspect", {text("nothing_here")}).record().size(), 1U);

    const Array completed = feval("yvm.complete", {text("x = careful_one.tr")});
    ASSERT_EQ(completed.record()[0].second.size(), 1U);
    EXPECT_EQ(utf8(completed.record()[0].second.list()[0]), "trap");
    EXPECT_EQ(*completed.record()[1].second.data<std::int64_t>(), 16);
    EXPECT_EQ(*completed.record()[2].second.data<std::int64_t>(), 18);
    EXPECT_EQ(utf8(feval("yvm.complete", {text("caref")}).record()[0].second.list()[0]), "careful_one");
}

TEST_F(EngineTest, ANumpyLibraryFunctionIsCalledByItsDottedName) {
    const foundation::yorlabdata::Array matrix = feval("numpy.eye", {scalar<std::int64_t>(2)});
    const Arrays parts = submitFeval("numpy.linalg.svd", {matrix}, 3).get();
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_EQ(parts[1].shape(), foundation::yorlabdata::Shape{2});
    EXPECT_EQ(parts[1].data<double>()[0], 1.0);
}

}  // namespace
}  // namespace yvm::engine::test
