#pragma once

#include "connector/message_service/MessageService.hpp"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace connector::message_service {

/// The in-process broker: exact channels and patterns, delivered by a pool of threads in lanes.
///
/// Messages of one lane are delivered one after the other in the order of publication; lanes do not
/// wait for one another, so a handler that never returns stalls its lane and nobody else. A publisher
/// that names no lane gets the lane of the channel's first two segments. A message goes to those who
/// are subscribed when it is published; one that a start trigger holds back, to those who are
/// subscribed when it is let go.
///
/// Life: create, `start`, then publish and subscribe from any thread; what is published before
/// `start` waits for it. `stop` ends delivery; messages published after it are dropped. Doors and
/// subscriptions keep the broker alive; its destructor stops it.
class [[gnu::visibility("default")]] Broker {
  public:
    struct Options {
        /// A callback may block (an attach waits for its subscriptions, a bad handler for ever), so
        /// the pool grows by a thread whenever a lane has work and no thread is idle, up to this.
        std::size_t maxDeliveryThreads = 64;
        /// How long `stop` waits for callbacks that are running.
        std::chrono::milliseconds stopTimeout = std::chrono::seconds(5);
    };

    /// Throws `std::invalid_argument` for a pool without threads.
    static std::shared_ptr<Broker> create(Options options);
    static std::shared_ptr<Broker> create() { return create(Options{}); }

    virtual ~Broker();

    /// A door for one participant, whose name the log tells where one of its callbacks fails. Its
    /// `publish` uses the lane of the channel's first two segments.
    virtual std::shared_ptr<MessageService> createService(const std::string& name) = 0;

    /// As `MessageService::publish`, in a lane of the caller's choice. Never throws on account of a
    /// receiver and never blocks on one.
    virtual void publish(const std::string& channel, common::DataBuffer payload, const std::string& lane) = 0;

    /// A subscriber whose callback runs on the publishing thread, inside `publish`. Only for
    /// callbacks that do nothing but queue: they may run with the publisher's locks held, and on
    /// several threads at once. Start triggers hold nothing back from it. Ending it waits, as for
    /// every subscription: hold no lock then that the callback takes.
    virtual std::shared_ptr<Subscription> subscribeInline(const std::string& channelOrPattern,
                                                          MessageService::MessageCallback callback) = 0;

    /// Looks at each message before it is delivered. When `pattern` matches (here a trailing "/*"
    /// stands for everything below, any depth), `onFirst` runs once, on a delivery thread and so
    /// free to block, and this message and all that match behind it are held back, in the order of
    /// their lanes, until it has returned.
    ///
    /// If `onFirst` throws, that is logged, and what was held back goes to those who are subscribed
    /// all the same, hence usually to nobody; the next message that matches tries again.
    virtual void addStartTrigger(const std::string& pattern, std::function<void()> onFirst) = 0;

    virtual void start() = 0;

    /// Drops what waits for delivery and joins the delivery threads. A callback that has not
    /// returned within `Options::stopTimeout` is logged and its thread left to itself. Called from a
    /// callback, it does not wait for that one. Idempotent.
    virtual void stop() = 0;

  protected:
    Broker() = default;
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;
};

/// Whether `channel` is matched by `pattern`: equal names, "/a/*" one further segment, "/a/**" any
/// number of further segments (at least one). What follows the pattern's prefix is never empty: no
/// pattern below "/a" matches "/a/".
bool matchesPattern(std::string_view pattern, std::string_view channel) noexcept;

}  // namespace connector::message_service
