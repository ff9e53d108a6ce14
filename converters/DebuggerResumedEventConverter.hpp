#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// A command that had stopped goes on: `{"level": 1}`, which is that of the stop.
class DebuggerResumedEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
