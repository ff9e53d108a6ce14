#include "engine/test/EngineFixture.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "ylutil/io/YLSink.hpp"

#include <boost/make_shared.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

namespace yvm::engine::test {
namespace {

using ylutil::io::SinkTraits;
using ylutil::io::YLSink;

/// Keeps the text as UTF-8.
class TextBuffer final : public std::basic_streambuf<char16_t> {
  public:
    std::string text() const { return fl::i18n::to_string(text_); }

  protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        text_.append(text, static_cast<std::size_t>(count));
        return count;
    }

  private:
    std::u16string text_;  // the engine writes under its lock; read when the command has ended
};

/// A command with streams of its own, which have these traits.
class WithTraits {
  public:
    explicit WithTraits(const SinkTraits& out, const SinkTraits& err = {}) {
        submission_.ownStreams = false;
        submission_.runOptions.setOutStream(out_, out);
        submission_.runOptions.setErrStream(err_, err);
    }

    RunOptions& runOptions() { return submission_.runOptions; }
    WithTraits& run(const std::string& source) {
        Submitted submitted = EngineTest::submitEval(source, submission_);
        submitted.outcome.wait();
        return *this;
    }
    std::string out() const { return out_->text(); }
    std::string err() const { return err_->text(); }

  private:
    boost::shared_ptr<TextBuffer> out_ = boost::make_shared<TextBuffer>();
    boost::shared_ptr<TextBuffer> err_ = boost::make_shared<TextBuffer>();
    Submission submission_;
};

SinkTraits paging() {
    return {true, false, true, false, false, false};
}
SinkTraits linking() {
    return {false, true, true, false, false, false};
}
SinkTraits unformatted() {
    return {false, false, false, false, false, false};
}
SinkTraits copying(bool diary, bool log) {
    return {false, false, true, diary, false, log};
}
SinkTraits echoing() {
    return {false, false, true, false, true, false};
}

std::string contentOf(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

Submission withWindow(std::uint64_t rows, std::uint64_t columns) {
    Submission submission;
    submission.runOptions.setCommandWindowRowSize(rows);
    submission.runOptions.setCommandWindowColSize(columns);
    return submission;
}

TEST_F(EngineTest, ArraysTakeTheWidthOfTheWindowHoweverTheyAreShown) {
    const std::string wrapped = "[ 0  1  2  3  4  5\n  6  7  8  9 10 11]\n";
    auto printed = submitEval("import numpy\nprint(numpy.arange(12))", withWindow(24, 20));
    printed.get();
    EXPECT_EQ(printed.transcript->text(), wrapped);
    auto displayed = submitEval("numpy.arange(6)", withWindow(24, 20));
    displayed.get();
    EXPECT_EQ(displayed.transcript->text(), "array([0, 1, 2, 3,\n       4, 5])\n");
    auto byThread = submitEval(
        "import threading\nt = threading.Thread(target=lambda: print(numpy.arange(12))); t.start(); t.join()",
        withWindow(24, 20));
    byThread.get();
    EXPECT_EQ(byThread.transcript->text(), wrapped);
    EXPECT_EQ(eval("print(numpy.arange(12))"), "[ 0  1  2  3  4  5  6  7  8  9 10 11]\n");
}

TEST_F(EngineTest, AQueryAboveACommandHasAWindowOfItsOwn) {
    auto host = submitEval(
        "import numpy, shutil\nleave = False\nprint('on', flush=True)\nwhile not leave: pass\n"
        "print(numpy.arange(12), shutil.get_terminal_size())",
        withWindow(24, 80));
    host.transcript->waitFor("on\n");
    Submission narrow = withWindow(7, 20);
    narrow.runOptions.setDequeueMode(DequeueMode::DEQUEUE_AT_PPE);
    auto query =
        submitEval("print(numpy.arange(12), *shutil.get_terminal_size())\nleave = True", std::move(narrow));
    query.get();
    EXPECT_EQ(query.transcript->text(), "[ 0  1  2  3  4  5\n  6  7  8  9 10 11] 20 7\n");
    host.get();
    EXPECT_EQ(host.transcript->text(),
              "on\n[ 0  1  2  3  4  5  6  7  8  9 10 11] os.terminal_size(columns=80, lines=24)\n");
}

TEST_F(EngineTest, SizesThatNoWindowHasStandForTheDefault) {
    for (const std::uint64_t size : {std::uint64_t{0}, ~std::uint64_t{0}}) {
        auto submitted =
            submitEval("import shutil\nprint(*shutil.get_terminal_size())", withWindow(size, size));
        submitted.get();
        EXPECT_EQ(submitted.transcript->text(), "80 24\n");
    }
}

TEST_F(EngineTest, AnUnformattedArrayIsNotWrapped) {
    EXPECT_EQ(WithTraits(unformatted()).run("import numpy\nnumpy.arange(60)").out().find('\n'),
              WithTraits(unformatted()).run("numpy.arange(60)").out().size() - 1);
    EXPECT_NE(WithTraits(SinkTraits()).run("numpy.arange(60)").out().find("\n "), std::string::npos);
}

TEST_F(EngineTest, ALongValueComesInPagesToADestinationThatSupportsThem) {
    WithTraits command(paging());
    command.runOptions().setCommandWindowRowSize(3);
    command.run("import numpy, yvm\nnumpy.arange(5).reshape(5, 1)");
    EXPECT_EQ(command.out(),
              "array([[0],\n       [1],\n-- lines left: 3; yvm.more() shows the next page --\n");
    WithTraits more(paging());
    more.runOptions().setCommandWindowRowSize(4);
    EXPECT_EQ(more.run("yvm.more()").out(), "       [2],\n       [3],\n       [4]])\n");
    EXPECT_EQ(eval("yvm.more()"), "");
    EXPECT_EQ(eval("numpy.arange(30).reshape(30, 1)").find("--"), std::string::npos);
}

TEST_F(EngineTest, TheCommandIsEchoedToTheStreamsThatAskForIt) {
    WithTraits out(echoing());
    out.run("if True:\n    print('\U0001F600')\n\n");
    EXPECT_EQ(out.out(), ">>> if True:\n...     print('\U0001F600')\n\U0001F600\n");
    EXPECT_EQ(out.err(), "");
    WithTraits err(SinkTraits(), echoing());
    err.run("print(");
    EXPECT_EQ(err.err(), ">>> print(\n");
    EXPECT_EQ(err.out(), "");
}

TEST_F(EngineTest, AFunctionThatIsCalledIsNotEchoed) {
    const auto buffer = boost::make_shared<TextBuffer>();
    Submission submission;
    submission.ownStreams = false;
    submission.runOptions.setOutStream(buffer, echoing());
    submitFeval("print", {text("x")}, 0, std::move(submission)).get();
    EXPECT_EQ(buffer->text(), "x\n");
}

TEST_F(EngineTest, TracebacksCarryLinksToADestinationThatSupportsThem) {
    const std::string failing =
        "import traceback, ast\ntry: ast.parse(3)\nexcept TypeError: traceback.print_exc()";
    EXPECT_EQ(WithTraits(SinkTraits()).run(failing).err().find('\x1b'), std::string::npos);
    WithTraits linked(SinkTraits(), linking());
    EXPECT_NE(linked.run(failing).err().find("\x1b]8;;file:///usr/lib/python3.11/ast.py#L"),
              std::string::npos);
    // Those of the out stream do not count: a traceback goes to the other one.
    EXPECT_EQ(WithTraits(linking()).run(failing).err().find('\x1b'), std::string::npos);
}

TEST_F(EngineTest, TheTracebackOfAThreadGoesToTheStreamOfItsCommand) {
    auto submitted = submitEval(
        "import threading\ndef work(): raise ValueError('\U0001F600')\n"
        "t = threading.Thread(target=work, name='w'); t.start(); t.join()");
    submitted.get();
    const std::string text = submitted.transcript->text();
    EXPECT_EQ(text.find("[err]Exception in thread w:\nTraceback (most recent call last):\n"), 0U) << text;
    EXPECT_NE(text.find("ValueError: \U0001F600\n"), std::string::npos) << text;
}

TEST_F(EngineTest, TheTracebackOfARawThreadGoesToTheStreamOfItsCommand) {
    auto submitted = submitEval(
        "import _thread\ngo = _thread.allocate_lock(); go.acquire()\n"
        "def work(): go.acquire(); 1/0\n_thread.start_new_thread(work, ());");
    submitted.get();
    eval("go.release()");
    submitted.transcript->waitForSynchronised("ZeroDivisionError: division by zero\n");
    EXPECT_EQ(submitted.transcript->text().find("[err]Exception ignored in: <function work at "), 0U)
        << submitted.transcript->text();
}

TEST_F(EngineTest, AWarningGoesToTheStreamOfTheCommandOrThreadThatCausedIt) {
    auto submitted = submitEval(
        "import warnings, threading\nwarnings.warn('of the command \u05D0')\n"
        "t = threading.Thread(target=lambda: warnings.warn('of its thread \U0001F600')); t.start(); "
        "t.join()");
    submitted.get();
    const std::string text = submitted.transcript->text();
    EXPECT_NE(text.find("[err]"), std::string::npos);
    EXPECT_NE(text.find("UserWarning: of the command \u05D0\n"), std::string::npos) << text;
    EXPECT_NE(text.find("UserWarning: of its thread \U0001F600\n"), std::string::npos) << text;
}

TEST_F(EngineTest, TextOfAnyScriptIsDisplayedAsItIs) {
    EXPECT_EQ(eval("['e\u0301', '\u05D0\u05D1', '\U0001F469\u200D\U0001F680', '\\ud83d', 'a\\0b']"),
              "['e\u0301', '\u05D0\u05D1', '\U0001F469\\u200d\U0001F680', '\\ud83d', 'a\\x00b']\n");
    auto submitted = submitEval("print('a\\0b\\ude00', end='')");
    submitted.get();
    EXPECT_EQ(submitted.transcript->units(), (std::u16string{u'a', u'\0', u'b', char16_t(0xDE00)}));
}

TEST_F(EngineTest, ErrorsAndTracebacksCarryTextOfAnyScript) {
    const auto error =
        evalError("\u0434\u0430 = '\U0001F600'\nraise ValueError(\u0434\u0430 + '\\ud800\\0!')");
    EXPECT_EQ(std::string(error.what()), std::string("\U0001F600\uFFFD\0!", 9).c_str());
    auto submitted = submitEval(
        "import traceback\ntry: raise ValueError('\u05D0\\ud800')\nexcept ValueError: traceback.print_exc()");
    submitted.get();
    EXPECT_NE(submitted.transcript->text().find("ValueError: \u05D0\uFFFD\n"), std::string::npos)
        << submitted.transcript->text();
}

/// Client-wide sinks while it lives.
class Installed {
  public:
    explicit Installed(const SinkTraits& out, const SinkTraits& err = {}) {
        EngineTest::engine()->replaceSinks(boost::make_shared<YLSink>(out_, out),
                                           boost::make_shared<YLSink>(err_, err));
    }

    std::string out() const { return out_->text(); }
    std::string err() const { return err_->text(); }

  private:
    const foundation::core::util::scope_guard restorer_ =
        EngineTest::engine()->makeSinkRestorer(EngineTest::engine());
    boost::shared_ptr<TextBuffer> out_ = boost::make_shared<TextBuffer>();
    boost::shared_ptr<TextBuffer> err_ = boost::make_shared<TextBuffer>();
};

Submission withoutStreams() {
    Submission submission;
    submission.ownStreams = false;
    return submission;
}

TEST_F(EngineTest, TextOfClientWideSinksIsCopiedToTheDiaryAndTheLogAsTheirTraitsAsk) {
    std::filesystem::remove("yvm-diary.txt");
    std::filesystem::remove("yvm-log.txt");
    {
        const Installed sinks(copying(true, false), copying(false, true));
        submitEval("import sys\nprint('out \U0001F600')\nprint('err', file=sys.stderr)", withoutStreams())
            .get();
        EXPECT_EQ(sinks.out(), "out \U0001F600\n");
        EXPECT_EQ(sinks.err(), "err\n");
    }
    submitEval("print('after')", withoutStreams()).get();
    EXPECT_EQ(contentOf("yvm-diary.txt"), "out \U0001F600\n");
    const std::string log = contentOf("yvm-log.txt");
    EXPECT_EQ(log.find("Z err\n"), std::string("2026-01-31T09:15:00.250").size()) << log;
}

TEST_F(EngineTest, TextOfACommandsOwnStreamsIsLeftToTheirBuffers) {
    std::filesystem::remove("yvm-diary.txt");
    const Installed sinks(copying(true, true));
    EXPECT_EQ(WithTraits(copying(true, true)).run("print('own')").out(), "own\n");
    EXPECT_FALSE(std::filesystem::exists("yvm-diary.txt"));
}

TEST_F(EngineTest, ADiaryThatCannotBeWrittenDoesNotHurtTheCommand) {
    std::filesystem::remove("yvm-diary.txt");
    std::filesystem::create_directory("yvm-diary.txt");
    {
        const Installed sinks(copying(true, false));
        EXPECT_NO_THROW(submitEval("print('x')", withoutStreams()).get());
        EXPECT_EQ(sinks.out(), "x\n");
    }
    std::filesystem::remove("yvm-diary.txt");
}

TEST_F(EngineTest, TheTraitsOfClientWideSinksCountForCommandsWithoutStreams) {
    const Installed sinks(echoing(), linking());
    submitEval("import ast, traceback\ntry: ast.parse(3)\nexcept TypeError: traceback.print_exc()",
               withoutStreams())
        .get();
    EXPECT_EQ(sinks.out().find(">>> import ast, traceback\n... try:"), 0U) << sinks.out();
    EXPECT_NE(sinks.err().find("\x1b]8;;file:///"), std::string::npos);
}

}  // namespace
}  // namespace yvm::engine::test
