#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"
#include "ylutil/debugger/Debugger.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace yvm {

/// Breakpoints were set, moved or cleared. Tells all that there are now.
class [[gnu::visibility("default")]] BreakpointsChangedEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<BreakpointsChangedEvent> {
  public:
    struct Entry {
        ylutil::debugger::Breakpoint breakpoint;  ///< as it was set
        /// Where a breakpoint on a line stands, which is behind the line that it was set on when that has no
        /// code. Empty for all others.
        std::optional<std::uint64_t> lineNumber;

        friend bool operator==(const Entry&, const Entry&) = default;
    };

    /// `commandId` is the command that changed them, if one did.
    BreakpointsChangedEvent(std::optional<IDType> commandId, std::vector<Entry> breakpoints);
    ~BreakpointsChangedEvent() override;

    const std::vector<Entry>& breakpoints() const noexcept { return breakpoints_; }

  private:
    std::vector<Entry> breakpoints_;
};

}  // namespace yvm
