#include "converters/CLCEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "services/io/CLCEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> CLCEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    eventAs<services::io::CLCEvent>(event);
    return {};
}

}  // namespace converters
