#pragma once

#include "connector/message_service/Broker.hpp"
#include "server/bayeux/ClientTable.hpp"
#include "server/bayeux/Connection.hpp"
#include "server/bayeux/DeliveryQueue.hpp"
#include "server/bayeux/UnacknowledgedEvents.hpp"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace server::bayeux {

using Clock = std::chrono::steady_clock;

/// A connect that is answered later.
struct HeldConnect {
    std::weak_ptr<Connection> from;
    std::string id;
    Clock::time_point due;
};

/// What the server knows of one client between its handshake and its end. Lives on while its
/// connections come and go. Confined to the server's thread, but for its queue.
class Session {
  public:
    /// `address` is that of the peer that shook hands.
    Session(SessionNumber number, std::string clientId, std::string address,
            std::shared_ptr<DeliveryQueue> queue)
        : number_(number),
          clientId_(std::move(clientId)),
          address_(std::move(address)),
          queue_(std::move(queue)) {}

    SessionNumber number() const { return number_; }
    /// The client's proof of who it is. Never log it.
    const std::string& clientId() const { return clientId_; }
    const std::string& address() const { return address_; }
    /// All messages of the session are published in one lane, so that they keep their order.
    std::string lane() const { return "session/" + std::to_string(number_); }
    DeliveryQueue& queue() { return *queue_; }

    /// From now on events travel only with the replies to connects, and again until they are acknowledged.
    void acknowledgeEvents() { unacknowledged_.emplace(queue_); }
    /// Null unless events are acknowledged.
    UnacknowledgedEvents* unacknowledged() { return unacknowledged_ ? &*unacknowledged_ : nullptr; }

    /// What is to be sent next, bounded as `DeliveryQueue::take` says.
    bool hasEvents() const;
    std::vector<Event> nextEvents(std::size_t maxBytes);

    /// Both are idempotent. Some channels have no subscription with the broker: answers to attach and
    /// detach are routed by who asked. Of service channels no note is taken: nothing is published there.
    void subscribe(connector::message_service::Broker& broker, const std::string& pattern);
    void unsubscribe(const std::string& pattern);
    bool isSubscribedTo(const std::string& pattern) const { return subscriptions_.count(pattern) != 0; }

    std::size_t subscriptionCount() const { return subscriptions_.size(); }

    /// How many subscriptions the session has once it subscribed to all of `patterns`. Those that it has, or
    /// that repeat, count once.
    std::size_t subscriptionCountWith(const std::vector<std::string>& patterns) const;

    /// Ends all subscriptions of which `ends` holds.
    void unsubscribeWhere(const std::function<bool(const std::string& pattern)>& ends);

    /// Ends all subscriptions, and forgets what waits.
    void close();

    /// The connection that the latest connect came over; events go there.
    std::weak_ptr<Connection> owner;
    std::optional<HeldConnect> held;
    /// The grace time counts from here while no connect is held.
    Clock::time_point lastHeard;

  private:
    const SessionNumber number_;
    const std::string clientId_;
    const std::string address_;
    const std::shared_ptr<DeliveryQueue> queue_;
    std::optional<UnacknowledgedEvents> unacknowledged_;
    /// By channel or pattern; null where the broker has no part in it.
    std::map<std::string, std::shared_ptr<connector::message_service::Subscription>> subscriptions_;
};

}  // namespace server::bayeux
