#include "r24a0/AttachedClient.hpp"

#include "common/createAttachedClient.hpp"
#include "common/test/support.hpp"
#include "testing/FakeCmdDistributor.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace yvm::JSClient::r24a0 {
namespace {

using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;
using platform_testing::LogCapture;

const std::string liveness = "/yvm/a/connection/stillAlive";
const std::string logChannel = "yvm::JSClient::AttachedClient";

class AttachedClientTest : public testing::Test {
  protected:
    std::unique_ptr<AttachedClientInterface> create(std::function<void(const std::string&)> disconnectHandler,
                                                    ApiVersion version = ApiVersion::r24a0) {
        return createAttachedClient(version, "/yvm/a", engine, service, std::move(disconnectHandler));
    }

    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    const std::shared_ptr<FakeYvm> engine = FakeYvm::create(platform_testing::FakeCmdDistributor::create());
};

TEST_F(AttachedClientTest, WithoutAHandlerTheLivenessChannelIsLeftAlone) {
    const auto client = create({});
    EXPECT_EQ(
        service->subscriptionLog(),
        (std::vector<std::string>{
            "subscribe /yvm/a/yvmSinks/request", "subscribe /yvm/a/subscribeEvent/request",
            "subscribe /yvm/a/disconnectEvent/request", "subscribe /yvm/a/cancel/request",
            "subscribe /yvm/a/cancelGroup/request", "subscribe /yvm/a/feval/request",
            "subscribe /yvm/a/eval/request", "subscribe /yvm/a/interrupt/request",
            "subscribe /yvm/a/setGlobalBreakpoint/request", "subscribe /yvm/a/clearGlobalBreakpoint/request",
            "subscribe /yvm/a/setLineBreakpoint/request", "subscribe /yvm/a/clearLineBreakpoint/request",
            "subscribe /yvm/a/clearAllBreakpoints/request", "subscribe /yvm/a/breakInDebugger/request"}));
}

TEST_F(AttachedClientTest, AHandlerIsCalledWithTheFullNameOfTheLivenessChannel) {
    std::vector<std::string> disconnected;
    const auto client =
        create([&disconnected](const std::string& channel) { disconnected.push_back(channel); });
    service->fireSubscribe(liveness);
    service->fireUnsubscribe(liveness);
    EXPECT_EQ(disconnected, std::vector<std::string>{liveness});
}

TEST_F(AttachedClientTest, BuildsTheServicesBeforeTheMonitorAndDestroysItFirst) {
    create([](const std::string&) {}).reset();
    EXPECT_EQ(service->subscriptionLog(),
              (std::vector<std::string>{"subscribe /yvm/a/yvmSinks/request",
                                        "subscribe /yvm/a/subscribeEvent/request",
                                        "subscribe /yvm/a/disconnectEvent/request",
                                        "subscribe /yvm/a/cancel/request",
                                        "subscribe /yvm/a/cancelGroup/request",
                                        "subscribe /yvm/a/feval/request",
                                        "subscribe /yvm/a/eval/request",
                                        "subscribe /yvm/a/interrupt/request",
                                        "subscribe /yvm/a/setGlobalBreakpoint/request",
                                        "subscribe /yvm/a/clearGlobalBreakpoint/request",
                                        "subscribe /yvm/a/setLineBreakpoint/request",
                                        "subscribe /yvm/a/clearLineBreakpoint/request",
                                        "subscribe /yvm/a/clearAllBreakpoints/request",
                                        "subscribe /yvm/a/breakInDebugger/request",
                                        "onSubscribe " + liveness,
                                        "onUnsubscribe " + liveness,
                                        "endOnUnsubscribe " + liveness,
                                        "endOnSubscribe " + liveness,
                                        "unsubscribe /yvm/a/breakInDebugger/request",
                                        "unsubscribe /yvm/a/clearAllBreakpoints/request",
                                        "unsubscribe /yvm/a/clearLineBreakpoint/request",
                                        "unsubscribe /yvm/a/setLineBreakpoint/request",
                                        "unsubscribe /yvm/a/clearGlobalBreakpoint/request",
                                        "unsubscribe /yvm/a/setGlobalBreakpoint/request",
                                        "unsubscribe /yvm/a/interrupt/request",
                                        "unsubscribe /yvm/a/eval/request",
                                        "unsubscribe /yvm/a/feval/request",
                                        "unsubscribe /yvm/a/cancelGroup/request",
                                        "unsubscribe /yvm/a/cancel/request",
                                        "unsubscribe /yvm/a/disconnectEvent/request",
                                        "unsubscribe /yvm/a/subscribeEvent/request",
                                        "unsubscribe /yvm/a/yvmSinks/request"}));
}

TEST_F(AttachedClientTest, AFailedStepLeavesNothingBehind) {
    for (std::size_t after = 0; after < 14; ++after) {
        service->failNextSubscribe(FakeMessageService::Failure::invalidFuture, after);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { create([](const std::string&) {}); }),
                  "Future state isn't valid!");
        EXPECT_EQ(service->subscriberCount(), 0U);
    }
}

TEST_F(AttachedClientTest, ItsBeginningAndEndAreLogged) {
    const std::string identifier = std::to_string(engine->getIdentifier());
    const LogCapture log;
    auto client = create({});
    EXPECT_EQ(log.texts(logChannel, 8),
              std::vector<std::string>{"New attached client for YVM " + identifier + " at /yvm/a"});
    client.reset();
    EXPECT_EQ(log.texts(logChannel, 8).back(), "Destroying client for YVM " + identifier + " at /yvm/a");
    EXPECT_EQ(log.texts(logChannel, 8).size(), 2U);
}

TEST_F(AttachedClientTest, ItsEndIsLoggedBeforeItsServicesGo) {
    auto client = create([](const std::string&) {});
    const LogCapture log;
    client.reset();
    const auto records = log.records();
    ASSERT_FALSE(records.empty());
    EXPECT_TRUE(records.front().text.starts_with("Destroying client for YVM ")) << records.front().text;
    // Last made first.
    const auto endOf = [&records](const std::string& destructor) {
        return std::ranges::find_if(
            records, [&](const auto& record) { return record.text.find(destructor) != std::string::npos; });
    };
    EXPECT_LT(endOf("::~EvalFevalCancel("), endOf("::~YVMSink("));
    EXPECT_NE(endOf("::~YVMSink("), records.end());
}

TEST_F(AttachedClientTest, ReleasesItsEngineAndService) {
    std::weak_ptr<FakeYvm> weakEngine;
    {
        auto ownEngine = FakeYvm::create();
        weakEngine = ownEngine;
        const auto client =
            createAttachedClient(ApiVersion::r24a0, "/yvm/a", std::move(ownEngine), service, {});
        EXPECT_FALSE(weakEngine.expired());
    }
    EXPECT_TRUE(weakEngine.expired());
    EXPECT_EQ(service.use_count(), 1);
}

TEST_F(AttachedClientTest, AnUnsupportedVersionGivesAnEmptyPointer) {
    EXPECT_EQ(create({}, ApiVersion::Unsupported), nullptr);
    EXPECT_EQ(create({}, static_cast<ApiVersion>(3)), nullptr);
    EXPECT_TRUE(service->subscriptionLog().empty());
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
