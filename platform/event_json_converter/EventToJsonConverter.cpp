#include "event_json_converter/EventToJsonConverter.hpp"

namespace event_json_converter {

EventToJsonConverter::~EventToJsonConverter() = default;

}  // namespace event_json_converter
