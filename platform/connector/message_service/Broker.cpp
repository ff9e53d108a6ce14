#include "connector/message_service/Broker.hpp"

#include "connector/message_service/detail/LanePool.hpp"
#include "connector/message_service/detail/Receiver.hpp"
#include "connector/message_service/detail/RouteTable.hpp"
#include "connector/message_service/detail/StartTrigger.hpp"
#include "connector/message_service/detail/channels.hpp"
#include "connector/message_service/detail/logger.hpp"

#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace connector::message_service {

namespace {

using detail::DeliveryPlace;
using detail::Receiver;
using detail::RouteTable;
using detail::StartTrigger;

class LocalBroker;

enum class Interest { messages, subscribing, unsubscribing };

class LocalSubscription final : public Subscription {
  public:
    LocalSubscription(std::shared_ptr<LocalBroker> broker, Interest interest,
                      std::shared_ptr<Receiver> receiver)
        : broker_(std::move(broker)), interest_(interest), receiver_(std::move(receiver)) {}
    ~LocalSubscription() override { end(); }

    Future<void> unsubscribe() override {
        end();
        return makeReadyFuture<void>();
    }

  private:
    void end();

    std::shared_ptr<LocalBroker> broker_;
    Interest interest_;
    std::shared_ptr<Receiver> receiver_;
};

/// The road of a message: `publish` collects its receivers under the routes' lock, calls the inline
/// ones, and posts a task for the others to the lane. A start trigger that matches is noted in the
/// task; the delivery thread then starts it, and only then collects the receivers.
///
/// Locks: `routesMutex_` is never held while a receiver is called or ended, nor with another lock.
class LocalBroker final : public Broker, public std::enable_shared_from_this<LocalBroker> {
  public:
    explicit LocalBroker(Options options)
        : stopTimeout_(options.stopTimeout),
          pool_(std::make_shared<detail::LanePool>(options.maxDeliveryThreads)) {}
    ~LocalBroker() override { stopPool(); }

    std::shared_ptr<MessageService> createService(const std::string& name) override;

    void publish(const std::string& channel, common::DataBuffer payload, const std::string& lane) override {
        route(channel, std::move(payload), lane);
    }

    std::shared_ptr<Subscription> subscribeInline(const std::string& channelOrPattern,
                                                  MessageService::MessageCallback callback) override {
        return subscribe(Interest::messages,
                         std::make_shared<Receiver>("an inline subscriber", channelOrPattern,
                                                    DeliveryPlace::publishingThread, std::move(callback)));
    }

    void addStartTrigger(const std::string& pattern, std::function<void()> onFirst) override {
        auto trigger = std::make_shared<StartTrigger>(pattern, std::move(onFirst));
        const std::lock_guard lock(routesMutex_);
        triggers_.push_back(std::move(trigger));
    }

    void start() override { pool_->start(); }
    void stop() override { stopPool(); }

    void route(const std::string& channel, common::DataBuffer payload, std::string_view lane);
    std::shared_ptr<Subscription> subscribe(Interest interest, std::shared_ptr<Receiver> receiver);
    void end(Interest interest, const std::shared_ptr<Receiver>& receiver);

  private:
    struct NotedTrigger {
        std::shared_ptr<StartTrigger> trigger;
        unsigned failures;
    };

    void stopPool();
    RouteTable& routes(Interest interest) noexcept;
    RouteTable::Targets collect(Interest interest, std::string_view channel);
    std::vector<NotedTrigger> noteTriggersLocked(std::string_view channel) const;
    void startAndDeliver(const std::vector<NotedTrigger>& noted, const JsonMessage& message);
    void tellListeners(Interest interest, const std::string& channelOrPattern);

    const std::chrono::milliseconds stopTimeout_;
    const std::shared_ptr<detail::LanePool> pool_;
    // Relaxed: a message that is just being published when the broker stops may go either way.
    std::atomic<bool> stopped_{false};

    mutable std::shared_mutex routesMutex_;
    // All below is guarded by routesMutex_.
    RouteTable messageRoutes_;
    RouteTable subscribeListeners_;
    RouteTable unsubscribeListeners_;
    std::vector<std::shared_ptr<StartTrigger>> triggers_;  // those that have not succeeded yet
};

class LocalService final : public MessageService {
  public:
    LocalService(std::shared_ptr<LocalBroker> broker, std::string name)
        : broker_(std::move(broker)), name_(std::move(name)) {}

    Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                    MessageCallback callback) override {
        return add(Interest::messages, channel, std::move(callback));
    }

    Future<void> publish(const std::string& channel, common::DataBuffer payload) override {
        broker_->route(channel, std::move(payload), detail::defaultLane(channel));
        return makeReadyFuture<void>();
    }

    Future<std::shared_ptr<Subscription>> onSubscribe(
        const std::string& channel, std::function<void(const SubscribeEvent&)> callback) override {
        return add(
            Interest::subscribing, channel,
            [callback = std::move(callback)](const JsonMessage& message) { callback({message.channel()}); });
    }

    Future<std::shared_ptr<Subscription>> onUnsubscribe(
        const std::string& channel, std::function<void(const UnsubscribeEvent&)> callback) override {
        return add(
            Interest::unsubscribing, channel,
            [callback = std::move(callback)](const JsonMessage& message) { callback({message.channel()}); });
    }

  private:
    Future<std::shared_ptr<Subscription>> add(Interest interest, const std::string& channel,
                                              MessageCallback callback) {
        auto receiver = std::make_shared<Receiver>(name_, channel, DeliveryPlace::lane, std::move(callback));
        return makeReadyFuture<std::shared_ptr<Subscription>>(
            broker_->subscribe(interest, std::move(receiver)));
    }

