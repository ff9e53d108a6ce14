#include "converters/InputRequestEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "fl/i18n/ustring.hpp"
#include "services/prompt/InputRequestEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> InputRequestEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& request = eventAs<services::prompt::InputRequestEvent>(event);
    return {{"id", request.id()},
            {"prompt", fl::i18n::to_string(request.prompt())},
            {"password", request.password()}};
}

}  // namespace converters
