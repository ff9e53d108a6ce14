#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <string>

namespace ylutil::io {

/// Text that goes to the client-wide sinks of the engine. Its event name is "ylutil::io::SinkTextEvent".
class [[gnu::visibility("default")]] SinkTextEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<SinkTextEvent> {
  public:
    SinkTextEvent(std::optional<IDType> commandId, StreamTypeEnum stream, std::u16string text);
    ~SinkTextEvent() override;

    StreamTypeEnum stream() const noexcept { return stream_; }
    const std::u16string& text() const noexcept { return text_; }

  private:
    StreamTypeEnum stream_;
    std::u16string text_;
};

}  // namespace ylutil::io
