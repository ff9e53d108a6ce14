#pragma once

#include "common/BaseRequest.hpp"
#include "common/RequestResponse.hpp"
#include "connector/message_service/MessageService.hpp"
#include "foundation/core/util/scope_guard.hpp"

#include <functional>
#include <memory>
#include <string>

namespace yvm::JSClient {

/// Joins one base channel to the handler of its requests. From a base channel B:
///
/// | Channel         | Direction        | Carries                                                |
/// |-----------------|------------------|--------------------------------------------------------|
/// | B + "/request"  | client to module | requests; subscribed only when there is a handler      |
/// | B + "/response" | module to client | what `publishResponse` sends                           |
/// | B + "/" + name  | module to client | what `publish` sends                                   |
///
/// A request whose text is damaged is not run: it is repaired as far as it takes to find its `requestID`, and
/// answered by the last parse failure. Where that is impossible, and where a valid object has no string
/// `requestID`, the client gets nothing.
///
/// Life: subscribed when the constructor returns, unsubscribed by the destructor, which waits for a handler
/// that is running on another thread. A handler may destroy the connection that called it; then nobody waits,
/// and other calls that were under way end beside it, on what they share with the connection.
///
/// Threads: but for `unsubscribe` immutable after construction, safe from any thread. Handlers run on the
/// delivery thread of the message service.
class YVMConnection {
  public:
    /// Publishes the success response itself. Its exceptions become error responses.
    using Handler = std::function<void(const BaseRequest&)>;

    /// An empty handler makes a connection that only publishes. Blocks until the subscription is confirmed
    /// and throws what `awaitSubscription` throws.
    YVMConnection(std::shared_ptr<connector::message_service::MessageService> messageService,
                  std::string channel, Handler handler);
    ~YVMConnection();
    YVMConnection(const YVMConnection&) = delete;
    YVMConnection& operator=(const YVMConnection&) = delete;

    /// The base channel.
    const std::string& channel() const noexcept { return parts_->channel; }

    /// Ends the subscription ahead of the destructor, and waits as that does. The connection still publishes.
    void unsubscribe();

    /// Does not wait for the outcome and does not learn of it.
    void publish(const std::string& subChannel, JsonObject message);
    void publishResponse(const RequestResponse& response);

  private:
    using MessageCallback = std::function<void(JsonObject)>;

    /// Constant. Shared with the calls under way, which may outlive the connection. In the order of building.
    struct Parts {
        std::shared_ptr<connector::message_service::MessageService> messageService;
        std::string responseChannel;
        std::string channel;
        Handler handler;
    };

    static void publishResponse(const Parts& parts, const RequestResponse& response);
    /// The guard ends the subscription.
    [[nodiscard]] foundation::core::util::scope_guard subscribe(const std::string& subChannel,
                                                                MessageCallback callback);
    static void onMessage(const Parts& parts, const MessageCallback& callback,
                          const connector::message_service::JsonMessage& message);
    static void handleRequest(const Parts& parts, JsonObject json);

    // In the order of building; the subscription goes first when the connection is destroyed.
    std::shared_ptr<const Parts> parts_;
    foundation::core::util::scope_guard subscription_;
};

}  // namespace yvm::JSClient
