#include "cmddistributor/RequestIdAdapter.hpp"
#include "engine/test/EngineFixture.hpp"
#include "ylutil/io/TextBaseEvent.hpp"

#include <boost/make_shared.hpp>

#include <stdexcept>
#include <utility>

namespace yvm::engine::test {
namespace {

TEST_F(EngineTest, TextOfBothStreamsKeepsItsOrder) {
    auto submitted =
        submitEval("import sys\nfor i in range(3):\n    print('o', i)\n    print('e', i, file=sys.stderr)");
    submitted.get();
    EXPECT_EQ(submitted.transcript->text(), "o 0\n[err]e 0\no 1\n[err]e 1\no 2\n[err]e 2\n");
    EXPECT_GE(submitted.transcript->synchronised(), 3);
}

TEST_F(EngineTest, AllTextIsSynchronisedBeforeTheCompletion) {
    Submission submission;
    Submitted submitted;
    std::string atCompletion;
    const auto transcript = std::make_shared<std::shared_ptr<Transcript>>();
    std::promise<void> known;
    submission.inCompletion = [&, ready = known.get_future().share()] {
        ready.wait();
        atCompletion = (*transcript)->synchronisedText();
    };
    submitted = submitEval("print('a', end='')\nprint('b', end='')\nprint('c')", submission);
    *transcript = submitted.transcript;
    known.set_value();
    submitted.get();
    EXPECT_EQ(atCompletion, "abc\n");
}

TEST_F(EngineTest, EmptyTextIsNotWritten) {
    auto submitted = submitEval("print(end='')\nimport sys\nn = sys.stdout.write('')\nassert n == 0");
    submitted.get();
    EXPECT_EQ(submitted.transcript->writes(), 0);
}

TEST_F(EngineTest, AFloodOfTextIsSynchronisedInBatches) {
    auto submitted = submitEval("for i in range(2000): print(i)");
    submitted.get();
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        expected += std::to_string(i) + "\n";
    }
    EXPECT_EQ(submitted.transcript->text(), expected);
    // Of 4000 pieces. Not timing: each batch takes 15 ms at least, so 1000 would take 15 seconds.
    EXPECT_LT(submitted.transcript->writes(), 2000);
    EXPECT_LT(submitted.transcript->synchronised(), 1000);
}

TEST_F(EngineTest, TextOfAFloodKeepsItsOrderWhateverItsCharactersAre) {
    // Latin-1, other 16-bit text, pairs of surrogates, both halves of one, nothing, and what is longer than a
    // piece.
    auto submitted = submitEval(
        "import sys\n"
        "pieces = ['a', '\u00e4', '\u0416', '\U0001F600', '\\ud83d', '\\ude00', '', 'z' * 9000]\n"
        "for i in range(300):\n"
        "    for piece in pieces: sys.stdout.write(piece)\n");
    submitted.get();
    std::u16string expected;
    for (int i = 0; i < 300; ++i) {
        expected += u"a\u00e4\u0416\U0001F600\U0001F600" + std::u16string(9000, u'z');
    }
    EXPECT_EQ(submitted.transcript->units(), expected);
}

TEST_F(EngineTest, TextOfAFloodKeepsItsOrderAmongStreamsAndThreads) {
    auto submitted = submitEval(
        "import sys, threading\n"
        "for i in range(100):\n"
        "    print('x'); print('y', end='')\n"
        "    print('e', file=sys.stderr, end=''); print('f', file=sys.stderr, end='')\n"
        "    print('z', end='')\n"
        "    worker = threading.Thread(target=print, args=('t',)); worker.start(); worker.join()\n");
    submitted.get();
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        expected += "x\ny[err]efzt\n";
    }
    EXPECT_EQ(submitted.transcript->text(), expected);
}

TEST_F(EngineTest, TextBeyondTheBasicPlaneAndLoneSurrogatesPassUnharmed) {
    auto submitted = submitEval("print('\U0001F600\u00e4\\ud800!', end='')");
    submitted.get();
    EXPECT_EQ(submitted.transcript->units(),
              (std::u16string{char16_t(0xD83D), char16_t(0xDE00), u'\u00e4', char16_t(0xD800), u'!'}));
}