    const std::shared_ptr<LocalBroker> broker_;
    const std::string name_;
};

void deliver(const RouteTable::Receivers& receivers, const JsonMessage& message) noexcept {
    for (const auto& receiver : receivers) {
        receiver->receive(message);
    }
}

void LocalSubscription::end() {
    broker_->end(interest_, receiver_);
}

std::shared_ptr<MessageService> LocalBroker::createService(const std::string& name) {
    return std::make_shared<LocalService>(shared_from_this(), name);
}

RouteTable& LocalBroker::routes(Interest interest) noexcept {
    switch (interest) {
        case Interest::subscribing:
            return subscribeListeners_;
        case Interest::unsubscribing:
            return unsubscribeListeners_;
        case Interest::messages:
            break;
    }
    return messageRoutes_;
}

RouteTable::Targets LocalBroker::collect(Interest interest, std::string_view channel) {
    const std::shared_lock lock(routesMutex_);
    return routes(interest).collect(channel);
}

std::vector<LocalBroker::NotedTrigger> LocalBroker::noteTriggersLocked(std::string_view channel) const {
    std::vector<NotedTrigger> noted;
    for (const auto& trigger : triggers_) {
        if (trigger->matches(channel)) {
            noted.push_back({trigger, trigger->failures()});
        }
    }
    return noted;
}

void LocalBroker::route(const std::string& channel, common::DataBuffer payload, std::string_view lane) {
    if (stopped_.load(std::memory_order_relaxed)) {
        return;
    }
    RouteTable::Targets targets;
    std::vector<NotedTrigger> noted;
    {
        const std::shared_lock lock(routesMutex_);
        targets = messageRoutes_.collect(channel);
        noted = noteTriggersLocked(channel);
    }
    if (targets.inPublish.empty() && targets.inLane.empty() && noted.empty()) {
        return;
    }
    JsonMessage message(channel, std::move(payload));
    deliver(targets.inPublish, message);
    if (!noted.empty()) {
        // Weak: what waits in the pool must not keep the broker that owns the pool.
        pool_->post(lane,
                    [broker = weak_from_this(), noted = std::move(noted), message = std::move(message)] {
                        if (const auto self = broker.lock()) {
                            self->startAndDeliver(noted, message);
                        }
                    });
    } else if (!targets.inLane.empty()) {
        pool_->post(lane, [receivers = std::move(targets.inLane), message = std::move(message)] {
            deliver(receivers, message);
        });
    }
}

void LocalBroker::startAndDeliver(const std::vector<NotedTrigger>& noted, const JsonMessage& message) {
    for (const auto& [trigger, failures] : noted) {
        if (trigger->ensureStarted(failures)) {
            const std::lock_guard lock(routesMutex_);
            std::erase(triggers_, trigger);
        }
    }
    deliver(collect(Interest::messages, message.channel()).inLane, message);
}

std::shared_ptr<Subscription> LocalBroker::subscribe(Interest interest, std::shared_ptr<Receiver> receiver) {
    auto subscription = std::make_shared<LocalSubscription>(shared_from_this(), interest, receiver);
    {
        const std::lock_guard lock(routesMutex_);
        routes(interest).add(receiver);
    }
    if (interest == Interest::messages) {
        tellListeners(Interest::subscribing, receiver->channelOrPattern());
    }
    return subscription;
}

void LocalBroker::end(Interest interest, const std::shared_ptr<Receiver>& receiver) {
    {
        const std::lock_guard lock(routesMutex_);
        routes(interest).remove(receiver);
    }
    if (receiver->end() && interest == Interest::messages) {
        tellListeners(Interest::unsubscribing, receiver->channelOrPattern());
    }
}

void LocalBroker::tellListeners(Interest interest, const std::string& channelOrPattern) {
    if (detail::parsePattern(channelOrPattern).kind != detail::PatternKind::exact) {
        return;
    }
    auto listeners = collect(interest, channelOrPattern).inLane;
    if (listeners.empty()) {
        return;
    }
    // A lane apart from the messages': who waits for a subscriber to go must not wait for handlers.
    const std::string lane = "subscriptions of " + std::string(detail::defaultLane(channelOrPattern));
    pool_->post(lane, [listeners = std::move(listeners), message = JsonMessage(channelOrPattern, {})] {
        deliver(listeners, message);
    });
}

void LocalBroker::stopPool() {
    stopped_.store(true, std::memory_order_relaxed);
    if (const auto left = pool_->stop(stopTimeout_); left > 0) {
        FOUNDATION_LOG(detail::logger(), foundation::log::CaughtException)
            << "Callbacks that have not returned within " << stopTimeout_.count()
            << " ms and are left to themselves: " << left;
    }
}

}  // namespace

std::shared_ptr<Broker> Broker::create(Options options) {
    if (options.maxDeliveryThreads == 0) {
        throw std::invalid_argument("maxDeliveryThreads must be at least 1");
    }
    return std::make_shared<LocalBroker>(options);
}

Broker::~Broker() = default;

bool matchesPattern(std::string_view pattern, std::string_view channel) noexcept {
    const auto [kind, prefix] = detail::parsePattern(pattern);
    switch (kind) {
        case detail::PatternKind::children:
            return !detail::below(prefix, channel).empty() &&
                   detail::below(prefix, channel).find('/') == std::string_view::npos;
        case detail::PatternKind::descendants:
            return !detail::below(prefix, channel).empty();
        case detail::PatternKind::exact:
            break;
    }
    return channel == prefix;
}

}  // namespace connector::message_service
