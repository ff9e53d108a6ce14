#include "yvm/DebuggerStoppedEvent.hpp"

#include <utility>

namespace yvm {

DebuggerStoppedEvent::DebuggerStoppedEvent(std::optional<IDType> commandId, Reason reason,
                                           std::uint64_t level, std::vector<StackFrame> frames,
                                           std::u16string message)
    : CommandEvent(commandId),
      reason_(reason),
      level_(level),
      frames_(std::move(frames)),
      message_(std::move(message)) {}

DebuggerStoppedEvent::~DebuggerStoppedEvent() = default;

}  // namespace yvm
