#include "converters/PromptEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "ylutil/prompt/PromptEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> PromptEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& prompt = eventAs<ylutil::prompt::PromptEvent>(event);
    return {{"state", ylutil::prompt::toString(prompt.state())}};
}

}  // namespace converters
