// Cancels and interrupts. Both protocol versions cancel one request, and r22a0 does not tell what became of
// it; groups and interrupts are of r24a0 alone.

#include "common/test/EvalFevalCancelFixture.hpp"
#include "common/test/versions.hpp"
#include "foundation/log/Severity.hpp"
#include "testing/FakeEngine.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace yvm::JSClient {
namespace {

using platform_testing::FakeEngine;
using platform_testing::LogCapture;
using test::expectPlainError;
using test::waitUntil;
using Status = RequestResponse::Status;

/// One request in flight, or several, of a client whose distributor and engine are the test's.
class CancelFixture : public EvalFevalCancelFixture {
  protected:
    explicit CancelFixture(ApiVersion ownVersion) : EvalFevalCancelFixture(ownVersion) { create(); }
    /// A continuation that is still under way would write to the log, or end the service, in the next test.
    ~CancelFixture() override {
        EXPECT_TRUE(waitUntil([this] {
            return client.use_count() <= 1 && countOf(foundation::log::FunctionEntry, "::completeCancel(") ==
                                                  countOf(foundation::log::FunctionExit, "::completeCancel(");
        }));
    }

    std::ptrdiff_t countOf(unsigned severity, const std::string& part) const {
        return std::ranges::count_if(log.texts(logChannel, severity), [&part](const std::string& text) {
            return text.find(part) != std::string::npos;
        });
    }

    /// An eval that waits to be settled.
    CmdDistributor::IDType submit(const std::string& requestID) {
        eval(R"({"requestID":")" + requestID + R"(","command":"x"})");
        return lastId();
    }
    void cancel(const std::string& message) { request("cancel", message); }
    /// What a cancel answers; waits for it, since it comes on a thread of its own.
    std::string answer(std::size_t count = 1) const {
        return service->waitForPublication("/yvm/a/cancel/response", count).text;
    }

