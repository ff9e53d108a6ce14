#pragma once

#include "event_json_converter/EventToJsonConverter.hpp"

namespace converters {

/// A displayed value: `{"data": {"text/plain": "...", ...}, "metadata": {"image/png": {...}, ...}}`, both
/// keyed by media type.
class StructuredOutputEventConverter final : public event_json_converter::EventToJsonConverter {
  public:
    std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const override;
};

}  // namespace converters