TEST_F(EngineTest, APairThatIsWrittenInHalvesIsNotCut) {
    auto submitted =
        submitEval("import sys\nw = sys.stdout.write\nw('\\ud83d'); sys.stdout.flush(); w('\\ude00');");
    submitted.get();
    EXPECT_EQ(submitted.transcript->units(), u"\U0001F600");
    EXPECT_EQ(submitted.transcript->writes(), 1);
}

TEST_F(EngineTest, AHighSurrogateAtTheEndLeavesWithTheCommand) {
    auto submitted = submitEval("import sys\nsys.stdout.write('x\\ud83d');");
    submitted.get();
    EXPECT_EQ(submitted.transcript->units(), (std::u16string{u'x', char16_t(0xD83D)}));
}

TEST_F(EngineTest, TextAfterAQuietSpellLeavesAtOnce) {
    auto busy = submitEval("print('first', end='')\nwhile True: pass");
    busy.transcript->waitFor("first");
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (busy.transcript->synchronised() == 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_EQ(busy.transcript->synchronised(), 1);
    EXPECT_FALSE(busy.isDone());
    cancel(busy.id, true);
    busy.error();
}

TEST_F(EngineTest, APrintAfterAQuietSpellIsOnePiece) {
    auto busy = submitEval("print('x')\nwhile True: pass");
    busy.transcript->waitForSynchronised("x\n");
    EXPECT_EQ(busy.transcript->synchronised(), 1);
    cancel(busy.id, true);
    busy.error();
}

TEST_F(EngineTest, TextInTheMiddleOfALineLeavesWhenTheProgramFallsSilent) {
    // Two pieces, so that the second is not the first after a quiet spell.
    for (const std::string silence :
         {"while True: pass", "import time\ntime.sleep(1000)", "import os\nr, w = os.pipe(); os.read(r, 1)",
          "import threading\nthreading.Event().wait()", "import yvm\nyvm.pause(1000)"}) {
        auto busy = submitEval("print('a', end='', flush=True)\nprint('b', end='')\n" + silence);
        busy.transcript->waitForSynchronised("ab");
        EXPECT_FALSE(busy.isDone());
        cancel(busy.id, true);
        busy.error();
    }
}

TEST_F(EngineTest, TextOfAThreadLeavesWhenTheThreadFallsSilent) {
    auto first = submitEval(
        "import threading\nlate = threading.Event(); silent = threading.Event()\n"
        "def work():\n    late.wait()\n    print('a', end='', flush=True)\n    print('b', end='')\n    "
        "silent.wait()\n"
        "worker = threading.Thread(target=work); worker.start()");
    first.get();
    eval("late.set()");
    // At the prompt.
    first.transcript->waitForSynchronised("ab");
    EXPECT_EQ(eval("silent.set(); worker.join()"), "");
}

TEST_F(EngineTest, TextOfAThreadLeavesWhileTheCommandOfAnotherRuns) {
    auto first = submitEval(
        "import threading\nlate = threading.Event(); silent = threading.Event()\n"
        "def work():\n    late.wait()\n    print('a', end='', flush=True)\n    print('b', end='')\n    "
        "silent.wait()\n"
        "worker = threading.Thread(target=work); worker.start()");
    first.get();
    auto busy = submitEval("late.set()\nwhile True: pass");
    first.transcript->waitForSynchronised("ab");
    EXPECT_FALSE(busy.isDone());
    cancel(busy.id, true);
    busy.error();
    EXPECT_EQ(eval("silent.set(); worker.join()"), "");
}

TEST_F(EngineTest, TextOfBothStreamsLeavesWhenTheProgramFallsSilent) {
    auto busy = submitEval(
        "import sys, threading\nprint('a', end='', flush=True)\nprint('b', end='')\n"
        "print('c', end='', file=sys.stderr)\nthreading.Event().wait()");
    busy.transcript->waitForSynchronised("ab[err]c");
    cancel(busy.id, true);
    busy.error();
}

TEST_F(EngineTest, FlushBringsTextOutAtOnce) {
    // The first text leaves by itself, what follows at once would wait; no pause here, which synchronises
    // too.
    auto busy = submitEval(
        "for i in range(10): print(i)\nprint('last', flush=True)\nimport "
        "threading\nthreading.Event().wait()");
    busy.transcript->waitForSynchronised("9\nlast\n");
    cancel(busy.id, true);
    busy.error();
}

TEST_F(EngineTest, TextWithoutAStreamOfItsOwnGoesToTheConsole) {
    takeConsoleText();
    Submission submission;
    submission.ownStreams = false;
    submitEval("import sys\nprint('to the console'); print('bad', file=sys.stderr)", submission).get();
    EXPECT_EQ(takeConsoleText(), "to the console\n[err]bad[err]\n");
}

TEST_F(EngineTest, TextOfAThreadBelongsToTheCommandThatStartedIt) {
    auto first = submitEval(
        "import threading\ngo = threading.Event()\n"
        "def work():\n    go.wait()\n    print('from the thread', end='')\n"
        "worker = threading.Thread(target=work); worker.start()");
    first.get();
    auto second = submitEval("print('second')\ngo.set()\nworker.join()");
    second.get();
    EXPECT_EQ(second.transcript->text(), "second\n");
    EXPECT_EQ(first.transcript->text(), "from the thread");
    EXPECT_EQ(first.transcript->synchronised(), 1);
}

TEST_F(EngineTest, ThreadsOfAPoolAndRawThreadsInheritTheCommandToo) {
    auto submitted = submitEval(
        "import concurrent.futures, _thread\n"
        "with concurrent.futures.ThreadPoolExecutor(2) as pool: list(pool.map(print, ['p']))\n"
        "lock = _thread.allocate_lock(); lock.acquire()\n"
        "def raw(): print('r'); lock.release()\n"
        "_thread.start_new_thread(raw, ()); lock.acquire();");
    submitted.get();
    EXPECT_EQ(submitted.transcript->text(), "p\nr\n");
}

TEST_F(EngineTest, CommandsNeverMixTheirText) {
    std::vector<Submitted> submitted;
    for (int i = 0; i < 20; ++i) {
        submitted.push_back(submitEval("for i in range(50): print('" + std::to_string(i) + "', end=' ')"));
    }
    for (int i = 0; i < 20; ++i) {
        submitted[static_cast<std::size_t>(i)].get();
        std::string expected;
        for (int repeat = 0; repeat < 50; ++repeat) {
            expected += std::to_string(i) + " ";
        }
        EXPECT_EQ(submitted[static_cast<std::size_t>(i)].transcript->text(), expected);
    }
}

TEST_F(EngineTest, ReadingInputRaisesEOFError) {
    EXPECT_EQ(evalError("input('? ')").GetID(), "EOFError");
    EXPECT_EQ(evalError("import sys; sys.stdin.readline()").GetID(), "EOFError");
    EXPECT_EQ(evalError("for line in sys.stdin: pass").GetID(), "EOFError");
}

TEST_F(EngineTest, TheStreamsAnswerWhatLibrariesAsk) {
    EXPECT_EQ(eval("import sys, io\n(sys.stdout.isatty(), sys.stdout.encoding, sys.stdout.writable(),"
                   " isinstance(sys.stdout, io.TextIOBase), sys.stdout.name)"),
              "(False, 'utf-8', True, True, '<stdout>')\n");
    EXPECT_EQ(evalError("sys.stdout.fileno()").GetID(), "io.UnsupportedOperation");
    EXPECT_EQ(eval("sys.stdout.writelines(['a', 'b'])\nsys.stdout.close()\nprint('c')"), "abc\n");
    EXPECT_EQ(evalError("sys.stdout.write(3)").GetID(), "TypeError");
}

TEST_F(EngineTest, ARedirectionOfTheUserWorks) {
    EXPECT_EQ(eval("import contextlib, io\nwith contextlib.redirect_stdout(io.StringIO()) as caught:\n"
                   "    print('inside')\ncaught.getvalue()"),
              "'inside\\n'\n");
}

class ThrowingBuffer final : public std::basic_streambuf<char16_t> {
  protected:
    std::streamsize xsputn(const char16_t*, std::streamsize) override { throw std::runtime_error("gone"); }
    int sync() override { throw std::runtime_error("gone"); }
};

TEST_F(EngineTest, AFailingSinkDoesNotReachTheProgram) {
    Submission submission;
    submission.runOptions.setOutStream(boost::make_shared<ThrowingBuffer>(),
                                       RunOptions::getDefaultSinkTraits());
    submission.ownStreams = false;
    submitEval("print('nobody hears')", submission).get();
}

/// Makes events of what it is given at each synchronisation, as a command's own text does on its way to a
/// client.
class EventBuffer final : public std::basic_streambuf<char16_t> {
  protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        text_.append(text, static_cast<std::size_t>(count));
        return count;
    }
    int sync() override {
        const auto id = cmddistributor::RequestIdAdapter().getRequestId();
        EngineTest::engine()->getEventMgr()->deliver(
            std::make_shared<ylutil::io::TextBaseEvent>(id, ylutil::io::StreamTypeEnum::Output,
                                                        std::exchange(text_, {})),
            foundation::msg_svc::eventmgr::DeliveryMode::synchronous);
        return 0;
    }

  private:
    std::u16string text_;
};

