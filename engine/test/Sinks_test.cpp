#include "engine/test/EngineFixture.hpp"

#include <thread>
#include <utility>

namespace yvm::engine::test {
namespace {

/// Commands without streams of their own, and sinks for the text of all of them.
class ClientWideSinks : public EngineTest {
  protected:
    ClientWideSinks() : restorer_(engine()->makeSinkRestorer(engine())) {
        takeConsoleText();
        install(transcript_);
    }

    static void install(const std::shared_ptr<Transcript>& transcript) {
        auto [out, err] = makeSinks(transcript);
        engine()->replaceSinks(std::move(out), std::move(err));
    }
    static Submission withoutStreams(DequeueMode mode = DequeueMode::DEQUEUE_AT_PROMPT) {
        Submission submission = inMode(mode);
        submission.ownStreams = false;
        return submission;
    }

    const std::shared_ptr<Transcript> transcript_ = std::make_shared<Transcript>();

  private:
    foundation::core::util::scope_guard restorer_;
};

TEST_F(ClientWideSinks, TakeTheTextOfCommandsWithoutStreams) {
    submitEval("import sys\nprint('o'); print('e', file=sys.stderr)", withoutStreams()).get();
    EXPECT_EQ(transcript_->synchronisedText(), "o\n[err]e\n");
    EXPECT_EQ(takeConsoleText(), "");
}

TEST_F(ClientWideSinks, LeaveTheTextOfACommandWithStreamsAlone) {
    EXPECT_EQ(eval("print('own')"), "own\n");
    EXPECT_EQ(transcript_->text(), "");
}

TEST_F(ClientWideSinks, TakeTheStreamThatACommandDoesNotHave) {
    auto submission = withoutStreams();
    const auto own = std::make_shared<Transcript>();
    submission.runOptions.setErrStream(makeSinks(own).second->sharedBuffer(),
                                       RunOptions::getDefaultSinkTraits());
    submitEval("import sys\nprint('o'); print('e', file=sys.stderr)", std::move(submission)).get();
    EXPECT_EQ(transcript_->text(), "o\n");
    EXPECT_EQ(own->text(), "[err]e\n");
}

TEST_F(ClientWideSinks, TheLastInstallWinsAndTextBeforeItStays) {
    auto busy = submitEval(
        "import threading\nnext_ = threading.Event()\nprint('before', end='')\n"
        "next_.wait()\nprint('after', end='')",
        withoutStreams());
    transcript_->waitFor("before");
    const auto second = std::make_shared<Transcript>();
    install(second);
    EXPECT_EQ(transcript_->synchronisedText(), "before");
    submitEval("next_.set()", withoutStreams(DequeueMode::DEQUEUE_AT_PPE)).get();
    busy.get();
    EXPECT_EQ(transcript_->text(), "before");
    EXPECT_EQ(second->text(), "after");
}

TEST_F(ClientWideSinks, ARestorerPutsBackThePairOfItsMaking) {
    const auto second = std::make_shared<Transcript>();
    {
        const auto restorer = engine()->makeSinkRestorer(engine());
        install(second);
        submitEval("print('second')", withoutStreams()).get();
    }
    submitEval("print('first')", withoutStreams()).get();
    EXPECT_EQ(second->text(), "second\n");
    EXPECT_EQ(transcript_->text(), "first\n");
}

TEST_F(ClientWideSinks, NullDropsTheText) {
    engine()->replaceSinks({}, {});
    submitEval("print('nowhere')", withoutStreams()).get();
    EXPECT_EQ(transcript_->text(), "");
    EXPECT_EQ(takeConsoleText(), "");
}

TEST_F(ClientWideSinks, AreReplacedWhileAThreadWrites) {
    submitEval(
        "import threading\nstop = threading.Event()\n"
        "def chatter():\n    while not stop.is_set(): print('x', end='')\n"
        "thread = threading.Thread(target=chatter); thread.start()",
        withoutStreams())
        .get();
    for (int i = 0; i < 1000; ++i) {
        const auto restorer = engine()->makeSinkRestorer(engine());
        install(std::make_shared<Transcript>());
    }
    EXPECT_EQ(eval("stop.set(); thread.join()"), "");
}

TEST_F(ClientWideSinks, AQueryAboveACommandWritesForItself) {
    auto busy = submitEval("print('beneath', flush=True)\nwhile True: pass");
    busy.transcript->waitForSynchronised("beneath\n");
    submitEval("print('above')", withoutStreams(DequeueMode::DEQUEUE_AT_PPE)).get();
    EXPECT_EQ(transcript_->text(), "above\n");
    auto query = submitEval("print('own of the query')", inMode(DequeueMode::DEQUEUE_AT_PPE));
    query.get();
    EXPECT_EQ(query.transcript->text(), "own of the query\n");
    cancel(busy.id, true);
    busy.error();
    EXPECT_EQ(busy.transcript->text(), "beneath\n");
}

TEST_F(ClientWideSinks, AThreadThatAQueryStartedKeepsTheStreamsOfTheQuery) {
    auto busy =
        submitEval("import threading\nlate = threading.Event()\nprint('runs', flush=True)\nlate.wait();");
    busy.transcript->waitForSynchronised("runs\n");
    auto query = submitEval(
        "def work():\n    late.wait()\n    print('of the query')\n"
        "worker = threading.Thread(target=work); worker.start()",
        inMode(DequeueMode::DEQUEUE_AT_PPE));
    query.get();
    submitEval("late.set()", withoutStreams(DequeueMode::DEQUEUE_AT_PPE)).get();
    busy.get();
    eval("worker.join()");
    EXPECT_EQ(query.transcript->text(), "of the query\n");
    EXPECT_EQ(busy.transcript->text(), "runs\n");
    EXPECT_EQ(transcript_->text(), "");
}

}  // namespace
}  // namespace yvm::engine::test
