// The composition of a client, for both protocol versions.

#include "common/createAttachedClient.hpp"
#include "common/test/support.hpp"
#include "common/test/versions.hpp"
#include "testing/FakeCmdDistributor.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace yvm::JSClient {
namespace {

using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;
using platform_testing::LogCapture;

const std::string liveness = "/yvm/a/connection/stillAlive";
const std::string logChannel = "yvm::JSClient::AttachedClient";

class AttachedClientTest : public testing::Test, public test::ForEachVersion {
  protected:
    std::unique_ptr<AttachedClientInterface> create(std::function<void(const std::string&)> disconnectHandler,
                                                    ApiVersion version = GetParam()) {
        return createAttachedClient(version, "/yvm/a", engine, service, std::move(disconnectHandler));
    }

    /// The channels that the services subscribe to, in order.
    static std::vector<std::string> channels() {
        return perVersion<std::vector<std::string>>(
            {"/yvm/a/subscribeEvent/request", "/yvm/a/disconnectEvent/request", "/yvm/a/cancel/request",
             "/yvm/a/feval/request", "/yvm/a/eval/request", "/yvm/a/setGlobalBreakpoint/request",
             "/yvm/a/clearGlobalBreakpoint/request", "/yvm/a/setLineBreakpoint/request",
             "/yvm/a/clearLineBreakpoint/request", "/yvm/a/breakInDebugger/request", "/yvm/sinks/set"},
            {"/yvm/a/yvmSinks/request", "/yvm/a/subscribeEvent/request", "/yvm/a/disconnectEvent/request",
             "/yvm/a/cancel/request", "/yvm/a/cancelGroup/request", "/yvm/a/feval/request",
             "/yvm/a/eval/request", "/yvm/a/interrupt/request", "/yvm/a/setGlobalBreakpoint/request",
             "/yvm/a/clearGlobalBreakpoint/request", "/yvm/a/setLineBreakpoint/request",
             "/yvm/a/clearLineBreakpoint/request", "/yvm/a/clearAllBreakpoints/request",
             "/yvm/a/breakInDebugger/request"});
    }
    static std::vector<std::string> subscribed() {
        std::vector<std::string> log;
        for (const auto& channel : channels()) {
            log.push_back("subscribe " + channel);
        }
        return log;
    }

    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    const std::shared_ptr<FakeYvm> engine = FakeYvm::create(platform_testing::FakeCmdDistributor::create());
};

INSTANTIATE_TEST_SUITE_P(Versions, AttachedClientTest, test::bothVersions(), test::nameOfVersion);

TEST_P(AttachedClientTest, WithoutAHandlerTheLivenessChannelIsLeftAlone) {
    const auto client = create({});
    EXPECT_EQ(service->subscriptionLog(), subscribed());
}

TEST_P(AttachedClientTest, AHandlerIsCalledWithTheFullNameOfTheLivenessChannel) {
    std::vector<std::string> disconnected;
    const auto client =
        create([&disconnected](const std::string& channel) { disconnected.push_back(channel); });
    service->fireSubscribe(liveness);
    service->fireUnsubscribe(liveness);
    EXPECT_EQ(disconnected, std::vector<std::string>{liveness});
}

TEST_P(AttachedClientTest, BuildsTheServicesBeforeTheMonitorAndDestroysItFirst) {
    auto expected = subscribed();
    for (const char* step : {"onSubscribe ", "onUnsubscribe ", "endOnUnsubscribe ", "endOnSubscribe "}) {
        expected.push_back(step + liveness);
    }
    // Last made first.
    const auto all = channels();
    std::transform(all.rbegin(), all.rend(), std::back_inserter(expected),
                   [](const std::string& channel) { return "unsubscribe " + channel; });
    create([](const std::string&) {}).reset();
    EXPECT_EQ(service->subscriptionLog(), expected);
}

TEST_P(AttachedClientTest, AFailedStepLeavesNothingBehind) {
    for (std::size_t after = 0; after < channels().size() + 2; ++after) {
        service->failNextSubscribe(FakeMessageService::Failure::invalidFuture, after);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { create([](const std::string&) {}); }),
                  "Future state isn't valid!");
        EXPECT_EQ(service->subscriberCount(), 0U);
    }
}

TEST_P(AttachedClientTest, ItsBeginningAndEndAreLogged) {
    const std::string identifier = std::to_string(engine->getIdentifier());
    const LogCapture log;
    auto client = create({});
    EXPECT_EQ(log.texts(logChannel, 8),
              std::vector<std::string>{"New attached client for YVM " + identifier + " at /yvm/a"});
    client.reset();
    EXPECT_EQ(log.texts(logChannel, 8).back(), "Destroying client for YVM " + identifier + " at /yvm/a");
    EXPECT_EQ(log.texts(logChannel, 8).size(), 2U);
}

TEST_P(AttachedClientTest, ItsEndIsLoggedBeforeItsServicesGo) {
    auto client = create([](const std::string&) {});
    const LogCapture log;
    client.reset();
    const auto records = log.records();
    ASSERT_FALSE(records.empty());
    EXPECT_TRUE(records.front().text.starts_with("Destroying client for YVM ")) << records.front().text;
    const auto endOf = [&records](const std::string& destructor) {
        return std::ranges::find_if(
            records, [&](const auto& record) { return record.text.find(destructor) != std::string::npos; });
    };
    // Last made first.
    EXPECT_NE(endOf("::~EvalFevalCancel("), records.end());
    EXPECT_NE(endOf("::~YVMSink("), records.end());
    EXPECT_EQ(endOf("::~YVMSink(") < endOf("::~EvalFevalCancel("), isR22a0());
}

TEST_P(AttachedClientTest, ReleasesItsEngineAndService) {
    std::weak_ptr<FakeYvm> weakEngine;
    {
        auto ownEngine = FakeYvm::create();
        weakEngine = ownEngine;
        const auto client = createAttachedClient(GetParam(), "/yvm/a", std::move(ownEngine), service, {});
        EXPECT_FALSE(weakEngine.expired());
    }
    EXPECT_TRUE(weakEngine.expired());
    EXPECT_EQ(service.use_count(), 1);
}

TEST_P(AttachedClientTest, AnUnsupportedVersionGivesAnEmptyPointer) {
    EXPECT_EQ(create({}, ApiVersion::Unsupported), nullptr);
    EXPECT_EQ(create({}, static_cast<ApiVersion>(3)), nullptr);
    EXPECT_TRUE(service->subscriptionLog().empty());
}

}  // namespace
}  // namespace yvm::JSClient
