#pragma once

#include "common/ConnectionSlot.hpp"
#include "common/YVMConnection.hpp"
#include "connector/message_service/MessageService.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"
#include "r24a0/TextJSBufferPublisher.hpp"
#include "yvm/YVM.hpp"

#include <memory>
#include <mutex>
#include <string>

namespace yvm::JSClient::r24a0 {

/// Lets one client take over the engine's own sinks, to which all text goes that no command's own streams
/// take, and put back what was there before. With P the client's prefix:
///
/// | Channel             | Carries                                                                |
/// |---------------------|------------------------------------------------------------------------|
/// | P/yvmSinks/request  | `YVMSinksRequest`                                                      |
/// | P/yvmSinks/response | `{"requestID": R}`, also when an `error` follows for the same R        |
/// | P/yvmSinks/output   | the text, as `{"stream": 0, "text": "..."}`; see `TextJSBufferPublisher` |
///
/// - Each request replaces the publisher, a revert too. What waits in the old one is discarded.
/// - A revert goes back to the sinks that were there before the first install, and not to an earlier
///   install of this client. A revert while nothing is installed installs sinks with default traits.
/// - The end of this service does not revert. The engine keeps the client's sinks, which drop their text.
///
/// Differs from the class of r22a0, whose channels are fixed and which has no way back.
///
/// Life: made and subscribed by `create`, shared by the attached client and, for the time of a call, by
/// handlers and publishers.
///
/// Threads: requests on delivery threads, one at a time; `flushForEvent` on any. Lock order: this mutex, then
/// that of a publisher. It is never held across a call into a publisher that lives.
class YVMSink : public std::enable_shared_from_this<YVMSink> {
  public:
    /// Blocks on the subscription and throws what it throws. The handler keeps `engine`, which may be null,
    /// alive as long as the channel stands.
    static std::shared_ptr<YVMSink> create(
        std::string channelPrefix, const std::shared_ptr<yvm::YVM>& engine,
        std::shared_ptr<connector::message_service::MessageService> messageService);

    virtual ~YVMSink();
    YVMSink(const YVMSink&) = delete;
    YVMSink& operator=(const YVMSink&) = delete;

    /// Sends the text that `event` must not overtake. Throws as `TextJSBufferPublisher::flushForEvent`.
    virtual void flushForEvent(const foundation::msg_svc::eventmgr::BaseEvent& event);

  private:
    explicit YVMSink(std::shared_ptr<connector::message_service::MessageService> messageService);

    void createYVMConnections(const std::shared_ptr<yvm::YVM>& engine, std::string channelPrefix);
    void handleSinksRequest(const BaseRequest& request, const std::shared_ptr<yvm::YVM>& engine);
    TextJSBufferPublisher::SendFunction makeSendFunction();

    // In the order of building; destroyed last first.
    std::shared_ptr<connector::message_service::MessageService> messageService_;
    ConnectionSlot connection_;  // constant once `create` has returned
    /// Puts back the sinks from before the first install. Null while nothing is installed; empty behind a
    /// revert that failed. Touched by the handler alone.
    std::unique_ptr<foundation::core::util::scope_guard> sinkGuard_;
    std::shared_ptr<TextJSBufferPublisher> publisher_;  // guarded by mutex_
    std::mutex mutex_;
};

}  // namespace yvm::JSClient::r24a0
