#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// Text of a command's own streams: `{"stream": 0, "text": "..."}`, where 0 is the out stream and 1 the err
/// stream.
class TextBaseEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
