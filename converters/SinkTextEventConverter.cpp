#include "converters/SinkTextEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "fl/i18n/ustring.hpp"
#include "ylutil/io/SinkTextEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> SinkTextEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& text = eventAs<ylutil::io::SinkTextEvent>(event);
    return {{"stream", static_cast<int>(text.stream())}, {"text", fl::i18n::to_string(text.text())}};
}

}  // namespace converters
