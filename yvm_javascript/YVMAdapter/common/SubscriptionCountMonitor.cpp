#include "common/SubscriptionCountMonitor.hpp"

#include "common/awaitSubscription.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"

#include <utility>

namespace yvm::JSClient {

namespace {

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance =
        *new foundation::log::diagnostic_logger("yvm::JSClient::SubscriptionCountMonitor");
    return instance;
}

}  // namespace

SubscriptionCountMonitor::SubscriptionCountMonitor(
    const std::string& channel,
    const std::shared_ptr<connector::message_service::MessageService>& messageService,
    DisconnectHandler disconnectHandler)
    : disconnectHandler_(std::move(disconnectHandler)) {
    subscribeSubscription_ = awaitSubscription(
        messageService->onSubscribe(channel, [this](const auto& event) { onSubscribe(event); }), channel);
    unsubscribeSubscription_ = awaitSubscription(
        messageService->onUnsubscribe(channel, [this](const auto& event) { onUnsubscribe(event); }), channel);
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Monitoring " << channel;
}

void SubscriptionCountMonitor::onSubscribe(const connector::message_service::SubscribeEvent& event) {
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "subscription on " << event.channel << " old subscriptionCount: " << subscriptionCount_;
    ++subscriptionCount_;
}

void SubscriptionCountMonitor::onUnsubscribe(const connector::message_service::UnsubscribeEvent& event) {
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "unsubscription on " << event.channel << " old subscriptionCount: " << subscriptionCount_;
    if (subscriptionCount_ == 0) {
        return;
    }
    if (subscriptionCount_.fetch_sub(1) != 1) {
        return;
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Calling disconnect handler for " << event.channel;
    disconnectHandler_(event.channel);
}

}  // namespace yvm::JSClient
