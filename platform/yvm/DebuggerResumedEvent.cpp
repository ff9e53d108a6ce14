#include "yvm/DebuggerResumedEvent.hpp"

namespace yvm {

DebuggerResumedEvent::DebuggerResumedEvent(std::optional<IDType> commandId, std::uint64_t level)
    : CommandEvent(commandId), level_(level) {}

DebuggerResumedEvent::~DebuggerResumedEvent() = default;

}  // namespace yvm
