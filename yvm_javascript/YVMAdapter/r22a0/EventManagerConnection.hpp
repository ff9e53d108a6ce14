#pragma once

#include "common/RequestResponse.hpp"
#include "common/YVMConnection.hpp"
#include "connector/message_service/MessageService.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace yvm::JSClient::r22a0 {

class DisconnectRequest;
class SubscribeRequest;

/// The bridge from the engine's events to one client. With P the client's channel prefix:
///
/// - P + "/subscribeEvent": the client names an event type, and the `requestID` of that request names the
///   subscription.
/// - P + "/event/fireEvent": `{"requestID": ..., "eventData": {...}}` for every such event, as the converter
///   of its type tells it.
/// - P + "/disconnectEvent": ends the subscription.
///
/// It also makes event handlers for the run options of single commands, which reach the client in the same
/// form under an identifier of the command's choice. Such a handler lives in its run options; here the
/// identifier is only reserved, until a disconnect names it.
///
/// Handlers that others keep find their client gone, if it has, and do nothing.
///
/// Threads: requests come on delivery threads, events on those that fire them, at the same time and without
/// order between them. An event may reach the client before the answer to its subscription. The last
/// reference may go on an event's thread.
///
/// Meant to stay alike with the class of r24a0, which flushes text ahead of an event; here there is none to
/// flush.
class EventManagerConnection : public std::enable_shared_from_this<EventManagerConnection> {
  public:
    using BaseEvent = foundation::msg_svc::eventmgr::BaseEvent;
    using EventHandler = boost::function<void(const BaseEvent&)>;

    /// Blocks on the subscriptions and throws what one of them throws. `eventMgr` may be null, without which
    /// nothing can be subscribed to.
    static std::shared_ptr<EventManagerConnection> create(
        std::string channelPrefix, boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventMgr,
        std::shared_ptr<connector::message_service::MessageService> messageService);

    ~EventManagerConnection();
    EventManagerConnection(const EventManagerConnection&) = delete;
    EventManagerConnection& operator=(const EventManagerConnection&) = delete;

    /// Empty when no converter serves that event. Throws what keeps the converters' module from starting.
    EventHandler makeEventHandler(const std::string& eventName, const std::string& requestId);

    /// Reserves the identifier. Empty when it is in use, whose subscription then ends, or when no converter
    /// serves that event.
    EventHandler makeRunOptionsEventHandler(const std::string& eventName, const std::string& requestId);

    /// Keeps `connection`, null for none, under the identifier; one that was kept there ends. Returns whether
    /// the identifier was free.
    bool emplaceConnection(const std::string& requestId,
                           std::unique_ptr<foundation::msg_svc::eventmgr::Connection> connection);

    RequestResponse handleRequest(const SubscribeRequest& request);
    RequestResponse handleRequest(const DisconnectRequest& request);

    /// Ends all subscriptions if `channel` holds the text "disconnectEvent".
    void handleDisconnect(const std::string& channel);

  private:
    EventManagerConnection(std::string channelPrefix,
                           boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventMgr,
                           std::shared_ptr<connector::message_service::MessageService> messageService);

    void clearConnections();

    const boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventMgr_;
    // The client chooses its prefix, so a request may come while this object is being built; the server
    // keeps a client's later messages behind its attach, unless that waited for the engine.
    YVMConnection subscribeConnection_;
    YVMConnection disconnectConnection_;
    YVMConnection eventConnection_;
    /// Holds nothing for an identifier that a command's run options reserved. Guarded by connectionsMutex_.
    std::unordered_map<std::string, foundation::msg_svc::eventmgr::ScopedConnection> connections_;
    std::mutex connectionsMutex_;
};

}  // namespace yvm::JSClient::r22a0
