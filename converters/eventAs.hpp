#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"

#include <string>
#include <typeinfo>
#include <utility>

namespace converters {

/// A converter was handed an event that is not its own.
class WrongEvent final : public std::bad_cast {
  public:
    explicit WrongEvent(std::string what) : what_(std::move(what)) {}
    const char* what() const noexcept override { return what_.c_str(); }

  private:
    std::string what_;
};

/// The event as its own class. Throws `WrongEvent`, which names both classes, if it is of another.
template <typename Event>
const Event& eventAs(const foundation::msg_svc::eventmgr::BaseEvent& event) {
    if (const auto* wanted = dynamic_cast<const Event*>(&event)) {
        return *wanted;
    }
    using foundation::msg_svc::eventmgr::DerivedTypeInformation;
    const auto& given = event.getTypeInformation().name();
    const auto& expected = DerivedTypeInformation<Event>::shared().name();
    // Names of classes are ASCII.
    throw WrongEvent("a " + std::string(given.begin(), given.end()) + " is no " +
                     std::string(expected.begin(), expected.end()));
}

}  // namespace converters
