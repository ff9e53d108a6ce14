#pragma once

#include "connector/Future.hpp"
#include "connector/common/DataBuffer.hpp"
#include "connector/message_service/JsonMessage.hpp"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace connector::message_service {

/// A live subscription. Destroying it ends it as well; ending it twice is harmless.
class [[gnu::visibility("default")]] Subscription {
  public:
    /// Ends the subscription. Once this has returned no callback starts. A callback that is running
    /// on another thread has been waited for; one that is running on the calling thread has not.
    virtual Future<void> unsubscribe() = 0;

    virtual ~Subscription();
};

/// Somebody began to listen on `channel`, exactly this name: subscribers of patterns do not count.
struct SubscribeEvent {
    std::string channel;
};

/// One subscriber of exactly `channel` has gone.
struct UnsubscribeEvent {
    std::string channel;
};

/// A participant's door to the message broker of this process.
///
/// Channels are names such as "/yvm/attach/request". A subscription names one channel exactly, or a
/// pattern: "/a/*" stands for one further segment, "/a/**" for any depth; neither matches "/a".
///
/// All operations are safe from any thread and never block on a receiver. A callback never runs
/// inside `publish`: publishers hold locks that the callback may want. A callback's exception is
/// caught and logged by the service.
class [[gnu::visibility("default")]] MessageService {
  public:
    using MessageCallback = std::function<void(const JsonMessage&)>;

    virtual ~MessageService();

    /// The future is fulfilled without the help of the delivery threads, so that a callback may
    /// subscribe and wait. Nothing is delivered before it is fulfilled.
    virtual Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                            MessageCallback callback) = 0;

    /// Messages of one lane arrive in the order of publication. The future tells that the message
    /// was taken over, not that anybody has received it; callers drop it.
    virtual Future<void> publish(const std::string& channel, common::DataBuffer payload) = 0;

    virtual Future<std::shared_ptr<Subscription>> onSubscribe(
        const std::string& channel, std::function<void(const SubscribeEvent&)> callback) = 0;

    virtual Future<std::shared_ptr<Subscription>> onUnsubscribe(
        const std::string& channel, std::function<void(const UnsubscribeEvent&)> callback) = 0;
};

/// Named settings of a participant. None are defined yet.
using MessageServiceOptions = std::map<std::string, std::string>;

/// Opens a door to the broker of this process for the participant `name`.
///
/// The future holds `std::runtime_error` "no message broker is installed in this process" until the
/// host has called `setMessageServiceFactory`.
Future<std::shared_ptr<MessageService>> createMessageService(const std::string& name,
                                                             const MessageServiceOptions& options);

using MessageServiceFactory = std::function<Future<std::shared_ptr<MessageService>>(
    const std::string& name, const MessageServiceOptions& options)>;

/// Called by the host (or a test) before anybody opens a door; an empty function takes the broker
/// away again. Doors that are open stay open.
void setMessageServiceFactory(MessageServiceFactory factory);

}  // namespace connector::message_service
