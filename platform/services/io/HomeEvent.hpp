#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

namespace services::io {

/// The cursor of the console is to go home, to the top left. Its event name is "services::io::HomeEvent".
class [[gnu::visibility("default")]] HomeEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<HomeEvent> {
  public:
    explicit HomeEvent(std::optional<IDType> commandId);
    ~HomeEvent() override;
};

}  // namespace services::io
