#pragma once

#include "foundation/json/Value.hpp"
#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"

#include <map>
#include <string>

namespace event_json_converter {

/// Turns the events of one type into JSON. A service of the framework under the name of this class; its
/// property `eventTag` is the name of the event type in the form of
/// `foundation::msg_svc::eventmgr::demangleEventForType`, for example "ylutil::io::TextBaseEvent".
///
/// Safe from any thread, and from several at once.
class [[gnu::visibility("default")]] EventToJsonConverter {
  public:
    virtual ~EventToJsonConverter();

    /// The event as a JSON object. Throws `std::bad_cast` for an event of another type, and whatever keeps it
    /// from being told.
    virtual std::map<std::string, foundation::json::Value> convert(
        const foundation::msg_svc::eventmgr::BaseEvent& event) const = 0;

  protected:
    EventToJsonConverter() = default;
    EventToJsonConverter(const EventToJsonConverter&) = default;
    EventToJsonConverter& operator=(const EventToJsonConverter&) = default;
};

}  // namespace event_json_converter
