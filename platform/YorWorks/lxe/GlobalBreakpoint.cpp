#include "YorWorks/lxe/GlobalBreakpoint.hpp"

#include <utility>

namespace YorWorks::lxe {

GlobalBreakpoint::GlobalBreakpoint(Condition condition) : condition_(condition) {}

GlobalBreakpoint::GlobalBreakpoint(Condition condition, std::string messageId)
    : condition_(condition), messageId_(std::move(messageId)) {}

}  // namespace YorWorks::lxe
