#pragma once

#include "connector/message_service/MessageService.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace yvm::JSClient {

/// Tells when the last subscriber has left a channel, on which no message needs to flow: a client stays
/// subscribed to it while it lives. The handler is called with the channel's name each time the count falls
/// from 1 to 0.
///
/// Threads: the events may come on any thread of the message service, also at the same time. The test for 0
/// and the subtraction are two steps, so two unsubscribe events that race at a count of 1 call the handler
/// once and leave the count wrapped.
class SubscriptionCountMonitor {
  public:
    using DisconnectHandler = std::function<void(const std::string&)>;

    /// Blocks until both registrations are confirmed and throws what `awaitSubscription` throws.
    /// `disconnectHandler` must not be empty; it runs on the delivering thread with no lock held, and its
    /// exceptions go back to the service.
    SubscriptionCountMonitor(
        const std::string& channel,
        const std::shared_ptr<connector::message_service::MessageService>& messageService,
        DisconnectHandler disconnectHandler);
    SubscriptionCountMonitor(const SubscriptionCountMonitor&) = delete;
    SubscriptionCountMonitor& operator=(const SubscriptionCountMonitor&) = delete;

  private:
    void onSubscribe(const connector::message_service::SubscribeEvent& event);
    void onUnsubscribe(const connector::message_service::UnsubscribeEvent& event);

    std::atomic<std::uint64_t> subscriptionCount_ = 0;
    DisconnectHandler disconnectHandler_;
    std::shared_ptr<connector::message_service::Subscription> subscribeSubscription_;
    std::shared_ptr<connector::message_service::Subscription> unsubscribeSubscription_;
};

}  // namespace yvm::JSClient
