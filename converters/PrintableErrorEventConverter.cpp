#include "converters/PrintableErrorEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "fl/i18n/ustring.hpp"
#include "ylutil/io/PrintableErrorEvent.hpp"

#include <utility>

namespace converters {

std::map<std::string, foundation::json::Value> PrintableErrorEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& error = eventAs<ylutil::io::PrintableErrorEvent>(event);
    foundation::json::Array frames;
    frames.reserve(error.stack().size());
    for (const auto& frame : error.stack()) {
        frames.emplace_back(foundation::json::Object{{"fileName", frame.fileName},
                                                     {"functionName", frame.functionName},
                                                     {"lineNumber", frame.lineNumber},
                                                     {"sourceLine", frame.sourceLine}});
    }
    return {{"identifier", error.identifier()},
            {"message", fl::i18n::to_string(error.message())},
            {"stackFrames", std::move(frames)}};
}

}  // namespace converters
