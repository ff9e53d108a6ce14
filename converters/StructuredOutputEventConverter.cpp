#include "converters/StructuredOutputEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "ylutil/io/StructuredOutputEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> StructuredOutputEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& output = eventAs<ylutil::io::StructuredOutputEvent>(event);
    return {{"data", output.data()}, {"metadata", output.metadata()}};
}

}  // namespace converters
