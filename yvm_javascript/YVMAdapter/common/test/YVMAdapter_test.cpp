#include "common/YVMAdapter.hpp"

#include "common/YVMAdapterHolder.hpp"
#include "common/test/support.hpp"
#include "cppmicroservices/Framework.hpp"
#include "testing/FakeCmdDistributor.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>

/// What the framework calls after it has loaded the module.
extern "C" void _us_set_bundle_context_instance_com_yorworks_YVMAdapter(
    cppmicroservices::BundleContextPrivate* context);

namespace yvm::JSClient {
namespace {

using foundation::json::Value;
using platform_testing::FakeCmdDistributor;
using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;
using platform_testing::LogCapture;
using test::expectPlainError;

const std::string logChannel = "yvm::JSClient::YVMAdapter";

std::string attachMessage(const std::string& requestID, const std::string& versions = R"(["r24a0"])",
                          const std::string& yvmID = "user-yvm") {
    return R"({"requestID":")" + requestID + R"(","yvmID":")" + yvmID + R"(","supportedApiVersions":)" +
           versions + "}";
}

std::string attachAnswer(const std::string& requestID, const std::string& version = "r24a0") {
    return R"({"apiVersion":")" + version + R"(","channelPrefix":"/yvm/)" + requestID + R"(","requestID":")" +
           requestID + "\"}";
}

class YVMAdapterTest : public testing::Test {
  protected:
    YVMAdapterTest() {
        framework.Start();
        context = framework.GetBundleContext();
        _us_set_bundle_context_instance_com_yorworks_YVMAdapter(
            cppmicroservices::shareBundleContext(context));
    }

    ~YVMAdapterTest() override { _us_set_bundle_context_instance_com_yorworks_YVMAdapter(nullptr); }

    void start() {
        adapter = std::make_shared<YVMAdapter>();
        adapter->initializeMessageService();
    }

    cppmicroservices::ServiceRegistration registerEngine(std::shared_ptr<yvm::YVM> served,
                                                         bool userYvm = true) {
        return context.RegisterService<yvm::YVM>(std::move(served), {{"user-yvm", Value(userYvm)}});
    }

    void startWithEngine() {
        registerEngine(engine);
        start();
    }

    void attach(const std::string& message) {
        EXPECT_EQ(service->deliver("/yvm/attach/request", message), 1U);
    }
    void detach(const std::string& message) {
        EXPECT_EQ(service->deliver("/yvm/detach/request", message), 1U);
    }

    /// The texts published on the attach and the detach response channels, in order.
    std::vector<std::string> answers() const {
        std::vector<std::string> texts;
        for (const auto& publication : service->publications()) {
            EXPECT_TRUE(publication.channel == "/yvm/attach/response" ||
                        publication.channel == "/yvm/detach/response")
                << publication.channel;
            texts.push_back(publication.text);
        }
        return texts;
    }

    Value onlyAnswer() const {
        const auto texts = answers();
        EXPECT_EQ(texts.size(), 1U);
        return texts.size() == 1 ? foundation::json::parseText(texts.front()) : Value();
    }

    /// Attaches a client under `requestID` and has it evaluate.
    void expectFirstEngineServes(const std::string& requestID) {
        const std::size_t commandsBefore = commandCount();
        attach(attachMessage(requestID));
        service->deliver("/yvm/" + requestID + "/eval/request", R"({"requestID":"1","command":"1+1"})");
        EXPECT_EQ(commandCount(), commandsBefore + 1);
        EXPECT_TRUE(otherDistributor->commands().empty());
    }

    std::size_t commandCount() const { return distributor->commands().size(); }

