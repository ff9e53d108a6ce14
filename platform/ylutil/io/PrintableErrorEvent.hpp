#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace ylutil::io {

/// A command has failed. Its event name is "ylutil::io::PrintableErrorEvent".
class [[gnu::visibility("default")]] PrintableErrorEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<PrintableErrorEvent> {
  public:
    /// One frame of the stack; the members are those of the command distributor's frames.
    struct Frame {
        std::string fileName;          ///< UTF-8
        std::string functionName;      ///< UTF-8
        std::uint64_t lineNumber = 0;  ///< counted from 1; 0 when unknown
        std::string sourceLine;        ///< UTF-8, trimmed; empty when unknown

        friend bool operator==(const Frame&, const Frame&) = default;
    };

    /// `identifier` is the error's type in UTF-8; `stack` lists the innermost frame last.
    PrintableErrorEvent(std::optional<IDType> commandId, std::string identifier, std::u16string message,
                        std::vector<Frame> stack);
    ~PrintableErrorEvent() override;

    const std::string& identifier() const noexcept { return identifier_; }
    const std::u16string& message() const noexcept { return message_; }
    const std::vector<Frame>& stack() const noexcept { return stack_; }

  private:
    std::string identifier_;
    std::u16string message_;
    std::vector<Frame> stack_;
};

}  // namespace ylutil::io
