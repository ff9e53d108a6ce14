#pragma once

#include "server/bayeux/Refusal.hpp"

#include <optional>
#include <string>
#include <vector>

namespace server::bayeux {

/// Refuses an attach that could only settle on r22a0, of which the module has no services yet: such a
/// client would be attached to silence. `offered` are the versions of the attach. An attach that offers
/// nothing known passes, since the module has an answer for it.
std::optional<Refusal> refuseUnservedVersions(const std::vector<std::string>& offered);

}  // namespace server::bayeux