    cppmicroservices::Framework framework;
    cppmicroservices::BundleContext context;
    platform_testing::FakeMessageServiceFactory factory;
    const std::shared_ptr<FakeMessageService> service = factory.service();
    const boost::shared_ptr<FakeCmdDistributor> distributor = FakeCmdDistributor::create();
    const std::shared_ptr<FakeYvm> engine = FakeYvm::create(distributor);
    const boost::shared_ptr<FakeCmdDistributor> otherDistributor = FakeCmdDistributor::create();
    const std::shared_ptr<FakeYvm> otherEngine = FakeYvm::create(otherDistributor);
    std::shared_ptr<YVMAdapter> adapter;
};

TEST_F(YVMAdapterTest, SubscribesAttachAndThenDetach) {
    start();
    EXPECT_EQ(factory.names(), std::vector<std::string>{"yvmJavascript"});
    EXPECT_EQ(service->subscriptionLog(),
              (std::vector<std::string>{"subscribe /yvm/attach/request", "subscribe /yvm/detach/request"}));
}

TEST_F(YVMAdapterTest, ASecondInitialisationReplacesTheConnections) {
    start();
    adapter->initializeMessageService();
    EXPECT_EQ(service->subscriptionLog(),
              (std::vector<std::string>{"subscribe /yvm/attach/request", "subscribe /yvm/detach/request",
                                        "unsubscribe /yvm/attach/request", "subscribe /yvm/attach/request",
                                        "unsubscribe /yvm/detach/request", "subscribe /yvm/detach/request"}));
}

TEST_F(YVMAdapterTest, AnAttachIsAnsweredWithVersionAndPrefix) {
    startWithEngine();
    attach(attachMessage("a"));
    EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer("a")});
}

TEST_F(YVMAdapterTest, TheChannelsOfAClientStandBeforeItsAttachIsAnswered) {
    startWithEngine();
    const LogCapture log;
    attach(attachMessage("a"));
    std::vector<std::string> order;
    for (const auto& record : log.records()) {
        if (record.text.starts_with("subscribe to ") || record.text.starts_with("response id") ||
            record.text.starts_with("New attached client")) {
            order.push_back(record.text);
        }
    }
    EXPECT_EQ(
        order,
        (std::vector<std::string>{
            "subscribe to /yvm/a/yvmSinks/request", "subscribe to /yvm/a/subscribeEvent/request",
            "subscribe to /yvm/a/disconnectEvent/request", "subscribe to /yvm/a/cancel/request",
            "subscribe to /yvm/a/cancelGroup/request", "subscribe to /yvm/a/feval/request",
            "subscribe to /yvm/a/eval/request", "subscribe to /yvm/a/interrupt/request",
            "subscribe to /yvm/a/setGlobalBreakpoint/request",
            "subscribe to /yvm/a/clearGlobalBreakpoint/request",
            "subscribe to /yvm/a/setLineBreakpoint/request",
            "subscribe to /yvm/a/clearLineBreakpoint/request",
            "subscribe to /yvm/a/clearAllBreakpoints/request", "subscribe to /yvm/a/breakInDebugger/request",
            "New attached client for YVM " + std::to_string(engine->getIdentifier()) + " at /yvm/a",
            "response id = a for /yvm/attach/response"}));
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"/yvm/a has requested attach"});
}

TEST_F(YVMAdapterTest, AnAttachedClientCanEvaluate) {
    startWithEngine();
    attach(attachMessage("a"));
    service->deliver("/yvm/a/eval/request", R"({"requestID":"1","command":"1+1"})");
    distributor->succeed(distributor->lastCommand().id);
    EXPECT_EQ(service->waitForPublication("/yvm/a/eval/response").text, R"({"requestID":"1"})");
}

TEST_F(YVMAdapterTest, TheLivenessChannelOfAnAttachedClientIsLeftAlone) {
    startWithEngine();
    attach(attachMessage("a"));
    EXPECT_EQ(
        service->subscriptionLog(),
        (std::vector<std::string>{
            "subscribe /yvm/attach/request", "subscribe /yvm/detach/request",
            "subscribe /yvm/a/yvmSinks/request", "subscribe /yvm/a/subscribeEvent/request",
            "subscribe /yvm/a/disconnectEvent/request", "subscribe /yvm/a/cancel/request",
            "subscribe /yvm/a/cancelGroup/request", "subscribe /yvm/a/feval/request",
            "subscribe /yvm/a/eval/request", "subscribe /yvm/a/interrupt/request",
            "subscribe /yvm/a/setGlobalBreakpoint/request", "subscribe /yvm/a/clearGlobalBreakpoint/request",
            "subscribe /yvm/a/setLineBreakpoint/request", "subscribe /yvm/a/clearLineBreakpoint/request",
            "subscribe /yvm/a/clearAllBreakpoints/request", "subscribe /yvm/a/breakInDebugger/request"}));
}

