#include "testing/FakeEngine.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "yvm/Factory.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <sstream>

namespace platform_testing {
namespace {

using cmddistributor::CmdDistributor;
using cmddistributor::RunOptions;
using cmddistributor::RuntimeException;
using foundation::yorlabdata::Array;
using ylutil::cmddistributor::WhenToDequeue;
using Arrays = yvm::YVM::Arrays;
using IDType = yvm::YVM::IDType;

constexpr auto deadline = std::chrono::seconds(60);

class FakeEngineTest : public ::testing::Test {
  protected:
    ~FakeEngineTest() override { engine->stop(); }

    /// Submits a command; the future gives "ok" or the identifier or text of the failure.
    std::future<std::string> eval(std::u16string command, RunOptions options = {}, IDType id = {}) {
        auto promise = std::make_shared<std::promise<std::string>>();
        auto outcome = promise->get_future();
        auto outSink = options.getOutSink();
        auto errSink = options.getErrSink();
        engine->getCmdDistributor()->enqueueWithFuture<void>(
            std::make_shared<cmddistributor::EvalCmdRequest>(false, -2, std::move(outSink),
                                                             std::move(errSink), std::move(command), "test"),
            [promise](boost::future<void> future) {
                try {
                    future.get();
                    promise->set_value("ok");
                } catch (const RuntimeException& error) {
                    promise->set_value(error.GetID().empty() ? error.what() : error.GetID());
                }
            },
            std::move(options), id, nullptr);
        return outcome;
    }

    static std::string get(std::future<std::string>& outcome) {
        return outcome.wait_for(deadline) == std::future_status::ready ? outcome.get()
                                                                       : "no answer in a minute";
    }

    std::shared_ptr<FakeEngine> engine = FakeEngine::create();
};

TEST_F(FakeEngineTest, IsTheCurrentEngineUntilItStops) {
    EXPECT_EQ(yvm::Factory::getCurrentLocalYVM(), engine);
    engine->stop();
    EXPECT_FALSE(yvm::Factory::getCurrentLocalYVM());
    EXPECT_FALSE(engine->getCmdDistributor());
}

TEST_F(FakeEngineTest, RunsTheScriptOfACommandUnderItsIdentity) {
    IDType seen = IDType::null();
    engine->onEval(u"who", [&seen](FakeEngine::Command& command) {
        seen = cmddistributor::RequestIdAdapter().getRequestId();
        EXPECT_EQ(command.id(), seen);
        command.writeOut(u"text of nobody's");
        return Arrays();
    });
    const IDType id;
    auto outcome = eval(u"who", {}, id);
    EXPECT_EQ(get(outcome), "ok");
    EXPECT_EQ(seen, id);
    EXPECT_EQ(engine->consoleText(), u"text of nobody's");
}

TEST_F(FakeEngineTest, ACommandWithoutAScriptFails) {
    auto outcome = eval(u"unheard of");
    EXPECT_EQ(get(outcome), FakeEngine::unscriptedIdentifier);
}

TEST_F(FakeEngineTest, ExceptionsOfAScriptFailItsCommand) {
    engine->onEval(u"own", [](FakeEngine::Command&) -> Arrays {
        throw RuntimeException(RuntimeException::Status::CommandFailed, u"text", "OwnError");
    });
    engine->onEval(u"other", [](FakeEngine::Command&) -> Arrays { throw std::runtime_error("other text"); });
    auto own = eval(u"own");
    auto other = eval(u"other");
    EXPECT_EQ(get(own), "OwnError");
    EXPECT_EQ(get(other), "other text");
}

TEST_F(FakeEngineTest, AFunctionGetsItsArgumentsAndGivesItsOutputs) {
    engine->onFeval("twice", [](FakeEngine::Command& command) {
        EXPECT_EQ(command.numOutputs(), 2u);
        return Arrays{command.arguments().at(0), command.arguments().at(0)};
    });
    std::promise<Arrays> promise;
    auto outputs = promise.get_future();
    const Array argument(std::u16string(u"a"));
    engine->fevalWithCompletion(
        "twice", {argument}, 2, [&promise](yvm::Future<Arrays> future) { promise.set_value(future.get()); },
        {}, false, IDType(), "test");
    ASSERT_EQ(outputs.wait_for(deadline), std::future_status::ready);
    EXPECT_EQ(outputs.get(), (Arrays{argument, argument}));
}

/// Counts synchronisations.
class CountingBuffer final : public std::basic_stringbuf<char16_t> {
  public:
    std::atomic<int> syncs{0};

