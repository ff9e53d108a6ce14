#pragma once

#include <string>
#include <vector>

namespace yvm::JSClient {

/// The versions of the client protocol, in the order of preference: the greatest value is the best.
enum class ApiVersion : int { Unsupported = 0, r22a0 = 1, r24a0 = 2 };

/// The enumerator's own name, which for a supported version is the text on the wire; "Unknown" for any other
/// number.
std::string apiVersionToString(ApiVersion version);

/// Compares exactly; any text that names no version gives `Unsupported`.
ApiVersion parseApiVersion(const std::string& text);

/// The best version among the texts, whatever their order; `Unsupported` when they name none.
ApiVersion newestApiVersion(const std::vector<std::string>& texts);

/// What a client may ask for, oldest first: {"r22a0", "r24a0"}.
const std::vector<std::string>& supportedApiVersions();

}  // namespace yvm::JSClient
