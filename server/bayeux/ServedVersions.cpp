#include "server/bayeux/ServedVersions.hpp"

#include <algorithm>

namespace server::bayeux {

std::optional<Refusal> refuseUnservedVersions(const std::vector<std::string>& offered) {
    const auto offers = [&](const char* version) {
        return std::find(offered.begin(), offered.end(), version) != offered.end();
    };
    if (offers("r22a0") && !offers("r24a0")) {
        return Refusal{ErrorCode::Forbidden, "this server does not speak r22a0 yet - offer r24a0"};
    }
    return std::nullopt;
}

}  // namespace server::bayeux
