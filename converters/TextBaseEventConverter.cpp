#include "converters/TextBaseEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "fl/i18n/ustring.hpp"
#include "ylutil/io/TextBaseEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> TextBaseEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& text = eventAs<ylutil::io::TextBaseEvent>(event);
    return {{"stream", static_cast<int>(text.stream())}, {"text", fl::i18n::to_string(text.text())}};
}

}  // namespace converters
