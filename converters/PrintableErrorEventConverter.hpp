#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// A command's error: `{"identifier": "...", "message": "...", "stackFrames": [{"fileName": "...",
/// "functionName": "...", "lineNumber": 1, "sourceLine": "..."}]}`, spelled as in the error of a response,
/// innermost frame last.
class PrintableErrorEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
