#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

#include <string>
#include <vector>

namespace yvm {

/// Names of the workspace appeared, got another value, or went. Its event name is "yvm::WorkspaceEvent".
class [[gnu::visibility("default")]] WorkspaceEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<WorkspaceEvent> {
  public:
    /// Names in UTF-8, each list sorted.
    WorkspaceEvent(std::optional<IDType> commandId, std::vector<std::string> appeared,
                   std::vector<std::string> changed, std::vector<std::string> gone);
    ~WorkspaceEvent() override;

    const std::vector<std::string>& appeared() const noexcept { return appeared_; }
    const std::vector<std::string>& changed() const noexcept { return changed_; }
    const std::vector<std::string>& gone() const noexcept { return gone_; }

  private:
    std::vector<std::string> appeared_;
    std::vector<std::string> changed_;
    std::vector<std::string> gone_;
};

}  // namespace yvm