TEST_F(YVMAdapterTest, AnUnknownVersionHidesNoKnownOne) {
    startWithEngine();
    attach(attachMessage("a", R"(["r24a0","x"])"));
    attach(attachMessage("b", R"(["r22a0","r24a0"])"));
    attach(attachMessage("c", R"(["r24a0","r22a0"])"));
    EXPECT_EQ(answers(), (std::vector<std::string>{attachAnswer("a"), attachAnswer("b"), attachAnswer("c")}));
}

TEST_F(YVMAdapterTest, WithoutACommonVersionBothListsAreTold) {
    startWithEngine();
    attach(attachMessage("a", R"(["x"])"));
    expectPlainError(onlyAnswer(), 2,
                     "None of the requested API versions are supported: x\n"
                     "Supported API versions include: r22a0, r24a0");
    service->clearPublications();
    attach(attachMessage("a", R"(["x","y"])"));
    EXPECT_EQ(test::messageOf(onlyAnswer()),
              "None of the requested API versions are supported: x, y\n"
              "Supported API versions include: r22a0, r24a0");
    service->clearPublications();
    attach(attachMessage("a", "[]"));
    EXPECT_EQ(test::messageOf(onlyAnswer()),
              "None of the requested API versions are supported: \n"
              "Supported API versions include: r22a0, r24a0");
}

TEST_F(YVMAdapterTest, TheOlderVersionIsTakenWhenItIsTheOnlyCommonOne) {
    startWithEngine();
    attach(attachMessage("a", R"(["r22a0"])"));
    attach(attachMessage("b", R"(["r26a0","r22a0","R24A0"])"));
    EXPECT_EQ(answers(), (std::vector<std::string>{attachAnswer("a", "r22a0"), attachAnswer("b", "r22a0")}));
}

TEST_F(YVMAdapterTest, ClientsOfBothVersionsEvaluateOnOneEngineByTheirOwnServices) {
    startWithEngine();
    attach(attachMessage("a", R"(["r22a0"])"));
    attach(attachMessage("b", R"(["r24a0"])"));
    for (const auto& [client, tag] : {std::pair<std::string, const char*>("a", "r22a0/EvalFevalCancel"),
                                      std::pair<std::string, const char*>("b", "r24a0/EvalFevalCancel")}) {
        service->deliver("/yvm/" + client + "/eval/request", R"({"requestID":"1","command":"1+1"})");
        EXPECT_EQ(distributor->lastCommand().request->getSourceTag(), tag);
        distributor->succeed(distributor->lastCommand().id);
        EXPECT_EQ(service->publicationsOn("/yvm/" + client + "/eval/response").size(), 1U);
    }
    detach(R"({"requestID":"d","requestIDtoDetach":"a"})");
    EXPECT_EQ(service->deliver("/yvm/a/eval/request", R"({"requestID":"2","command":"1+1"})"), 0U);
    EXPECT_EQ(service->deliver("/yvm/b/eval/request", R"({"requestID":"2","command":"1+1"})"), 1U);
}

TEST_F(YVMAdapterTest, AnUnknownEngineIsRefused) {
    startWithEngine();
    const LogCapture log;
    attach(attachMessage("a", R"(["x"])", "other"));
    expectPlainError(onlyAnswer(), 5, "other is not supported");
    EXPECT_EQ(log.texts(logChannel, 512), std::vector<std::string>{"Unsupported YVM ID: other"});
    EXPECT_TRUE(log.texts(logChannel, 8).empty());
}

TEST_F(YVMAdapterTest, TheEngineIsComparedExactly) {
    startWithEngine();
    attach(attachMessage("a", R"(["r24a0"])", "user-yvm "));
    expectPlainError(onlyAnswer(), 5, "user-yvm  is not supported");
    service->clearPublications();
    attach(attachMessage("a", R"(["r24a0"])", ""));
    expectPlainError(onlyAnswer(), 5, " is not supported");
}

