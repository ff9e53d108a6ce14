#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

#include <cstdint>
#include <optional>

namespace yvm {

/// A command that had stopped in the debugger goes on, or ends.
class [[gnu::visibility("default")]] DebuggerResumedEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<DebuggerResumedEvent> {
  public:
    /// `level` is that of the stop that is over; from 2 on, the stop below it still stands.
    DebuggerResumedEvent(std::optional<IDType> commandId, std::uint64_t level);
    ~DebuggerResumedEvent() override;

    std::uint64_t level() const noexcept { return level_; }

  private:
    std::uint64_t level_;
};

}  // namespace yvm
