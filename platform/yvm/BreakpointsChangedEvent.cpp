#include "yvm/BreakpointsChangedEvent.hpp"

#include <utility>

namespace yvm {

BreakpointsChangedEvent::BreakpointsChangedEvent(std::optional<IDType> commandId,
                                                 std::vector<Entry> breakpoints)
    : CommandEvent(commandId), breakpoints_(std::move(breakpoints)) {}

BreakpointsChangedEvent::~BreakpointsChangedEvent() = default;

}  // namespace yvm
