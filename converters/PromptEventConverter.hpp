#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// The state of the prompt: `{"state": "busy"}`, or "idle", "paused", "debug".
class PromptEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
