#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"

#include <optional>

namespace foundation::msg_svc::eventmgr {

/// What the event class `Self` derives from when its events may belong to a command. It adds no name to the
/// static tags.
template <typename Self>
class CommandEvent : public DerivedEvent<Self> {
  public:
    using IDType = exchange::IDType;

    std::optional<IDType> commandId() const final { return commandId_; }

  protected:
    /// `commandId` is empty for an event of no command.
    explicit CommandEvent(std::optional<IDType> commandId) : commandId_(commandId) {}

  private:
    std::optional<IDType> commandId_;
};

}  // namespace foundation::msg_svc::eventmgr
