#include "common/ApiVersion.hpp"

#include <algorithm>

namespace yvm::JSClient {

std::string apiVersionToString(ApiVersion version) {
    switch (version) {
        case ApiVersion::Unsupported:
            return "Unsupported";
        case ApiVersion::r22a0:
            return "r22a0";
        case ApiVersion::r24a0:
            return "r24a0";
    }
    return "Unknown";
}

ApiVersion parseApiVersion(const std::string& text) {
    if (text == "r22a0") {
        return ApiVersion::r22a0;
    }
    if (text == "r24a0") {
        return ApiVersion::r24a0;
    }
    return ApiVersion::Unsupported;
}

ApiVersion newestApiVersion(const std::vector<std::string>& texts) {
    auto newest = ApiVersion::Unsupported;
    for (const auto& text : texts) {
        newest = std::max(newest, parseApiVersion(text));
    }
    return newest;
}

const std::vector<std::string>& supportedApiVersions() {
    static const std::vector<std::string> versions = {apiVersionToString(ApiVersion::r22a0),
                                                      apiVersionToString(ApiVersion::r24a0)};
    return versions;
}

}  // namespace yvm::JSClient
