#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

namespace services::io {

/// The console is to be cleared. Its event name is "services::io::CLCEvent".
class [[gnu::visibility("default")]] CLCEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<CLCEvent> {
  public:
    explicit CLCEvent(std::optional<IDType> commandId);
    ~CLCEvent() override;
};

}  // namespace services::io
