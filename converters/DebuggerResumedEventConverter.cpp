#include "converters/DebuggerResumedEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "yvm/DebuggerResumedEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> DebuggerResumedEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    return {{"level", eventAs<yvm::DebuggerResumedEvent>(event).level()}};
}

}  // namespace converters
