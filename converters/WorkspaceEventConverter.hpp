#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// What became of the names of the workspace: `{"appeared": ["a"], "changed": [], "gone": []}`.
class WorkspaceEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
