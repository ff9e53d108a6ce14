#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// How far a loop is: `{"id": 1, "label": "...", "done": 3, "total": 10, "rate": 2.5, "remaining": 2.8,
/// "finished": false}`. `rate` is in steps a second, `remaining` in seconds; `total`, `rate` and `remaining`
/// are null where they are not known. A number that is not finite becomes null in the text of a message.
class ProgressEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