TEST_F(YVMAdapterTest, AMissingOrMistypedKeyOfAnAttachIsAnswered) {
    startWithEngine();
    const auto failure = [this](const std::string& message) {
        service->clearPublications();
        attach(message);
        EXPECT_EQ(test::statusOf(onlyAnswer()), 2);
        return test::messageOf(onlyAnswer());
    };
    EXPECT_EQ(failure(R"({"requestID":"a","supportedApiVersions":5})"),
              "key: yvmID is missing from {\n  \"requestID\": \"a\",\n  \"supportedApiVersions\": 5\n}");
    EXPECT_EQ(
        failure(R"({"requestID":"a","yvmID":"user-yvm"})"),
        "key: supportedApiVersions is missing from {\n  \"requestID\": \"a\",\n  \"yvmID\": \"user-yvm\"\n}");
    EXPECT_EQ(failure(R"({"requestID":"a","yvmID":null,"supportedApiVersions":5})"),
              "invalid conversion: null to string");
    EXPECT_EQ(failure(attachMessage("a", R"("r24a0")")), "invalid conversion: string to array");
    EXPECT_EQ(failure(attachMessage("a", R"(["r24a0",5])")), "invalid conversion: double to string");
}

TEST_F(YVMAdapterTest, AttachesWaitForTheEngineAndAreAnsweredInTheirOrder) {
    start();
    attach(attachMessage("b"));
    attach(attachMessage("a"));
    EXPECT_TRUE(answers().empty());
    registerEngine(engine);
    EXPECT_EQ(answers(), (std::vector<std::string>{attachAnswer("b"), attachAnswer("a")}));
    service->deliver("/yvm/a/eval/request", R"({"requestID":"1","command":"1+1"})");
    EXPECT_EQ(commandCount(), 1U);
}

TEST_F(YVMAdapterTest, ARefusedAttachDoesNotWaitForTheEngine) {
    start();
    attach(attachMessage("a", R"(["x"])"));
    attach(attachMessage("a", R"(["r24a0"])", "other"));
    EXPECT_EQ(answers().size(), 2U);
    registerEngine(engine);
    EXPECT_EQ(answers().size(), 2U);
}

TEST_F(YVMAdapterTest, AttachesOfBothVersionsWaitForTheEngineInOneOrder) {
    start();
    attach(attachMessage("a", R"(["r22a0"])"));
    attach(attachMessage("b"));
    attach(attachMessage("c", R"(["r22a0"])"));
    EXPECT_TRUE(answers().empty());
    registerEngine(engine);
    EXPECT_EQ(answers(), (std::vector<std::string>{attachAnswer("a", "r22a0"), attachAnswer("b"),
                                                   attachAnswer("c", "r22a0")}));
}

TEST_F(YVMAdapterTest, AnAttachThatWaitsIsLoggedWhenItIsAskedFor) {
    start();
    const LogCapture log;
    attach(attachMessage("a"));
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"/yvm/a has requested attach"});
    registerEngine(engine);
    EXPECT_EQ(log.texts(logChannel, 8).size(), 1U);
}

TEST_F(YVMAdapterTest, ADetachedAttachThatWaitsIsNeverAnswered) {
    start();
    attach(attachMessage("a"));
    attach(attachMessage("b"));
    detach(R"({"requestID":"d","requestIDtoDetach":"a"})");
    EXPECT_EQ(answers(), std::vector<std::string>{R"({"requestID":"d"})"});
    registerEngine(engine);
    EXPECT_EQ(answers(), (std::vector<std::string>{R"({"requestID":"d"})", attachAnswer("b")}));
}

TEST_F(YVMAdapterTest, OfTwoAttachesThatWaitUnderOneIDADetachRemovesTheFirst) {
    start();
    attach(attachMessage("a"));
    attach(attachMessage("a"));
    detach(R"({"requestID":"d","requestIDtoDetach":"a"})");
    registerEngine(engine);
    EXPECT_EQ(answers(), (std::vector<std::string>{R"({"requestID":"d"})", attachAnswer("a")}));
}

