#pragma once

#include "connector/message_service/MessageService.hpp"

#include <cstddef>
#include <memory>
#include <string>

namespace connector::message_service {

/// The in-process broker: exact channels and patterns, delivered by a pool of threads in lanes.
///
/// Messages of one lane are delivered one after the other in the order of publication; lanes do not
/// wait for one another, so a handler that never returns stalls its lane and nobody else. A publisher
/// that names no lane gets the lane of the channel's first two segments.
///
/// Life: create, `start`, then publish and subscribe from any thread; `stop` (idempotent) delivers
/// nothing more and joins the threads; messages published after it are dropped.
class Broker : public std::enable_shared_from_this<Broker> {
  public:
    struct Options {
        /// A callback may block (an attach waits for its subscriptions, a bad handler for ever), so
        /// the pool grows by a thread whenever a lane has work and no thread is idle, up to this.
        std::size_t maxDeliveryThreads = 64;
    };

    static std::shared_ptr<Broker> create(Options options);
    static std::shared_ptr<Broker> create() { return create(Options{}); }

    virtual ~Broker();

    /// A door for one participant. Its `publish` uses the lane of the channel's first two segments.
    virtual std::shared_ptr<MessageService> createService(const std::string& name) = 0;

    /// As `MessageService::publish`, in a lane of the caller's choice.
    virtual void publish(const std::string& channel, common::DataBuffer payload, const std::string& lane) = 0;

    /// A subscriber whose callback runs on the publishing thread, inside `publish`. Only for
    /// callbacks that do nothing but queue: they may run with the publisher's locks held.
    virtual std::shared_ptr<Subscription> subscribeInline(const std::string& channelOrPattern,
                                                          MessageService::MessageCallback callback) = 0;

    /// Looks at each message before it is delivered. When `pattern` matches (here a trailing "/*"
    /// stands for everything below, any depth), `onFirst` runs once, on a thread that may block, and
    /// this message and all that match behind it are held back, in order, until it has returned.
    virtual void addStartTrigger(const std::string& pattern, std::function<void()> onFirst) = 0;

    virtual void start() = 0;
    virtual void stop() = 0;
};

/// Whether `channel` is matched by `pattern`: equal names, "/a/*" one further segment, "/a/**" any
/// number of further segments (at least one).
bool matchesPattern(std::string_view pattern, std::string_view channel) noexcept;

}  // namespace connector::message_service
