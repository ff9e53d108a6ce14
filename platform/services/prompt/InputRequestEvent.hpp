#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

#include <string>

namespace services::prompt {

/// A command asks for a line of input. Its event name is "services::prompt::InputRequestEvent".
class [[gnu::visibility("default")]] InputRequestEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<InputRequestEvent> {
  public:
    /// `id` names the request in its answer; `password` tells that what is typed is not to be shown.
    InputRequestEvent(std::optional<IDType> commandId, std::string id, std::u16string prompt, bool password);
    ~InputRequestEvent() override;

    const std::string& id() const noexcept { return id_; }
    const std::u16string& prompt() const noexcept { return prompt_; }
    bool password() const noexcept { return password_; }

  private:
    std::string id_;
    std::u16string prompt_;
    bool password_;
};

}  // namespace services::prompt