TEST_F(YVMAdapterTest, TwoAttachesWithOneIDAreAnsweredAndShareTheFirstClient) {
    startWithEngine();
    attach(attachMessage("a"));
    const LogCapture log;
    attach(attachMessage("a"));
    EXPECT_EQ(answers(), (std::vector<std::string>{attachAnswer("a"), attachAnswer("a")}));
    EXPECT_EQ(service->subscriberCount("/yvm/a/eval/request"), 1U);
    service->deliver("/yvm/a/eval/request", R"({"requestID":"1","command":"1+1"})");
    EXPECT_EQ(commandCount(), 1U);

    // The second client dies before its answer goes out.
    const auto records = log.records();
    const auto position = [&records](const std::string& start) {
        return std::ranges::find_if(records,
                                    [&](const auto& record) { return record.text.starts_with(start); }) -
               records.begin();
    };
    EXPECT_LT(position("Destroying client for YVM "), position("response id = a for /yvm/attach/response"));
}

TEST_F(YVMAdapterTest, ADetachIsAnsweredBeforeTheClientIsDestroyed) {
    startWithEngine();
    attach(attachMessage("a"));
    service->clearPublications();
    const LogCapture log;
    detach(R"({"requestID":"d","requestIDtoDetach":"a"})");
    EXPECT_EQ(answers(), std::vector<std::string>{R"({"requestID":"d"})"});
    EXPECT_EQ(service->subscriberCount("/yvm/a/eval/request"), 0U);
    std::vector<std::string> order;
    for (const auto& record : log.records()) {
        if (record.text.starts_with("response id") || record.text.starts_with("/yvm/") ||
            record.text.starts_with("Destroying")) {
            order.push_back(record.text);
        }
    }
    EXPECT_EQ(order,
              (std::vector<std::string>{
                  "response id = d for /yvm/detach/response", "/yvm/a has requested detach",
                  "Destroying client for YVM " + std::to_string(engine->getIdentifier()) + " at /yvm/a"}));
}

TEST_F(YVMAdapterTest, ADetachCancelsWhatItsClientHasInFlight) {
    startWithEngine();
    attach(attachMessage("a"));
    service->deliver("/yvm/a/eval/request", R"({"requestID":"1","command":"1+1"})");
    detach(R"({"requestID":"d","requestIDtoDetach":"a"})");
    ASSERT_EQ(distributor->cancels().size(), 1U);
    distributor->succeed(distributor->lastCommand().id);
    EXPECT_TRUE(service->publicationsOn("/yvm/a/eval/response").empty());
}

TEST_F(YVMAdapterTest, ADetachOfNobodyIsASuccess) {
    startWithEngine();
    detach(R"({"requestID":"d","requestIDtoDetach":"unknown"})");
    EXPECT_EQ(answers(), std::vector<std::string>{R"({"requestID":"d"})"});
}

TEST_F(YVMAdapterTest, ADetachThatNamesNothingIsAnswered) {
    startWithEngine();
    detach(R"({"requestID":"d","requestIDtoDetach":""})");
    expectPlainError(onlyAnswer(), 5, "requestIDtoDetach is missing");
    service->clearPublications();
    detach(R"({"requestID":"d"})");
    expectPlainError(onlyAnswer(), 2, "key: requestIDtoDetach is missing from {\n  \"requestID\": \"d\"\n}");
    service->clearPublications();
    detach(R"({"requestID":"d","requestIDtoDetach":5})");
    expectPlainError(onlyAnswer(), 2, "invalid conversion: double to string");
}

TEST_F(YVMAdapterTest, AnIDCanBeAttachedAgainAfterItsDetach) {
    startWithEngine();
    attach(attachMessage("a"));
    detach(R"({"requestID":"d","requestIDtoDetach":"a"})");
    attach(attachMessage("a"));
    EXPECT_EQ(service->subscriberCount("/yvm/a/eval/request"), 1U);
}

TEST_F(YVMAdapterTest, AClientThatCannotBeBuiltIsAnsweredByTheFailure) {
    startWithEngine();
    service->failNextSubscribe(FakeMessageService::Failure::invalidFuture, 1);
    attach(attachMessage("a"));
    expectPlainError(onlyAnswer(), 2, "Future state isn't valid!");
    EXPECT_EQ(service->subscriberCount("/yvm/a/feval/request"), 0U);
    service->clearPublications();
    attach(attachMessage("a"));
    EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer("a")});
}

