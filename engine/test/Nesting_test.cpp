#include "cmddistributor/RequestIdAdapter.hpp"
#include "engine/detail/Command.hpp"
#include "engine/test/EngineFixture.hpp"
#include "engine/test/StuckCall.hpp"

#include <boost/make_shared.hpp>
#include <fcntl.h>
#include <unistd.h>

#include <sstream>
#include <streambuf>

namespace yvm::engine::test {
namespace {

const Submission atPreemption = EngineTest::inMode(DequeueMode::DEQUEUE_AT_PPE);

/// A command that tells when it runs, after `preparation`, and then does `body`.
Submitted startAndWait(const std::string& preparation, const std::string& body) {
    auto submitted = EngineTest::submitEval(preparation + "\nprint('started', flush=True)\n" + body);
    submitted.transcript->waitFor("started\n");
    return submitted;
}

std::string toText(const IDType& id) {
    std::ostringstream text;
    text << id;
    return text.str();
}

TEST_F(EngineTest, FailuresOfQueriesNeverReachTheCommandBeneath) {
    auto outer = startAndWait("leave = False", "while not leave: pass\nprint('left')");
    const std::vector<std::pair<std::string, std::string>> failures = {
        {"1/0", "ZeroDivisionError"},
        {"raise StopIteration", "StopIteration"},
        {"raise SystemExit(3)", "SystemExit"},
        {"raise GeneratorExit", "GeneratorExit"},
        {"raise KeyboardInterrupt", "KeyboardInterrupt"},
        {"import _yvm; raise _yvm.Interrupt", "yvm.Interrupt"},
        {"def deep(): deep()\ndeep()", "RecursionError"},
        {"1 +", "SyntaxError"}};
    for (const auto& [source, identifier] : failures) {
        EXPECT_EQ(submitEval(source, atPreemption).error().GetID(), identifier);
        EXPECT_EQ(submitFeval("no.such.function", {}, 1, atPreemption).error().GetID(), "NameError");
    }
    EXPECT_FALSE(outer.isDone());
    submitEval("leave = True", atPreemption).get();
    outer.get();
    EXPECT_EQ(outer.transcript->text(), "started\nleft\n");
}

TEST_F(EngineTest, AQueryInAHandlerOfAnErrorNeitherSeesNorChangesIt) {
    auto outer = startAndWait("leave = False",
                              "try: 1/0\n"
                              "except ZeroDivisionError as error:\n"
                              "    while not leave: pass\n"
                              "    import sys\n"
                              "    print(sys.exc_info()[1] is error, error.__context__)\n"
                              "    try: raise\n"
                              "    except ZeroDivisionError as again: print(again is error)");
    auto query = submitEval("import sys\nprint(sys.exc_info())", atPreemption);
    query.get();
    EXPECT_EQ(query.transcript->text(), "(None, None, None)\n");
    const auto error = submitEval("int('x')", atPreemption).error();
    EXPECT_EQ(error.GetID(), "ValueError");
    EXPECT_TRUE(error.getCauses().empty());
    submitEval("leave = True", atPreemption).get();
    outer.get();
    EXPECT_EQ(outer.transcript->text(), "started\nTrue None\nTrue\n");
}

TEST_F(EngineTest, AQueryRunsInsideADestructorAKeyFunctionAndAGenerator) {
    for (const char* preparation :
         {"class C:\n    def __del__(self):\n        while not leave: pass\n        print('left')\ndef f(): "
          "C()",
          "def key(x):\n    while not leave: pass\n    return x\ndef f(): sorted([2, 1], key=key); "
          "print('left')",
          "def g():\n    while not leave: yield\n    print('left')\ndef f():\n    for x in g(): pass",
          "def f():\n    try: 1/0\n    except ZeroDivisionError: pass\n    finally:\n        while not "
          "leave: pass\n"
          "        print('left')"}) {
        auto outer = startAndWait(std::string("leave = False\n") + preparation, "f()");
        submitEval("1/0", atPreemption).error();
        submitEval("leave = True", atPreemption).get();
        outer.get();
        EXPECT_EQ(outer.transcript->text(), "started\nleft\n") << preparation;
    }
}

TEST_F(EngineTest, TextOfNestedCommandsStaysApart) {
    auto outer = startAndWait("step = 0",
                              "while step == 0: pass\nprint('outer 1', flush=True)\n"
                              "while step == 1: pass\nprint('outer 2')");
    auto first =
        submitEval("print('first')\nimport sys; print('error', file=sys.stderr)\nstep = 1", atPreemption);
    first.get();
    outer.transcript->waitFor("outer 1\n");
    auto second = submitEval("print('second')\nstep = 2", atPreemption);
    second.get();
    outer.get();
    EXPECT_EQ(outer.transcript->text(), "started\nouter 1\nouter 2\n");
    EXPECT_EQ(first.transcript->text(), "first\n[err]error\n");
    EXPECT_EQ(second.transcript->text(), "second\n");
}

/// Notes, for each line, the identity of the request that the writing thread works for.
class IdentityBuffer final : public std::basic_streambuf<char16_t> {
  public:
    explicit IdentityBuffer(std::shared_ptr<Transcript> identities) : identities_(std::move(identities)) {}

  protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        if (std::u16string_view(text, static_cast<std::size_t>(count)) != u"\n") {
            identities_->append(toText(cmddistributor::RequestIdAdapter().getRequestId()) + " ", u"");
        }
        return count;
    }

  private:
    const std::shared_ptr<Transcript> identities_;
};

TEST_F(EngineTest, ARequestsIdentityComesBackWhenTheQueryAboveItHasEnded) {
    const auto identities = std::make_shared<Transcript>();
    const auto noting = [&identities](DequeueMode mode) {
        Submission submission = inMode(mode);
        submission.ownStreams = false;
        submission.runOptions.setOutStream(boost::make_shared<IdentityBuffer>(identities),
                                           RunOptions::getDefaultSinkTraits());
        return submission;
    };
    eval("step = 0");
    auto outer =
        submitEval("print('1')\nwhile step == 0: pass\nprint('1')", noting(DequeueMode::DEQUEUE_AT_PROMPT));
    identities->waitFor(toText(outer.id));
    auto query = submitEval("print('2')\nstep = 1", noting(DequeueMode::DEQUEUE_AT_PPE));
    query.get();
    outer.get();
    const std::string outerId = toText(outer.id) + " ";
    EXPECT_EQ(identities->text(), outerId + toText(query.id) + " " + outerId);
}

TEST_F(EngineTest, AQueryWaitsForTheEndOfAnImportAndNoLonger) {
    int gate[2];
    ASSERT_EQ(::pipe2(gate, O_CLOEXEC), 0);
    auto outer = submitEval(
        "done = False\nimport pathlib, sys, tempfile\n"
        "folder = tempfile.mkdtemp(); sys.path.insert(0, folder)\n"
        "pathlib.Path(folder, 'slow.py').write_text('''import __main__, os\n"
        "print('importing', flush=True)\n"
        "os.read(" +
        std::to_string(gate[0]) +
        ", 1)\n"
        "__main__.done_in_import = __main__.done''')\n"
        "try: import slow\nfinally: sys.path.remove(folder); sys.modules.pop('slow', None)\n"
        "while not done: pass\nprint('imported', done_in_import)");
    outer.transcript->waitFor("importing\n");
    // Nothing else comes that would bring the engine to look for it, and the next prompt is far away.
    auto query = submitEval("done = True", atPreemption);
    ASSERT_EQ(::write(gate[1], "x", 1), 1);
    query.get();
    outer.get();
    EXPECT_EQ(outer.transcript->text(), "importing\nimported False\n");
    ::close(gate[0]);
    ::close(gate[1]);
}

TEST_F(EngineTest, AQueryThatComesJustBeforeAWaitIsNotLost) {
    StuckCall call;
    // No bytecode lies between the two calls.
    auto waiting = submitEval(call.pythonThen("partial(os.read, os.pipe()[0], 1)"));
    call.waitUntilStuck();
    auto query = submitEval("print('here')", atPreemption);
    call.release();
    query.get();
    EXPECT_FALSE(waiting.isDone());
    EXPECT_EQ(cancel(waiting.id, true), CmdDistributor::CANCEL_WHILE_RUNNING);
}

TEST_F(EngineTest, AWaitTakesItsFullTimeWhateverRunsInIt) {
    auto sleeping = startAndWait(
        "import time", "begin = time.monotonic()\ntime.sleep(0.05)\nprint(time.monotonic() - begin >= 0.05)");
    while (!sleeping.isDone()) {
        submitEval("1;", atPreemption).get();
    }
    EXPECT_EQ(sleeping.transcript->text(), "started\nTrue\n");
}

TEST_F(EngineTest, ACommandForTheDebuggerWaitsAtThePromptAndIsNoBarrier) {
    auto debugging = submitEval("print('must not run')", inMode(DequeueMode::DEQUEUE_AT_DEBUG_PROMPT));
    EXPECT_EQ(eval("1+1"), "2\n");
    auto idle = submitEval("print('idle')", inMode(DequeueMode::DEQUEUE_AT_IDLE));
    idle.get();
    EXPECT_FALSE(debugging.isDone());
    EXPECT_EQ(cancel(debugging.id, true), CmdDistributor::CANCEL_BEFORE_RUNNING);
    EXPECT_EQ(debugging.transcript->text(), "");
}

TEST_F(EngineTest, OnlyQueriesAndCommandsForPausesRunInAPause) {
    auto pausing = startAndWait("import yvm", "yvm.pause(1000)");
    std::vector<Submitted> later;
    for (const auto mode : {DequeueMode::DEQUEUE_AT_PROMPT, DequeueMode::DEQUEUE_AT_NON_DEBUG_PROMPT,
                            DequeueMode::DEQUEUE_AT_IDLE, DequeueMode::DEQUEUE_AT_BOOTSTRAP}) {
        later.push_back(submitEval("1;", inMode(mode)));
    }
    submitEval("1;", inMode(DequeueMode::DEQUEUE_AT_PAUSE)).get();
    submitEval("1;", atPreemption).get();
    for (const auto& command : later) {
        EXPECT_FALSE(command.isDone());
    }
    cancel(pausing.id, true);
    for (auto& command : later) {
        command.get();
    }
}

TEST_F(EngineTest, ACommandForAPauseDoesNotRunInABusyLoop) {
    auto loop = startAndWait("leave = False", "while not leave: pass");
    auto forPause =
        submitEval("print('too early' if not leave else 'in time')", inMode(DequeueMode::DEQUEUE_AT_PAUSE));
    for (int i = 0; i < 10; ++i) {
        submitEval("1;", atPreemption).get();
    }
    EXPECT_FALSE(forPause.isDone());
    submitEval("leave = True", atPreemption).get();
    loop.get();
    forPause.get();
    EXPECT_EQ(forPause.transcript->text(), "in time\n");
}

TEST_F(EngineTest, TheThirdInterruptWithinTheWindowInsists) {
    const auto sink = std::make_shared<TextSink>(nullptr, TextSink::Destination::Console);
    const auto takeAt = [](Command& command, Command::Clock::time_point when) {
        command.requestInterrupt();
        command.takeInterrupt(when);
        return command.mustNotSwallow();
    };
    const auto make = [&sink] {
        return Command(
            {IDType(),
             std::make_shared<cmddistributor::EvalCmdRequest>(false, -2, nullptr, nullptr, u"", "test"),
             {}},
            cmddistributor::Moment::TopPrompt, OutputStreams(sink, sink));
    };
    const auto begin = Command::Clock::now();
    const auto window = Command::insistenceWindow;
    auto impatient = make();
    EXPECT_FALSE(takeAt(impatient, begin));
    EXPECT_FALSE(takeAt(impatient, begin + window / 2));
    EXPECT_TRUE(takeAt(impatient, begin + window));

    auto patient = make();
    const auto pace = window / 2 + std::chrono::milliseconds(1);
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(takeAt(patient, begin + i * pace)) << i;
    }
}

}  // namespace
}  // namespace yvm::engine::test
