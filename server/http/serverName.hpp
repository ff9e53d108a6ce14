#pragma once

namespace server::http {

/// What the `Server` header says: no version, which would only help to pick an attack.
inline constexpr const char* kServerName = "yvm-connector";

}  // namespace server::http
