#pragma once

#include "testing/FakeMessageService.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace yvm::JSClient::test {

/// A message service that confirms every subscription with a null pointer, behind the first `successes` of
/// them, which `inner` gives.
class NullSubscriptions final : public connector::message_service::MessageService {
  public:
    using SubscriptionFuture = connector::Future<std::shared_ptr<connector::message_service::Subscription>>;

    explicit NullSubscriptions(std::size_t successes) : successes_(successes) {}

    SubscriptionFuture subscribe(const std::string& channel, MessageCallback callback) override {
        return isNull() ? nullFuture() : inner->subscribe(channel, std::move(callback));
    }
    connector::Future<void> publish(const std::string& channel,
                                    connector::common::DataBuffer payload) override {
        return inner->publish(channel, std::move(payload));
    }
    SubscriptionFuture onSubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::SubscribeEvent&)> callback) override {
        return isNull() ? nullFuture() : inner->onSubscribe(channel, std::move(callback));
    }
    SubscriptionFuture onUnsubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::UnsubscribeEvent&)> callback) override {
        return isNull() ? nullFuture() : inner->onUnsubscribe(channel, std::move(callback));
    }

    const std::shared_ptr<platform_testing::FakeMessageService> inner =
        platform_testing::FakeMessageService::create();

  private:
    bool isNull() {
        if (successes_ == 0) {
            return true;
        }
        --successes_;
        return false;
    }
    static SubscriptionFuture nullFuture() {
        return connector::makeReadyFuture<std::shared_ptr<connector::message_service::Subscription>>(nullptr);
    }

    std::size_t successes_;
};

}  // namespace yvm::JSClient::test
