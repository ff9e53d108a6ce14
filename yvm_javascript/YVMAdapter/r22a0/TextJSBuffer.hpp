#pragma once

#include "common/JsonObject.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <cstddef>
#include <functional>
#include <streambuf>
#include <string>

namespace yvm::JSClient::r22a0 {

/// The stream buffer of one of the sinks that a client has installed: collects what is written, and sends it
/// when it is synchronised, when another command writes than before, and beyond 1048576 units. A message is
/// `{"stream": 0, "text": "..."}` (see makeTextMessage.hpp). Never refuses a write. What is still collected
/// at destruction is lost.
///
/// Differs from the class of r24a0, which keeps no text and knows a publisher that sends in batches.
///
/// Used by the engine thread that writes; not for two threads at once.
class TextJSBuffer : public std::basic_streambuf<char16_t> {
  public:
    using SendFunction = std::function<void(JsonObject)>;

    TextJSBuffer(ylutil::io::StreamTypeEnum streamType, SendFunction sendFunction);

  protected:
    /// The end-of-file value and NUL are dropped. Returns `character`.
    int_type overflow(int_type character) override;
    /// Synchronises first when another command writes than before. Returns `count`. Throws when there is no
    /// memory left.
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override;
    /// Sends all that was collected; -1 when that fails, and then the text may be lost. Never throws.
    int sync() override;

  private:
    /// In 16-bit units; bounds the size of one message.
    static constexpr std::size_t flushThreshold = 1048576;

    ylutil::io::StreamTypeEnum streamType_;
    std::u16string text_;
    foundation::msg_svc::exchange::IDType lastRequestId_;
    SendFunction sendFunction_;
};

}  // namespace yvm::JSClient::r22a0
