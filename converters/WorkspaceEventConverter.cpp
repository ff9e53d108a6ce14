#include "converters/WorkspaceEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "yvm/WorkspaceEvent.hpp"

#include <string>
#include <vector>

namespace converters {

namespace {

foundation::json::Array namesToJson(const std::vector<std::string>& names) {
    return foundation::json::Array(names.begin(), names.end());
}

}  // namespace

std::map<std::string, foundation::json::Value> WorkspaceEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& workspace = eventAs<yvm::WorkspaceEvent>(event);
    return {{"appeared", namesToJson(workspace.appeared())},
            {"changed", namesToJson(workspace.changed())},
            {"gone", namesToJson(workspace.gone())}};
}

}  // namespace converters
