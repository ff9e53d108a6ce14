#pragma once

#include "foundation/json/Value.hpp"

namespace yvm::JSClient {

/// Every request, response and published message in memory: the members of one JSON object, ordered by key.
using JsonObject = foundation::json::Object;

}  // namespace yvm::JSClient
