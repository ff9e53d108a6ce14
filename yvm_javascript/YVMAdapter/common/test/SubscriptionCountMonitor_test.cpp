#include "common/SubscriptionCountMonitor.hpp"

#include "common/test/NullSubscriptions.hpp"
#include "common/test/support.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

namespace yvm::JSClient {
namespace {

using platform_testing::FakeMessageService;
using platform_testing::LogCapture;

const std::string channel = "/yvm/a/connection/stillAlive";
const std::string logChannel = "yvm::JSClient::SubscriptionCountMonitor";

class SubscriptionCountMonitorTest : public testing::Test {
  protected:
    void watch() {
        monitor.emplace(channel, service, [this](const std::string& gone) { disconnected.push_back(gone); });
    }

    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    std::vector<std::string> disconnected;
    std::optional<SubscriptionCountMonitor> monitor;
};

TEST_F(SubscriptionCountMonitorTest, OnlyTheLastSubscriberThatLeavesCounts) {
    watch();
    service->fireSubscribe(channel);
    service->fireSubscribe(channel);
    service->fireUnsubscribe(channel);
    EXPECT_TRUE(disconnected.empty());
    service->fireUnsubscribe(channel);
    EXPECT_EQ(disconnected, std::vector<std::string>{channel});
}

TEST_F(SubscriptionCountMonitorTest, TheHandlerIsCalledEachTimeTheLastOneLeaves) {
    watch();
    for (int round = 0; round < 2; ++round) {
        service->fireSubscribe(channel);
        service->fireUnsubscribe(channel);
    }
    EXPECT_EQ(disconnected, (std::vector<std::string>{channel, channel}));
}

TEST_F(SubscriptionCountMonitorTest, AnUnsubscribeWithoutASubscribeIsIgnored) {
    watch();
    const LogCapture log;
    service->fireUnsubscribe(channel);
    EXPECT_TRUE(disconnected.empty());
    service->fireSubscribe(channel);
    EXPECT_EQ(log.texts(logChannel, 8),
              (std::vector<std::string>{"unsubscription on " + channel + " old subscriptionCount: 0",
                                        "subscription on " + channel + " old subscriptionCount: 0"}));
}

TEST_F(SubscriptionCountMonitorTest, EachStepIsLogged) {
    const LogCapture log;
    watch();
    service->fireSubscribe(channel);
    service->fireUnsubscribe(channel);
    EXPECT_EQ(log.texts(logChannel, 8),
              (std::vector<std::string>{"Monitoring " + channel,
                                        "subscription on " + channel + " old subscriptionCount: 0",
                                        "unsubscription on " + channel + " old subscriptionCount: 1",
                                        "Calling disconnect handler for " + channel}));
}

TEST_F(SubscriptionCountMonitorTest, DestructionEndsBothSubscriptions) {
    watch();
    monitor.reset();
    EXPECT_EQ(service->subscriberCount(), 0U);
    EXPECT_EQ(service->subscriptionLog(),
              (std::vector<std::string>{"onSubscribe " + channel, "onUnsubscribe " + channel,
                                        "endOnUnsubscribe " + channel, "endOnSubscribe " + channel}));
    service->fireSubscribe(channel);
    service->fireUnsubscribe(channel);
    EXPECT_TRUE(disconnected.empty());
}

TEST_F(SubscriptionCountMonitorTest, AFailedRegistrationLeavesTheConstructorAndNothingBehind) {
    using Failure = FakeMessageService::Failure;
    for (const std::size_t after : {0U, 1U}) {
        service->failNextSubscribe(Failure::invalidFuture, after);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { watch(); }), "Future state isn't valid!");
        service->failNextSubscribe(Failure::cancelled, after);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { watch(); }), "Future has been cancelled.");
        EXPECT_EQ(service->subscriberCount(), 0U);
    }
}

TEST_F(SubscriptionCountMonitorTest, ANullSubscriptionLeavesTheConstructorAndNothingBehind) {
    for (const std::size_t successes : {0U, 1U}) {
        const auto nullService = std::make_shared<test::NullSubscriptions>(successes);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>(
                      [&] { SubscriptionCountMonitor(channel, nullService, [](const std::string&) {}); }),
                  "The message service gave no subscription to " + channel);
        const auto log = nullService->inner->subscriptionLog();
        EXPECT_EQ(log.size(), 2 * successes) << "what was begun has been ended";
    }
}

TEST_F(SubscriptionCountMonitorTest, AnExceptionOfTheHandlerGoesBackToTheService) {
    monitor.emplace(channel, service, [](const std::string&) { throw std::out_of_range("far out"); });
    service->fireSubscribe(channel);
    service->fireUnsubscribe(channel);
    ASSERT_EQ(service->callbackExceptions().size(), 1U);
    EXPECT_EQ(test::textThrownBy<std::out_of_range>(
                  [this] { std::rethrow_exception(service->callbackExceptions().front()); }),
              "far out");
}

}  // namespace
}  // namespace yvm::JSClient
