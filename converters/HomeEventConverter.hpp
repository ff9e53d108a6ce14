#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// The cursor of the console is to go home: `{}`.
class HomeEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
