#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// All breakpoints that there are, each as the requests for breakpoints spell it, and with the line on which
/// it stands: `{"breakpoints": [{"fileName": "a.py", "location": {"lineNumber": 3, "anonymousIndex": 1},
/// "expression": "x > 1", "lineNumber": 4}, {"fileName": "a.py", "location": {"localFunction": "f"}},
/// {"type": "ERROR", "messageId": "ValueError"}]}`. What a breakpoint has not is left out.
class BreakpointsChangedEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
