#include "yvm/WorkspaceEvent.hpp"

#include <utility>

namespace yvm {

WorkspaceEvent::WorkspaceEvent(std::optional<IDType> commandId, std::vector<std::string> appeared,
                               std::vector<std::string> changed, std::vector<std::string> gone)
    : CommandEvent(commandId),
      appeared_(std::move(appeared)),
      changed_(std::move(changed)),
      gone_(std::move(gone)) {}

WorkspaceEvent::~WorkspaceEvent() = default;

}  // namespace yvm