TEST_F(YVMAdapterTest, AWaitingClientThatCannotBeBuiltFailsWhoeverBringsTheEngine) {
    start();
    attach(attachMessage("a"));
    attach(attachMessage("b"));
    service->failNextSubscribe(FakeMessageService::Failure::invalidFuture);
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { adapter->setYVMPtr(engine); }),
              "Future state isn't valid!");
    EXPECT_TRUE(answers().empty()) << "the steps behind it did not run";
    adapter->setYVMPtr(engine);
    EXPECT_EQ(answers(), (std::vector<std::string>{attachAnswer("a"), attachAnswer("b")}));
}

TEST_F(YVMAdapterTest, AnEngineThatIsNotForUsersIsIgnored) {
    registerEngine(engine, false);
    start();
    attach(attachMessage("a"));
    EXPECT_TRUE(answers().empty());
    registerEngine(FakeYvm::create(), false);
    EXPECT_TRUE(answers().empty());
    registerEngine(FakeYvm::create(distributor));
    EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer("a")});
}

TEST_F(YVMAdapterTest, AnEngineThatWasFoundStays) {
    auto registration = registerEngine(engine);
    start();
    registerEngine(otherEngine);
    expectFirstEngineServes("a");
    registration.Unregister();
    registerEngine(otherEngine);
    expectFirstEngineServes("b");
}

TEST_F(YVMAdapterTest, TheFirstEngineThatIsRegisteredLaterStays) {
    start();
    auto registration = registerEngine(engine);
    registerEngine(otherEngine);
    expectFirstEngineServes("a");
    registration.Unregister();
    registerEngine(otherEngine);
    expectFirstEngineServes("b");
}

TEST_F(YVMAdapterTest, AnEngineThatGoesIsNotNoticed) {
    auto registration = registerEngine(engine);
    start();
    registration.Unregister();
    attach(attachMessage("a"));
    EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer("a")});
}

TEST_F(YVMAdapterTest, OnlyARegistrationIsHeard) {
    auto registration = registerEngine(engine, false);
    start();
    attach(attachMessage("a"));
    registration.SetProperties({{"user-yvm", Value(true)}});
    registration.Unregister();
    EXPECT_TRUE(answers().empty());
}

TEST_F(YVMAdapterTest, ADisconnectedClientIsForgotten) {
    startWithEngine();
    attach(attachMessage("a"));
    attach(attachMessage("ab"));
    const LogCapture log;
    adapter->onClientDisconnected("/yvm/a/connection/stillAlive");
    EXPECT_EQ(service->subscriberCount("/yvm/a/eval/request"), 0U);
    EXPECT_EQ(service->subscriberCount("/yvm/ab/eval/request"), 1U);
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Client disconnected from /yvm/a"});
}

TEST_F(YVMAdapterTest, AChannelOfFewerThanThreeSlashesNamesNoClient) {
    startWithEngine();
    attach(attachMessage("a"));
    const LogCapture log;
    adapter->onClientDisconnected("/yvm/a");
    adapter->onClientDisconnected("");
    EXPECT_EQ(service->subscriberCount("/yvm/a/eval/request"), 1U);
    EXPECT_EQ(log.texts(logChannel, 8),
              (std::vector<std::string>{"Client disconnected from ", "Client disconnected from "}));
}