  private:
    int sync() override {
        ++syncs;
        return 0;
    }
};

TEST_F(FakeEngineTest, StreamsAreSynchronisedBeforeTheCompletion) {
    engine->onEval(u"print", [](FakeEngine::Command& command) {
        command.writeOut(u"out");
        command.writeErr(u"err");
        return Arrays();
    });
    const auto out = boost::make_shared<CountingBuffer>();
    const auto err = boost::make_shared<CountingBuffer>();
    RunOptions options;
    options.setOutStream(out, {});
    options.setErrStream(err, {});
    auto outcome = eval(u"print", options);
    EXPECT_EQ(get(outcome), "ok");
    EXPECT_EQ(out->str(), u"out");
    EXPECT_EQ(err->str(), u"err");
    EXPECT_EQ(out->syncs, 1);
    EXPECT_EQ(err->syncs, 1);
    EXPECT_EQ(engine->consoleText(), u"");
}

TEST_F(FakeEngineTest, EventsReachTheCallbacksOfTheirOwnCommandAlone) {
    engine->onEval(u"fire", [](FakeEngine::Command& command) {
        command.fire(std::make_shared<ylutil::io::TextBaseEvent>(
            command.id(), ylutil::io::StreamTypeEnum::Output, u"text"));
        return Arrays();
    });
    std::atomic<int> mine{0};
    std::atomic<int> others{0};
    RunOptions options;
    options.setCallbackImpl([&mine](const auto&) { ++mine; }, u"ylutil::io::TextBaseEvent");
    RunOptions otherOptions;
    otherOptions.setCallbackImpl([&others](const auto&) { ++others; }, u"ylutil::io::TextBaseEvent");
    engine->onEval(u"quiet", [](FakeEngine::Command&) { return Arrays(); });

    auto first = eval(u"quiet", otherOptions);
    auto second = eval(u"fire", options);
    EXPECT_EQ(get(first), "ok");
    EXPECT_EQ(get(second), "ok");
    EXPECT_EQ(mine, 1);
    EXPECT_EQ(others, 0);
}

class PausingFakeEngineTest : public FakeEngineTest {
  protected:
    PausingFakeEngineTest() {
        engine->onEval(u"pause", [this](FakeEngine::Command& command) {
            started.set_value();
            command.pauseUntil([this] { return released.load(); });
            return Arrays();
        });
        engine->onEval(u"quick", [](FakeEngine::Command&) { return Arrays(); });
    }

    std::promise<void> started;
    std::atomic<bool> released{false};
};

TEST_F(PausingFakeEngineTest, APauseServesCommandsThatMayRunInItAndEndsWhenResumed) {
    auto pausing = eval(u"pause");
    ASSERT_EQ(started.get_future().wait_for(deadline), std::future_status::ready);
    auto waiting = eval(u"quick");
    RunOptions atPause;
    atPause.setDequeueMode(WhenToDequeue::DEQUEUE_AT_PAUSE);
    auto nested = eval(u"quick", atPause);
    EXPECT_EQ(get(nested), "ok");
    EXPECT_EQ(waiting.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    released = true;
    engine->resume();
    EXPECT_EQ(get(pausing), "ok");
    EXPECT_EQ(get(waiting), "ok");
}

TEST_F(PausingFakeEngineTest, ACancelWithInterruptStopsTheCommand) {
    const IDType id;
    auto pausing = eval(u"pause", {}, id);
    ASSERT_EQ(started.get_future().wait_for(deadline), std::future_status::ready);
    auto status = engine->getCmdDistributor()->cancel(id, true);
    EXPECT_EQ(get(pausing), FakeEngine::interruptedIdentifier);
    EXPECT_EQ(status.get(), CmdDistributor::CANCEL_WHILE_RUNNING);
}

TEST_F(PausingFakeEngineTest, AnInterruptStopsWhatThePromptRunsAndNothingElse) {
    engine->interrupt();
    auto before = eval(u"quick");
    EXPECT_EQ(get(before), "ok");
    auto pausing = eval(u"pause");
    ASSERT_EQ(started.get_future().wait_for(deadline), std::future_status::ready);
    engine->interrupt();
    EXPECT_EQ(get(pausing), FakeEngine::interruptedIdentifier);
    auto after = eval(u"quick");
    EXPECT_EQ(get(after), "ok");
}

TEST_F(PausingFakeEngineTest, StoppingInterruptsWhatRunsAndFailsWhatWaits) {
    auto pausing = eval(u"pause");
    ASSERT_EQ(started.get_future().wait_for(deadline), std::future_status::ready);
    auto waiting = eval(u"quick");
    engine->stop();
    EXPECT_EQ(get(pausing), FakeEngine::interruptedIdentifier);
    EXPECT_EQ(get(waiting), cmddistributor::shutDownIdentifier);
}

TEST_F(FakeEngineTest, APreemptionPointRunsTheCommandsThatWaitForOne) {
    std::promise<void> started;
    std::atomic<bool> nestedRan{false};
    engine->onEval(u"busy", [&](FakeEngine::Command& command) {
        started.set_value();
        while (!nestedRan) {
            command.preemptionPoint();
            std::this_thread::yield();
        }
        return Arrays();
    });
    engine->onEval(u"query", [&](FakeEngine::Command& command) {
        EXPECT_EQ(cmddistributor::RequestIdAdapter().getRequestId(), command.id());
        nestedRan = true;
        return Arrays();
    });
    auto busy = eval(u"busy");
    ASSERT_EQ(started.get_future().wait_for(deadline), std::future_status::ready);
    RunOptions atPpe;
    atPpe.setDequeueMode(WhenToDequeue::DEQUEUE_AT_PPE);
    auto query = eval(u"query", atPpe);
    EXPECT_EQ(get(query), "ok");
    EXPECT_EQ(get(busy), "ok");
}

TEST_F(FakeEngineTest, ItCannotBeStoppedFromItsOwnThread) {
    engine->onEval(u"stop", [this](FakeEngine::Command&) {
        EXPECT_THROW(engine->stop(), std::logic_error);
        return Arrays();
    });
    auto outcome = eval(u"stop");
    EXPECT_EQ(get(outcome), "ok");
}

}  // namespace
}  // namespace platform_testing
