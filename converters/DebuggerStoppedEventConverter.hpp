#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// A command has stopped: `{"reason": "breakpoint", "level": 1, "message": "", "fileName": "a.py",
/// "lineNumber": 3, "stackFrames": [{"fileName": "a.py", "functionName": "f", "lineNumber": 3,
/// "sourceLine": "x = 1"}]}`. The frames are spelled as in the error of a response, innermost last; file and
/// line are those of the last, or "" and 0 where there is none. The other reasons are "step", "break",
/// "error", "warning", "caughtError", "nanInf" and "output".
class DebuggerStoppedEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