TEST_F(YVMAdapterTest, DestructionSilencesThePublicChannelsBeforeAnyClientGoes) {
    startWithEngine();
    attach(attachMessage("a"));
    const std::size_t before = service->subscriptionLog().size();
    adapter.reset();
    auto log = service->subscriptionLog();
    log.erase(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(
        log,
        (std::vector<std::string>{
            "unsubscribe /yvm/detach/request", "unsubscribe /yvm/attach/request",
            "unsubscribe /yvm/a/breakInDebugger/request", "unsubscribe /yvm/a/clearAllBreakpoints/request",
            "unsubscribe /yvm/a/clearLineBreakpoint/request", "unsubscribe /yvm/a/setLineBreakpoint/request",
            "unsubscribe /yvm/a/clearGlobalBreakpoint/request",
            "unsubscribe /yvm/a/setGlobalBreakpoint/request", "unsubscribe /yvm/a/interrupt/request",
            "unsubscribe /yvm/a/eval/request", "unsubscribe /yvm/a/feval/request",
            "unsubscribe /yvm/a/cancelGroup/request", "unsubscribe /yvm/a/cancel/request",
            "unsubscribe /yvm/a/disconnectEvent/request", "unsubscribe /yvm/a/subscribeEvent/request",
            "unsubscribe /yvm/a/yvmSinks/request"}));
}

/// Does what the test says when it is asked who it is, as a client asks that is being built.
class InquisitiveYvm final : public yvm::YVM {
  public:
    explicit InquisitiveYvm(std::function<void()> onIdentifier) : onIdentifier_(std::move(onIdentifier)) {}

    std::uint64_t getIdentifier() const override {
        onIdentifier_();
        return 7;
    }
    boost::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override { return {}; }
    void replaceSinks(Sink /*outSink*/, Sink /*errSink*/) override {}
    foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<yvm::YVM> /*self*/) override {
        return {};
    }
    void interrupt() override {}
    std::shared_ptr<ylutil::debugger::Debugger> getDebugger() override { return {}; }
    void breakInDebugger() override {}
    boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> getEventMgr() override { return {}; }

  private:
    std::function<void()> onIdentifier_;
};

TEST_F(YVMAdapterTest, TheThreadThatReleasesTheAdapterWaitsForAHandlerAndDestroysIt) {
    std::promise<void> entered;
    std::atomic<bool> left = false;
    std::once_flag firstTime;
    registerEngine(std::make_shared<InquisitiveYvm>([&] {
        std::call_once(firstTime, [&] {
            entered.set_value();
            if (test::waitUntil([this] { return service->subscriberCount("/yvm/attach/request") == 0; })) {
                left = true;
            }
        });
    }));
    start();
    const LogCapture log;  // turned off, the log asks for no identifier
    std::thread delivery([this] { attach(attachMessage("a")); });
    entered.get_future().wait();
    EXPECT_FALSE(left);
    adapter.reset();
    EXPECT_TRUE(left);
    EXPECT_EQ(service->subscriberCount(), 0U) << "those of the client that was being built included";
    delivery.join();
    EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer("a")});
}

TEST_F(YVMAdapterTest, DestructionWithoutAnEngineRemovesTheListener) {
    start();
    attach(attachMessage("a"));
    adapter.reset();
    registerEngine(engine);
    EXPECT_EQ(engine.use_count(), 2) << "the test and the registry hold it";
    EXPECT_TRUE(answers().empty());
}

TEST_F(YVMAdapterTest, AFailedMessageServiceLeavesTheHolderAndNoListener) {
    using Failure = FakeMessageService::Failure;
    const auto failure = [this](Failure kind) {
        factory.failNextCreate(kind);
        return test::textThrownBy<std::runtime_error>([] { YVMAdapterHolder(); });
    };
    EXPECT_EQ(failure(Failure::invalidFuture), "Future state isn't valid!");
    EXPECT_EQ(failure(Failure::cancelled), "Future has been cancelled.");
    EXPECT_EQ(failure(Failure::exceptionInFuture), "fake failure");
    registerEngine(engine);
    EXPECT_EQ(engine.use_count(), 2) << "the test and the registry hold it";
}

TEST_F(YVMAdapterTest, AFailedSubscriptionLeavesTheHolder) {
    for (const std::size_t after : {0U, 1U}) {
        service->failNextSubscribe(FakeMessageService::Failure::invalidFuture, after);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>([] { YVMAdapterHolder(); }),
                  "Future state isn't valid!");
        EXPECT_EQ(service->subscriberCount(), 0U);
    }
}

TEST_F(YVMAdapterTest, TheHolderStartsAndStopsTheAdapter) {
    registerEngine(engine);
    {
        const YVMAdapterHolder holder;
        attach(attachMessage("a"));
        EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer("a")});
    }
    EXPECT_EQ(service->subscriberCount(), 0U);
}

TEST_F(YVMAdapterTest, WithoutABundleContextThereIsNoAdapter) {
    _us_set_bundle_context_instance_com_yorworks_YVMAdapter(nullptr);
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([] { YVMAdapter(); }),
              "The bundle context is no longer valid");
}

}  // namespace
}  // namespace yvm::JSClient
