#pragma once

#include <cstdint>

namespace foundation::json {

/// Truncates a JSON number towards zero to unsigned 64 bits, for counts and sizes that a client may send as
/// it likes.
///
/// Below 2^63, negative numbers included, this is the signed conversion reinterpreted: -1 gives all ones.
/// From 2^63 to 2^64 the value itself. The language leaves the rest undefined and compilers differ even
/// within a program; here, what does not fit into the signed step gives 2^63 there, as the processor does:
/// 2^64 and above and +inf give 0, -2^63 and below, -inf and NaN give 2^63.
std::uint64_t toUnsigned64(double value) noexcept;

}  // namespace foundation::json