    LogCapture log;
};

/// The answer to a cancel, which in r22a0 is the identifier alone.
std::string cancelAnswer(ApiVersion version, const std::string& requestID, const std::string& status) {
    return version == ApiVersion::r22a0
               ? R"({"requestID":")" + requestID + R"("})"
               : R"({"cancelStatus":")" + status + R"(","requestID":")" + requestID + R"("})";
}

class CancelTest : public CancelFixture, public test::ForEachVersion {
  protected:
    CancelTest() : CancelFixture(GetParam()) {}
};

class CancelInR22a0Test : public CancelFixture {
  protected:
    CancelInR22a0Test() : CancelFixture(ApiVersion::r22a0) {}
};

class CancelInR24a0Test : public CancelFixture {
  protected:
    CancelInR24a0Test() : CancelFixture(ApiVersion::r24a0) {}
};

INSTANTIATE_TEST_SUITE_P(Versions, CancelTest, test::bothVersions(), test::nameOfVersion);

TEST_P(CancelTest, CancelOfAnUnknownIdAnswersAlreadyDone) {
    log.clear();
    cancel(R"({"requestID":"2","requestIDtoCancel":"never"})");
    EXPECT_EQ(onlyText("/yvm/a/cancel/response"),
              cancelAnswer(version, "2", "UNABLE_TO_CANCEL_ALREADY_DONE"));
    EXPECT_EQ(log.texts(logChannel, 8),
              std::vector<std::string>{perVersion("Responding to cancel request 2 for canceling never",
                                                  "Returning early due to missing ID never")});
    EXPECT_TRUE(distributor->cancels().empty());
}

TEST_P(CancelTest, CancelOfAFinishedRequestAnswersAlreadyDoneWithoutTheDistributor) {
    const auto submitFeval = [this] {
        feval(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
        return lastId();
    };
    const RuntimeException error(Status::CommandFailed, std::u16string(u"no"));
    for (const auto& finish : std::vector<std::function<void()>>{
             [this] { distributor->succeed(submit("1")); }, [&] { distributor->fail(submit("1"), error); },
             [&] { distributor->succeed(submitFeval()); },
             [&] { distributor->fail(submitFeval(), error); }}) {
        finish();
        service->clearPublications();
        cancel(R"({"requestID":"2","requestIDtoCancel":"1","interrupt":true})");
        EXPECT_EQ(onlyText("/yvm/a/cancel/response"),
                  cancelAnswer(version, "2", "UNABLE_TO_CANCEL_ALREADY_DONE"));
        EXPECT_TRUE(distributor->cancels().empty());
    }
}

TEST_F(CancelInR24a0Test, EachStatusOfTheDistributorIsAnsweredByItsText) {
    submit("1");
    std::size_t count = 0;
    for (const auto& [status, text] :
         {std::pair(0, "UNABLE_TO_CANCEL_ALREADY_DONE"), std::pair(1, "UNABLE_TO_CANCEL_OTHER"),
          std::pair(2, "CANCEL_BEFORE_RUNNING"), std::pair(3, "CANCEL_WHILE_RUNNING"),
          std::pair(4, "unknown 4"), std::pair(7, "unknown 7"), std::pair(-1, "unknown -1")}) {
        distributor->answerCancels(static_cast<CmdDistributor::CancelStatus>(status));
        cancel(R"({"requestID":"c","requestIDtoCancel":"1"})");
        EXPECT_EQ(answer(++count), std::string(R"({"cancelStatus":")") + text + R"(","requestID":"c"})");
    }
}

TEST_P(CancelTest, TheDistributorIsAskedForTheIdentityOfTheSubmissionAndToInterruptOnlyIfTheMessageSaysSo) {
    const auto evalId = submit("1");
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    const auto fevalId = lastId();
    cancel(R"({"requestID":"c","requestIDtoCancel":"1"})");
    cancel(R"({"requestID":"c","requestIDtoCancel":"2","interrupt":true})");
    cancel(R"({"requestID":"c","requestIDtoCancel":"1","interrupt":false})");
    answer(3);
    const auto cancels = distributor->cancels();
    ASSERT_EQ(cancels.size(), 3U);
    EXPECT_EQ(cancels[0].id, evalId);
    EXPECT_FALSE(cancels[0].interrupt);
    EXPECT_EQ(cancels[1].id, fevalId);
    EXPECT_TRUE(cancels[1].interrupt);
    EXPECT_EQ(cancels[2].id, evalId);
    EXPECT_FALSE(cancels[2].interrupt);
}

TEST_P(CancelTest, ACancelLeavesTheEntrySoThatASecondReachesTheDistributorAgain) {
    const auto id = submit("1");
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    EXPECT_EQ(answer(1), cancelAnswer(version, "2", "UNABLE_TO_CANCEL_OTHER"));
    distributor->answerCancels(CmdDistributor::CANCEL_BEFORE_RUNNING);
    cancel(R"({"requestID":"3","requestIDtoCancel":"1"})");
    EXPECT_EQ(answer(2), cancelAnswer(version, "3", "CANCEL_BEFORE_RUNNING"));
    EXPECT_EQ(distributor->cancels().size(), 2U);
    distributor->succeed(id);
    EXPECT_EQ(evalResponses().size(), 1U) << "the request answers for itself";
}

TEST_F(CancelInR24a0Test, WhatThePromiseOfACancelHoldsIsAnsweredWhenItIsThere) {
    submit("1");
    boost::promise<CmdDistributor::CancelStatus> promise;
    distributor->answerCancels(promise.get_future().share());
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    cancel(R"({"requestID":"3","requestIDtoCancel":"1"})");
    EXPECT_TRUE(service->publications().empty());
    promise.set_value(CmdDistributor::CANCEL_WHILE_RUNNING);
    answer(2);
    std::set<std::string> texts;
    for (const auto& publication : service->publications()) {
        EXPECT_EQ(publication.channel, "/yvm/a/cancel/response");
        texts.insert(publication.text);
    }
    EXPECT_EQ(texts, (std::set<std::string>{R"({"cancelStatus":"CANCEL_WHILE_RUNNING","requestID":"2"})",
                                            R"({"cancelStatus":"CANCEL_WHILE_RUNNING","requestID":"3"})"}));
}

/// Notes the threads that publish.
class ThreadNotingMessageService final : public ForwardingMessageService {
  public:
    connector::Future<void> publish(const std::string& channel,
                                    connector::common::DataBuffer payload) override {
        {
            const std::lock_guard lock(mutex_);
            publishers_.push_back(std::this_thread::get_id());
        }
        return ForwardingMessageService::publish(channel, std::move(payload));
    }
    std::vector<std::thread::id> publishers() const {
        const std::lock_guard lock(mutex_);
        return publishers_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::thread::id> publishers_;  // guarded by mutex_
};

TEST_F(CancelInR24a0Test, TheAnswerOfAPromiseComesOnANewThreadWhetherItIsReadyOrNot) {
    const auto noting = std::make_shared<ThreadNotingMessageService>();
    client = createEvalFevalCancel(version, "/yvm/a", engine, noting);
    const auto deliver = [&noting](const std::string& channel, const std::string& message) {
        EXPECT_EQ(noting->inner->deliver("/yvm/a/" + channel + "/request", message), 1U);
    };
    deliver("eval", R"({"requestID":"1","command":"x"})");
    deliver("cancel", R"({"requestID":"2","requestIDtoCancel":"1"})");
    noting->inner->waitForPublication("/yvm/a/cancel/response", 1);
    boost::promise<CmdDistributor::CancelStatus> promise;
    distributor->answerCancels(promise.get_future().share());
    deliver("cancel", R"({"requestID":"3","requestIDtoCancel":"1"})");
    promise.set_value(CmdDistributor::CANCEL_WHILE_RUNNING);
    noting->inner->waitForPublication("/yvm/a/cancel/response", 2);
    const auto publishers = noting->publishers();
    ASSERT_EQ(publishers.size(), 2U);
    EXPECT_NE(publishers[0], std::this_thread::get_id());
    EXPECT_NE(publishers[1], std::this_thread::get_id());
}

TEST_F(CancelInR24a0Test, AFutureThatIsAsynchronousIsAnswered) {
    submit("1");
    distributor->answerCancels(
        boost::async(boost::launch::async, [] { return CmdDistributor::CANCEL_WHILE_RUNNING; }).share());
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    EXPECT_EQ(answer(), R"({"cancelStatus":"CANCEL_WHILE_RUNNING","requestID":"2"})");
}

TEST_F(CancelInR24a0Test, AFutureThatIsDeferredIsNeitherRunNorAnswered) {
    submit("1");
    bool ran = false;
    const auto deferred = boost::async(boost::launch::deferred, [&ran] {
                              ran = true;
                              return CmdDistributor::CANCEL_WHILE_RUNNING;
                          }).share();
    distributor->answerCancels(deferred);
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    distributor->answerCancels(CmdDistributor::UNABLE_TO_CANCEL_OTHER);
    EXPECT_FALSE(ran);
    EXPECT_TRUE(service->publications().empty());
    // Future and continuation own one another until it is ready.
    deferred.wait();
}

TEST_F(CancelInR22a0Test, ACancelIsAnsweredAtOnceWhateverBecomesOfIt) {
    submit("1");
    boost::promise<CmdDistributor::CancelStatus> pending;
    boost::promise<CmdDistributor::CancelStatus> failed;
    failed.set_exception(std::runtime_error("lost"));
    std::size_t count = 0;
    for (const auto& future : {pending.get_future().share(), failed.get_future().share(),
                               boost::shared_future<CmdDistributor::CancelStatus>()}) {
        distributor->answerCancels(future);
        cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
        EXPECT_EQ(service->publicationsOn("/yvm/a/cancel/response").size(), ++count);
        EXPECT_EQ(service->publications().back().text, R"({"requestID":"2"})");
    }
    EXPECT_EQ(distributor->cancels().size(), count);
}

TEST_F(CancelInR22a0Test, ACancelIsAnsweredOnTheThreadThatDeliversIt) {
    const auto noting = std::make_shared<ThreadNotingMessageService>();
    client = createEvalFevalCancel(version, "/yvm/a", engine, noting);
    noting->inner->deliver("/yvm/a/eval/request", R"({"requestID":"1","command":"x"})");
    noting->inner->deliver("/yvm/a/cancel/request", R"({"requestID":"2","requestIDtoCancel":"1"})");
    EXPECT_EQ(noting->publishers(), std::vector<std::thread::id>{std::this_thread::get_id()});
}

TEST_F(CancelInR24a0Test, AFutureWithoutAStateIsAnError) {
    submit("1");
    distributor->answerCancels(boost::shared_future<CmdDistributor::CancelStatus>());
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    expectPlainError(only("/yvm/a/cancel/response"), 2, boost::future_uninitialized().what());
}

TEST_P(CancelTest, ACancelThatThrowsIsAnError) {
    submit("1");
    distributor->failCancels(std::make_exception_ptr(std::runtime_error("no cancel")));
    log.clear();
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    expectPlainError(only("/yvm/a/cancel/response"), 2, "no cancel");
    EXPECT_EQ(test::memberOf(only("/yvm/a/cancel/response"), "requestID"), Value("2"));
    EXPECT_EQ(log.texts(logChannel, 8),
              perVersion<std::vector<std::string>>({}, {"Cancelling " + textOf(lastId())}));

    service->clearPublications();
    const RuntimeException error(Status::CommandFailed, std::u16string(u"no"), "Identifier");
    distributor->failCancels(std::make_exception_ptr(error));
    cancel(R"({"requestID":"3","requestIDtoCancel":"1"})");
    EXPECT_EQ(onlyText("/yvm/a/cancel/response"), errorResponse("3", error));
}

TEST_F(CancelInR24a0Test, ACancelWhoseFutureHoldsAnExceptionIsNotAnswered) {
    submit("1");
    boost::promise<CmdDistributor::CancelStatus> promise;
    distributor->answerCancels(promise.get_future().share());
    log.clear();
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    promise.set_exception(std::runtime_error("lost"));
    ASSERT_TRUE(
        waitUntil([this] { return countOf(foundation::log::FunctionExit, "::completeCancel(") == 1; }));
    EXPECT_TRUE(service->publications().empty());
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Cancelling " + textOf(lastId())});
}

TEST_F(CancelInR24a0Test, AnAnswerThatComesAfterTheServiceHasGoneIsDropped) {
    const auto id = submit("1");
    boost::promise<CmdDistributor::CancelStatus> promise;
    distributor->answerCancels(promise.get_future().share());
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    client.reset();
    const auto cancels = distributor->cancels();
    ASSERT_EQ(cancels.size(), 2U) << "one of the client, one of the end";
    EXPECT_EQ(cancels.back().id, id);
    EXPECT_TRUE(cancels.back().interrupt);
    log.clear();
    promise.set_value(CmdDistributor::CANCEL_WHILE_RUNNING);
    ASSERT_TRUE(waitUntil([this] { return !log.texts(logChannel, 8).empty(); }));
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Returning early due to null this"});
    EXPECT_TRUE(service->publications().empty());
}

TEST_P(CancelTest, ACancelThatEndsItsRequestOnTheSpotAnswersBoth) {
    const auto hook = boost::make_shared<CancelHook>();
    engine->setCmdDistributor(hook);
    eval(R"({"requestID":"1","command":"x"})");
    const RuntimeException error(Status::Cancelled, std::u16string(u"cancelled"));
    hook->onCancel = [&](const CmdDistributor::IDType&) { hook->delegate->fail(error); };
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    EXPECT_EQ(answer(), cancelAnswer(version, "2", "CANCEL_BEFORE_RUNNING"));
    ASSERT_EQ(evalResponses().size(), 1U);
    EXPECT_EQ(evalResponses().front().text, errorResponse("1", error));
    service->clearPublications();
    cancel(R"({"requestID":"3","requestIDtoCancel":"1"})");
    EXPECT_EQ(onlyText("/yvm/a/cancel/response"),
              cancelAnswer(version, "3", "UNABLE_TO_CANCEL_ALREADY_DONE"));
}

TEST_P(CancelTest, OfRequestsThatShareAnIDTheFirstIsCancelled) {
    const auto first = submit("1");
    const auto second = submit("1");
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    answer(1);
    ASSERT_EQ(distributor->cancels().size(), 1U);
    EXPECT_EQ(distributor->cancels().front().id, first);
    distributor->succeed(first);
    cancel(R"({"requestID":"3","requestIDtoCancel":"1"})");
    EXPECT_EQ(answer(2), cancelAnswer(version, "3", "UNABLE_TO_CANCEL_ALREADY_DONE"))
        << "the second cannot be cancelled";
    EXPECT_TRUE(distributor->isUnsettled(second));
    submit("1");
    cancel(R"({"requestID":"4","requestIDtoCancel":"1"})");
    answer(3);
    EXPECT_EQ(distributor->cancels().back().id, lastId())
        << "an identifier that is free again names the next";
}

TEST_P(CancelTest, TheEntryOfASubmissionThatThrewIsStillAskedFor) {
    distributor->failSubmissions(std::make_exception_ptr(std::runtime_error("the queue is full")));
    eval(R"({"requestID":"1","command":"x"})");
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    EXPECT_EQ(answer(), cancelAnswer(version, "2", "UNABLE_TO_CANCEL_OTHER"));
}

TEST_P(CancelTest, AnEntryWithoutADistributorIsAnError) {
    engine->setCmdDistributor(nullptr);
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    service->clearPublications();
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    expectPlainError(only("/yvm/a/cancel/response"), 2,
                     "Cannot find a distributor instance to cancel this YVM request");
}

TEST_P(CancelTest, AFaultOfTheMessageReachesNoDistributor) {
    submit("1");
    cancel(R"({"requestID":"2"})");
    expectPlainError(only("/yvm/a/cancel/response"), 2,
                     "key: requestIDtoCancel is missing from {\n  \"requestID\": \"2\"\n}");
    service->clearPublications();
    cancel(R"({"requestID":"2","interrupt":1})");
    expectPlainError(only("/yvm/a/cancel/response"), 2, "invalid conversion: double to boolean");
    service->clearPublications();
    cancel(R"({"requestID":"2","requestIDtoCancel":null})");
    expectPlainError(only("/yvm/a/cancel/response"), 2, "invalid conversion: null to string");
    EXPECT_TRUE(distributor->cancels().empty());
}

TEST_P(CancelTest, EachStepOfACancelIsLogged) {
    const auto id = textOf(submit("1"));
    log.clear();
    cancel(R"({"requestID":"2","requestIDtoCancel":"1"})");
    answer();
    EXPECT_EQ(log.texts(logChannel, 8),
              perVersion<std::vector<std::string>>(
                  {"Responding to cancel request 2 for canceling 1"},
                  {"Cancelling " + id, "Responding to cancel request 2 for canceling 1"}));
}

TEST_F(CancelInR24a0Test, AGroupIsCancelledByItsNameAndAnsweredByTheRequestIDAlone) {
    submit("1");
    request("cancelGroup", R"({"requestID":"2","requestGroupNametoCancel":"plots","interrupt":true})");
    EXPECT_EQ(onlyText("/yvm/a/cancelGroup/response"), R"({"requestID":"2"})");
    service->clearPublications();
    request("cancelGroup", R"({"requestID":"3","requestGroupNametoCancel":""})");
    EXPECT_EQ(onlyText("/yvm/a/cancelGroup/response"), R"({"requestID":"3"})");
    const auto groupCancels = distributor->groupCancels();
    ASSERT_EQ(groupCancels.size(), 2U);
    EXPECT_EQ(groupCancels[0].groupName, "plots");
    EXPECT_TRUE(groupCancels[0].interrupt);
    EXPECT_EQ(groupCancels[1].groupName, "");
    EXPECT_FALSE(groupCancels[1].interrupt);
    EXPECT_TRUE(distributor->cancels().empty());
    cancel(R"({"requestID":"4","requestIDtoCancel":"1"})");
    EXPECT_EQ(answer(), R"({"cancelStatus":"UNABLE_TO_CANCEL_OTHER","requestID":"4"})")
        << "a group cancel takes nothing out of the registry";
}

TEST_F(CancelInR24a0Test, AGroupCancelThatFailsIsAnError) {
    distributor->failCancels(std::make_exception_ptr(std::runtime_error("no cancel")));
    request("cancelGroup", R"({"requestID":"2","requestGroupNametoCancel":"plots"})");
    expectPlainError(only("/yvm/a/cancelGroup/response"), 2, "no cancel");
    service->clearPublications();
    const RuntimeException error(Status::CommandFailed, std::u16string(u"no"), "Identifier");
    distributor->failCancels(std::make_exception_ptr(error));
    request("cancelGroup", R"({"requestID":"3","requestGroupNametoCancel":"plots"})");
    EXPECT_EQ(onlyText("/yvm/a/cancelGroup/response"), errorResponse("3", error));
    service->clearPublications();
    engine->setCmdDistributor(nullptr);
    request("cancelGroup", R"({"requestID":"4","requestGroupNametoCancel":"plots"})");
    expectPlainError(only("/yvm/a/cancelGroup/response"), 2,
                     "Cannot find a distributor instance to cancel this YVM request group");
    service->clearPublications();
    request("cancelGroup", R"({"requestID":"5"})");
    expectPlainError(only("/yvm/a/cancelGroup/response"), 2,
                     "key: requestGroupNametoCancel is missing from {\n  \"requestID\": \"5\"\n}");
}

TEST_F(CancelInR24a0Test, AGroupCancelIsLoggedAlsoWhenItFails) {
    log.clear();
    request("cancelGroup", R"({"requestID":"2","requestGroupNametoCancel":"plots"})");
    distributor->failCancels(std::make_exception_ptr(std::runtime_error("no cancel")));
    request("cancelGroup", R"({"requestID":"3","requestGroupNametoCancel":"plots"})");
    EXPECT_EQ(log.texts(logChannel, 8),
              (std::vector<std::string>{"Responding to cancel group request name2 for canceling plots",
                                        "Responding to cancel group request name3 for canceling plots"}));
}

TEST_F(CancelInR24a0Test, AnInterruptBreaksIntoTheEngineAndAsksNoDistributor) {
    submit("1");
    request("interrupt", R"({"requestID":"2","requestIDtoCancel":"1"})");
    EXPECT_EQ(onlyText("/yvm/a/interrupt/response"), R"({"requestID":"2"})");
    EXPECT_EQ(engine->interruptCount(), 1);
    EXPECT_TRUE(distributor->cancels().empty());
    EXPECT_TRUE(distributor->groupCancels().empty());
}

TEST_F(CancelInR24a0Test, AnInterruptThatFailsIsAnError) {
    engine->failInterrupts(std::make_exception_ptr(std::runtime_error("no interrupt")));
    request("interrupt", R"({"requestID":"2"})");
    expectPlainError(only("/yvm/a/interrupt/response"), 2, "no interrupt");
    service->clearPublications();
    const RuntimeException error(Status::ShuttingDown, std::u16string(u"no"), "Identifier");
    engine->failInterrupts(std::make_exception_ptr(error));
    request("interrupt", R"({"requestID":"3"})");
    EXPECT_EQ(onlyText("/yvm/a/interrupt/response"), errorResponse("3", error));
    engine->failInterrupts(std::make_exception_ptr(7));
    service->clearPublications();
    request("interrupt", R"({"requestID":"4"})");
    expectPlainError(only("/yvm/a/interrupt/response"), 2, "Unknown Exception");
}

TEST_P(CancelTest, AMessageWithoutARequestIDStopsNothing) {
    submit("1");
    cancel(R"({"requestIDtoCancel":"1"})");
    service->deliver("/yvm/a/cancelGroup/request", R"({"requestGroupNametoCancel":"plots"})");
    service->deliver("/yvm/a/interrupt/request", R"({"requestID":1})");
    EXPECT_TRUE(service->publications().empty());
    EXPECT_TRUE(distributor->cancels().empty());
    EXPECT_TRUE(distributor->groupCancels().empty());
    EXPECT_EQ(engine->interruptCount(), 0);
}

/// What becomes of a request, by the moment at which it is stopped: on an engine that runs a command, "busy",
/// until it is let go, while others wait.
class StopFixture : public testing::Test {
  protected:
    explicit StopFixture(ApiVersion ownVersion) : version(ownVersion) {
        engine->onEval(u"busy", [this](FakeEngine::Command& command) {
            started.set_value();
            while (!released) {
                command.preemptionPoint();
                std::this_thread::yield();
            }
            return YVM::Arrays();
        });
        engine->onEval(u"next", [this](FakeEngine::Command&) {
            ++nextRuns;
            return YVM::Arrays();
        });
        eval("busy", "1");
        started.get_future().wait();
    }
    ~StopFixture() override {
        released = true;
        engine->stop();
        EXPECT_TRUE(waitUntil([this] { return client.use_count() <= 1; }));
    }

    void eval(const std::string& command, const std::string& requestID, const std::string& groups = "") {
        request("eval", R"({"requestID":")" + requestID + R"(","command":")" + command +
                            R"(","runOptions":{"groupNames":[)" + groups + "]}}");
    }
    void request(const std::string& channel, const std::string& message) {
        ASSERT_EQ(service->deliver("/yvm/a/" + channel + "/request", message), 1U);
    }
    std::string response(const std::string& channel, std::size_t count = 1) const {
        return service->waitForPublication("/yvm/a/" + channel + "/response", count).text;
    }
    /// The identifier of the error in a response; empty without one.
    static std::string failure(const std::string& response) {
        const auto members = test::parseObject(response);
        const auto error = members.find("error");
        return error == members.end() ? "" : test::memberOf(error->second, "identifier").as<std::string>();
    }

    const ApiVersion version;
    std::promise<void> started;
    std::atomic<bool> released{false};
    std::atomic<int> nextRuns{0};
    const std::shared_ptr<platform_testing::FakeMessageService> service =
        platform_testing::FakeMessageService::create();
    const std::shared_ptr<FakeEngine> engine = FakeEngine::create();
    std::shared_ptr<void> client = createEvalFevalCancel(version, "/yvm/a", engine, service);
};

class StopTest : public StopFixture, public test::ForEachVersion {
  protected:
    StopTest() : StopFixture(GetParam()) {}
};

class StopInR24a0Test : public StopFixture {
  protected:
    StopInR24a0Test() : StopFixture(ApiVersion::r24a0) {}
};

INSTANTIATE_TEST_SUITE_P(Versions, StopTest, test::bothVersions(), test::nameOfVersion);

TEST_P(StopTest, ARequestThatWaitsIsCancelledAndNeverRuns) {
    eval("next", "2");
    request("cancel", R"({"requestID":"c","requestIDtoCancel":"2"})");
    EXPECT_EQ(response("cancel"), cancelAnswer(version, "c", "CANCEL_BEFORE_RUNNING"));
    EXPECT_EQ(failure(response("eval")), cmddistributor::cancelledIdentifier);
    released = true;
    EXPECT_EQ(response("eval", 2), R"({"requestID":"1"})");
    EXPECT_EQ(nextRuns, 0);
}

TEST_P(StopTest, ARequestThatRunsIsStoppedByACancelWithInterrupt) {
    request("cancel", R"({"requestID":"c","requestIDtoCancel":"1","interrupt":true})");
    EXPECT_EQ(response("cancel"), cancelAnswer(version, "c", "CANCEL_WHILE_RUNNING"));
    EXPECT_EQ(failure(response("eval")), FakeEngine::interruptedIdentifier);
}

TEST_P(StopTest, ARequestThatRunsIsLeftAloneByACancelWithoutInterrupt) {
    request("cancel", R"({"requestID":"c","requestIDtoCancel":"1"})");
    EXPECT_EQ(response("cancel"), cancelAnswer(version, "c", "UNABLE_TO_CANCEL_OTHER"));
    released = true;
    EXPECT_EQ(response("eval"), R"({"requestID":"1"})");
    request("cancel", R"({"requestID":"d","requestIDtoCancel":"1","interrupt":true})");
    EXPECT_EQ(response("cancel", 2), cancelAnswer(version, "d", "UNABLE_TO_CANCEL_ALREADY_DONE"));
}

TEST_F(StopInR24a0Test, AGroupCancelReachesItsGroupAlone) {
    eval("next", "2", R"("plots")");
    eval("next", "3", R"("other")");
    eval("next", "4", R"("more","plots")");
    request("cancelGroup", R"({"requestID":"c","requestGroupNametoCancel":"plots","interrupt":true})");
    EXPECT_EQ(response("cancelGroup"), R"({"requestID":"c"})");
    EXPECT_EQ(service->publicationsOn("/yvm/a/eval/response").size(), 2U);
    EXPECT_TRUE(response("eval", 1).find(R"("requestID":"2")") != std::string::npos);
    EXPECT_EQ(failure(response("eval", 1)), cmddistributor::cancelledIdentifier);
    EXPECT_TRUE(response("eval", 2).find(R"("requestID":"4")") != std::string::npos);
    EXPECT_EQ(failure(response("eval", 2)), cmddistributor::cancelledIdentifier);
    released = true;
    EXPECT_EQ(response("eval", 3), R"({"requestID":"1"})");
    EXPECT_EQ(response("eval", 4), R"({"requestID":"3"})");
    EXPECT_EQ(nextRuns, 1);
}

TEST_F(StopInR24a0Test, AGroupCancelStopsWhatRunsOnlyWithInterrupt) {
    released = true;
    response("eval");
    released = false;
    started = std::promise<void>();
    eval("busy", "2", R"("plots")");
    started.get_future().wait();
    request("cancelGroup", R"({"requestID":"c","requestGroupNametoCancel":"plots"})");
    EXPECT_EQ(service->publicationsOn("/yvm/a/eval/response").size(), 1U);
    request("cancelGroup", R"({"requestID":"d","requestGroupNametoCancel":"plots","interrupt":true})");
    EXPECT_EQ(failure(response("eval", 2)), FakeEngine::interruptedIdentifier);
}

TEST_F(StopInR24a0Test, AnInterruptStopsWhatRunsAndNotWhatComesNext) {
    eval("next", "2");
    request("interrupt", R"({"requestID":"i"})");
    EXPECT_EQ(response("interrupt"), R"({"requestID":"i"})");
    EXPECT_EQ(failure(response("eval", 1)), FakeEngine::interruptedIdentifier);
    EXPECT_EQ(response("eval", 2), R"({"requestID":"2"})");
    request("interrupt", R"({"requestID":"j"})");
    EXPECT_EQ(response("interrupt", 2), R"({"requestID":"j"})");
    eval("next", "3");
    EXPECT_EQ(response("eval", 3), R"({"requestID":"3"})");
}

TEST_P(StopTest, TheEndOfAClientStopsWhatRunsAndWhatWaitsNeverRuns) {
    for (int number = 0; number < 2000; ++number) {
        eval("next", "w" + std::to_string(number));
    }
    client.reset();
    const auto other = createEvalFevalCancel(version, "/yvm/b", engine, service);
    EXPECT_EQ(service->deliver("/yvm/b/eval/request", R"({"requestID":"3","command":"next"})"), 1U);
    EXPECT_EQ(service->waitForPublication("/yvm/b/eval/response").text, R"({"requestID":"3"})");
    EXPECT_EQ(nextRuns, 1) << "of the other client";
    EXPECT_EQ(service->publications().size(), 1U) << "nothing is answered to who has gone";
}

}  // namespace
}  // namespace yvm::JSClient
