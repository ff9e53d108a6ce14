#pragma once

#include "connector/message_service/MessageService.hpp"
#include "r22a0/TextJSBuffer.hpp"
#include "yvm/YVM.hpp"

#include <memory>

namespace yvm::JSClient::r22a0 {

/// Lets the clients of this protocol version take over the engine's own sinks, to which all text goes that no
/// command's own streams take. The channels are fixed, and so are shared by all of these clients:
///
/// | Channel             | Carries                                                                       |
/// |---------------------|-------------------------------------------------------------------------------|
/// | /yvm/sinks/set      | `{"outSinkTraits": {...}, "errSinkTraits": {...}}`, see readSinkTraits.hpp; an |
/// |                     | absent side has default traits                                                |
/// | /yvm/sinks/response | the text, as `{"stream": 0, "text": "..."}`; see `TextJSBuffer`               |
///
/// - Nothing is answered. A message that cannot be read changes nothing.
/// - Each client's service takes each message, so that the sinks are replaced once for each of them.
/// - There is no way back. The engine keeps the sinks, and their text goes on being published, also when the
///   clients have gone.
///
/// Differs from the class of r24a0 in all of this.
///
/// Life: made and subscribed by `create`, shared by the attached client and, for the time of a call, by the
/// handler.
///
/// Threads: messages on delivery threads. Nothing changes once `create` has returned.
class YVMSink : public std::enable_shared_from_this<YVMSink> {
  public:
    /// Blocks on the subscription and throws what it throws. The handler keeps `engine`, which may be null,
    /// alive as long as the subscription stands.
    static std::shared_ptr<YVMSink> create(
        const std::shared_ptr<yvm::YVM>& engine,
        std::shared_ptr<connector::message_service::MessageService> messageService);

    ~YVMSink();
    YVMSink(const YVMSink&) = delete;
    YVMSink& operator=(const YVMSink&) = delete;

  private:
    explicit YVMSink(std::shared_ptr<connector::message_service::MessageService> messageService);

    void createYVMConnections(const std::shared_ptr<yvm::YVM>& engine);
    /// Throws what the parser, the reader of the traits and the engine throw.
    void handleSinksMessage(const connector::message_service::JsonMessage& message, yvm::YVM& engine) const;
    TextJSBuffer::SendFunction makeSendFunction() const;

    // In the order of building; the subscription goes first when the service is destroyed.
    std::shared_ptr<connector::message_service::MessageService> messageService_;
    std::shared_ptr<connector::message_service::Subscription> subscription_;
};

}  // namespace yvm::JSClient::r22a0
