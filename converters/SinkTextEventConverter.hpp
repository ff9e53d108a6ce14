#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// Text of the client-wide sinks: `{"stream": 0, "text": "..."}`, where 0 is the out stream and 1 the err
/// stream.
class SinkTextEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
