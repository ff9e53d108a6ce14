#pragma once

#include "connector/message_service/Broker.hpp"
#include "server/bayeux/AccessPolicy.hpp"
#include "server/bayeux/ClientTable.hpp"
#include "server/bayeux/DeliveryQueue.hpp"
#include "server/bayeux/InstalledSinks.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace server::bayeux {

/// Passes attach and detach requests on to the module, and its answers back to the session that asked.
///
/// An answer names its request by the `requestID` alone. For an attach this is the identifier, which
/// one session owns. Of several detach requests with one `requestID` the next is handed on when the
/// one before is answered. Behind each detach follows a marker in the same lane: when it arrives, the
/// detach has been carried out, and the identifier is free. A detach that was not answered by then never
/// will be, and the server answers it.
///
/// A client that is detached while the engine writes to its sinks is reverted first, in the same lane: the
/// text would go nowhere. The sinks of r22a0 outlive their clients, and cannot be reverted.
///
/// All functions and the callbacks run on the server's thread.
class ClientLifecycle {
  public:
    struct Callbacks {
        /// An answer for this session, which may be gone.
        std::function<void(SessionNumber, Event)> deliver;
        /// The client is no more; another session may now have its identifier.
        std::function<void(const std::string& identifier)> freed;
        /// A client of the session is attached or no more. What the session may do follows from the clients.
        std::function<void(SessionNumber)> rightsChanged;
        /// Runs a function on the server's thread. Called from any thread, never blocks.
        std::function<void(std::function<void()>)> post;
    };

    ClientLifecycle(std::shared_ptr<connector::message_service::Broker> broker,
                    std::size_t maxClientsPerSession, Callbacks callbacks);
    ~ClientLifecycle();
    ClientLifecycle(const ClientLifecycle&) = delete;
    ClientLifecycle& operator=(const ClientLifecycle&) = delete;

    const ClientTable& clients() const { return clients_; }

    /// `request` is the text of the message, an object in strict JSON.
    std::optional<Refusal> attach(SessionNumber session, const std::string& lane, std::string request);
    std::optional<Refusal> detach(SessionNumber session, const std::string& lane, std::string request);

    /// A request of a client was admitted, and is about to be published. Most mean nothing here.
    void observe(std::string_view channel, std::string_view request);

    /// Detaches all clients of a session that has ended, each once: those whose detach is on its way are
    /// left to it, and detaches that wait for their turn are dropped. Its lane stays in use until that is
    /// done.
    void detachAll(SessionNumber session, const std::string& lane);

  private:
    struct DetachRequest {
        SessionNumber session;
        std::string lane;
        std::string request;
        /// Of its marker; 0 until it has been handed on.
        std::uint64_t marker = 0;
    };
    using DetachRequests = std::map<std::string, std::deque<DetachRequest>>;

    void onAttachResponse(const connector::common::DataBuffer& payload);
    void onDetachResponse(const connector::common::DataBuffer& payload);
    void publishDetach(DetachRequest& detachRequest, const std::string& requestID,
                       const std::string& identifier);
    /// The answer is no event that anybody waits for.
    void revertSinks(const std::string& client, const std::string& lane);
    /// Delivers the answer to the first of a queue, and hands on the next.
    void settleDetach(DetachRequests::iterator found, const connector::common::DataBuffer& response);
    void onMarker(const std::string& text);

    const std::shared_ptr<connector::message_service::Broker> broker_;
    const std::size_t maxClientsPerSession_;
    const Callbacks callbacks_;
    ClientTable clients_;
    AccessPolicy policy_{clients_};
    InstalledSinks sinks_;
    /// By `requestID`; the first of each queue has been handed on.
    DetachRequests detachRequests_;

    struct Marker {
        std::string requestID;
        std::string identifier;
        /// Nothing when the identifier is none that a client could have.
        std::optional<ClientTable::DetachNumber> detach;
    };
    std::map<std::uint64_t, Marker> markers_;
    std::uint64_t lastMarker_ = 0;

    /// Tells callbacks that are still on their way to the server's thread that we are gone.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::shared_ptr<connector::message_service::MessageService> service_;
    // Last, so that they end first.
    std::vector<std::shared_ptr<connector::message_service::Subscription>> subscriptions_;
};

}  // namespace server::bayeux