TEST_F(EngineTest, EventsOfACommandReachItsOwnCallback) {
    Submission submission;
    submission.ownStreams = false;
    submission.runOptions.setOutStream(boost::make_shared<EventBuffer>(), RunOptions::getDefaultSinkTraits());
    const auto received = std::make_shared<std::u16string>();
    submission.runOptions.setCallbackImpl(
        [received](const foundation::msg_svc::eventmgr::BaseEvent& event) {
            *received += dynamic_cast<const ylutil::io::TextBaseEvent&>(event).text();
        },
        u"ylutil::io::TextBaseEvent");
    submitEval("print('by event')", submission).get();
    EXPECT_EQ(*received, u"by event\n");
}

/// Its end takes as long as it is told to.
class LingeringBuffer final : public std::basic_streambuf<char16_t> {
  public:
    LingeringBuffer(std::promise<void>& ending, std::shared_future<void> mayEnd)
        : ending_(ending), mayEnd_(std::move(mayEnd)) {}
    ~LingeringBuffer() override {
        ending_.set_value();
        // Longer than a command that it holds up is waited for.
        mayEnd_.wait_for(2 * deadline);
    }

  private:
    std::promise<void>& ending_;
    const std::shared_future<void> mayEnd_;
};

TEST_F(EngineTest, TheEndOfACommandThatAThreadOutlivesHoldsNobodyUp) {
    std::promise<void> ending;
    std::promise<void> mayEnd;
    {
        Submission submission;
        submission.ownStreams = false;
        submission.runOptions.setOutStream(
            boost::make_shared<LingeringBuffer>(ending, mayEnd.get_future().share()),
            RunOptions::getDefaultSinkTraits());
        submitEval("import threading\nlate = threading.Event()\nthreading.Thread(target=late.wait).start()",
                   std::move(submission))
            .get();
    }
    auto lastHolderIsGone = ending.get_future();
    EXPECT_EQ(lastHolderIsGone.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    eval("late.set()");
    ASSERT_EQ(lastHolderIsGone.wait_for(deadline), std::future_status::ready);
    auto other = submitEval("1+1");
    EXPECT_NO_THROW(other.get());
    mayEnd.set_value();
    EXPECT_EQ(other.transcript->text(), "2\n");
}

TEST_F(EngineTest, EventsOfAThreadReachTheCallbackOfACommandThatHasEnded) {
    Submission submission;
    submission.ownStreams = false;
    submission.runOptions.setOutStream(boost::make_shared<EventBuffer>(), RunOptions::getDefaultSinkTraits());
    const auto received = std::make_shared<std::promise<std::u16string>>();
    auto future = received->get_future();
    submission.runOptions.setCallbackImpl(
        [received](const foundation::msg_svc::eventmgr::BaseEvent& event) {
            received->set_value(dynamic_cast<const ylutil::io::TextBaseEvent&>(event).text());
        },
        u"ylutil::io::TextBaseEvent");
    submitEval(
        "import threading\nlate = threading.Event()\n"
        "def work():\n    late.wait()\n    print('late', end='')\nthreading.Thread(target=work).start()",
        submission)
        .get();
    eval("late.set()");
    ASSERT_EQ(future.wait_for(deadline), std::future_status::ready);
    EXPECT_EQ(future.get(), u"late");
}

}  // namespace
}  // namespace yvm::engine::test
