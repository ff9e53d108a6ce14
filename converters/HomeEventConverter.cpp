#include "converters/HomeEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "services/io/HomeEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> HomeEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    eventAs<services::io::HomeEvent>(event);
    return {};
}

}  // namespace converters
