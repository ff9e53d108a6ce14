#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// A command asks for a line: `{"id": "1", "prompt": "name? ", "password": false}`.
class InputRequestEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
