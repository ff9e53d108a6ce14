#pragma once

#include "foundation/msg_svc/exchange/IDType.hpp"
#include "r24a0/TextJSBufferPublisher.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"
#include "ylutil/io/YLSink.hpp"

#include <memory>
#include <streambuf>
#include <utility>

namespace yvm::JSClient::r24a0 {

/// The stream buffer of one of the sinks that a client has installed: hands on what is written to the
/// publisher, and keeps no text itself. Never refuses a write; once the publisher has gone, text is dropped.
///
/// Differs from the class of r22a0, which keeps the text and knows no publisher.
///
/// Used by the engine thread that writes; not for two threads at once.
class TextJSBuffer : public std::basic_streambuf<char16_t> {
  public:
    TextJSBuffer(ylutil::io::StreamTypeEnum streamType, std::weak_ptr<TextJSBufferPublisher> publisher);

  protected:
    /// The end-of-file value and NUL are dropped. Returns `character`.
    int_type overflow(int_type character) override;
    /// Synchronises first when another command writes than before. Returns `count`. Throws when there is no
    /// memory left.
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override;
    /// Sends all that waits; -1 when that fails. Does nothing while `isSmartBufEnabled`, since text then
    /// leaves in batches. Never throws.
    int sync() override;

  private:
    ylutil::io::StreamTypeEnum streamType_;
    foundation::msg_svc::exchange::IDType lastRequestId_;
    std::weak_ptr<TextJSBufferPublisher> publisher_;
};

/// The buffers of out and err on one publisher, out first. While `isSmartBufEnabled` this starts the timer of
/// the publisher, so it is called once for each.
std::pair<ylutil::io::YLSink::Buffer, ylutil::io::YLSink::Buffer> makeTextJSBuffers(
    const std::weak_ptr<TextJSBufferPublisher>& publisher);

}  // namespace yvm::JSClient::r24a0
