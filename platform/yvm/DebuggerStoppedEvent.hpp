#pragma once

#include "cmddistributor/StackFrame.hpp"
#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace yvm {

/// A command has stopped in the debugger, which waits for a command that lets it go on.
class [[gnu::visibility("default")]] DebuggerStoppedEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<DebuggerStoppedEvent> {
  public:
    using StackFrame = cmddistributor::StackFrame;

    enum class Reason {
        Breakpoint,   ///< a breakpoint at a place in a file
        Step,         ///< the end of a step
        Break,        ///< somebody asked to break in
        Error,        ///< an error that nobody catches
        Warning,      ///< a warning is given
        CaughtError,  ///< an error that is caught
        NanInf,       ///< a calculation made a NaN or an infinity
        Output        ///< a value is about to be displayed
    };

    /// `commandId` is the command that stops. `level` counts the stops on top of one another, this one
    /// included. `frames` are those of the command, innermost last; it stands in the last. `message` says
    /// more where there is more to say, and is empty otherwise.
    DebuggerStoppedEvent(std::optional<IDType> commandId, Reason reason, std::uint64_t level,
                         std::vector<StackFrame> frames, std::u16string message);
    ~DebuggerStoppedEvent() override;

    Reason reason() const noexcept { return reason_; }
    std::uint64_t level() const noexcept { return level_; }
    const std::vector<StackFrame>& frames() const noexcept { return frames_; }
    const std::u16string& message() const noexcept { return message_; }

  private:
    Reason reason_;
    std::uint64_t level_;
    std::vector<StackFrame> frames_;
    std::u16string message_;
};

}  // namespace yvm
