#pragma once

#include "common/ApiVersion.hpp"
#include "common/AttachedClientInterface.hpp"
#include "common/ConnectionSlot.hpp"
#include "common/YVMConnection.hpp"
#include "connector/message_service/MessageService.hpp"
#include "cppmicroservices/ListenerToken.hpp"
#include "yvm/YVM.hpp"

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace yvm::JSClient {

/// The root of the module: the public channels `/yvm/attach` and `/yvm/detach`, the engine once it is there,
/// and the attached clients.
///
/// - Attach: `{"requestID":"a","yvmID":"user-yvm","supportedApiVersions":["r24a0"]}` is answered by
///   `{"requestID":"a","apiVersion":"r24a0","channelPrefix":"/yvm/a"}`, after the client's channels have been
///   subscribed. Until the engine is there the attach waits, unanswered.
/// - Detach: `{"requestID":"d","requestIDtoDetach":"a"}` is answered by `{"requestID":"d"}`, and then the
///   client is destroyed. Naming nobody is no error.
///
/// Life: constructed (which finds the engine, or waits for it), `initializeMessageService`, then at work
/// until it is destroyed, on the thread that releases it, waiting for the handlers that run. Owned by a
/// `std::shared_ptr`. The first engine that is found stays; one
/// that goes is not noticed.
///
/// Threads: attach and detach on delivery threads, `setYVMPtr` on the thread that registers the engine.
/// Clients are built and destroyed with the mutex held, blocking on their subscriptions; so nothing that
/// those paths reach may take the mutex.
class YVMAdapter : public std::enable_shared_from_this<YVMAdapter> {
  public:
    /// Throws `std::runtime_error` "The bundle context is no longer valid" when the module has no bundle
    /// context.
    YVMAdapter();
    virtual ~YVMAdapter();
    YVMAdapter(const YVMAdapter&) = delete;
    YVMAdapter& operator=(const YVMAdapter&) = delete;

    /// Opens the message service and subscribes the two channels, blocking on each. Throws what their futures
    /// throw.
    void initializeMessageService();

    void setMessageService(std::shared_ptr<connector::message_service::MessageService> messageService);

    /// Stores the engine, completes the attaches that wait, in order, and stops listening for engines. An
    /// exception of one of them leaves; it and those behind it stay unanswered. The list is then kept, so the
    /// next engine runs all of its steps again: the answer goes out a second time for those that had run,
    /// whose clients stay with the first engine.
    void setYVMPtr(std::shared_ptr<yvm::YVM>&& yvm);

    /// Forgets the client to whose prefix `channel` belongs ("/yvm/abc/connection/stillAlive": "/yvm/abc").
    void onClientDisconnected(const std::string& channel);

  private:
    using PendingAttach = std::pair<std::string, std::function<void()>>;

    void removeListener();
    void handleAttachRequest(const BaseRequest& request);
    void handleDetachRequest(const BaseRequest& request);
    void completeAttachLocked(const std::string& prefix, ApiVersion version, const RequestResponse& response);
    YVMConnection::Handler makeHandler(ConnectionSlot YVMAdapter::* connection,
                                       void (YVMAdapter::*handle)(const BaseRequest&));

    // In the order of building: the two public channels fall silent before any client goes.
    std::shared_ptr<yvm::YVM> yvm_;  // guarded by mutex_
    std::mutex mutex_;
    std::shared_ptr<connector::message_service::MessageService> messageService_;         // guarded by mutex_
    cppmicroservices::ListenerToken listenerToken_;                                      // guarded by mutex_
    std::unordered_map<std::string, std::unique_ptr<AttachedClientInterface>> clients_;  // guarded by mutex_
    std::list<PendingAttach> pendingAttaches_;                                           // guarded by mutex_
    // Constant once initializeMessageService has returned.
    ConnectionSlot attachConnection_;
    ConnectionSlot detachConnection_;
};

}  // namespace yvm::JSClient
