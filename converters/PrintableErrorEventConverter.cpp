#include "converters/PrintableErrorEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "converters/stackFramesToJson.hpp"
#include "fl/i18n/ustring.hpp"
#include "ylutil/io/PrintableErrorEvent.hpp"

namespace converters {

std::map<std::string, foundation::json::Value> PrintableErrorEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& error = eventAs<ylutil::io::PrintableErrorEvent>(event);
    return {{"identifier", error.identifier()},
            {"message", fl::i18n::to_string(error.message())},
            {"stackFrames", stackFramesToJson(error.stack())}};
}

}  // namespace converters
