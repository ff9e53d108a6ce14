#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"
#include "ylutil/prompt/PromptState.hpp"

namespace ylutil::prompt {

/// The engine's prompt has come into another state. Its event name is "ylutil::prompt::PromptEvent".
class [[gnu::visibility("default")]] PromptEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<PromptEvent> {
  public:
    PromptEvent(std::optional<IDType> commandId, PromptState state);
    ~PromptEvent() override;

    PromptState state() const noexcept { return state_; }

  private:
    PromptState state_;
};

}  // namespace ylutil::prompt
