#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <optional>
#include <string>

namespace ylutil::io {

/// Text that a command wrote to one of its own streams. Its event name is
/// "ylutil::io::TextBaseEvent".
class [[gnu::visibility("default")]] TextBaseEvent final
    : public foundation::msg_svc::eventmgr::DerivedEvent<TextBaseEvent> {
  public:
    using IDType = foundation::msg_svc::exchange::IDType;

    /// `id` is the command that wrote the text; the null identity stands for text of no command.
    TextBaseEvent(const IDType& id, StreamTypeEnum stream, std::u16string text);
    ~TextBaseEvent() override;

    /// Empty for text of no command.
    std::optional<IDType> commandId() const override;

    const IDType& id() const noexcept { return id_; }
    StreamTypeEnum stream() const noexcept { return stream_; }
    const std::u16string& text() const noexcept { return text_; }

  private:
    IDType id_;
    StreamTypeEnum stream_;
    std::u16string text_;
};

}  // namespace ylutil::io
