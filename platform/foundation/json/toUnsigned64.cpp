#include "foundation/json/toUnsigned64.hpp"

namespace foundation::json {

namespace {

constexpr double twoTo63 = 9223372036854775808.0;
constexpr std::uint64_t highBit = std::uint64_t{1} << 63;

std::uint64_t truncateSigned(double value) noexcept {
    // The comparison is false for NaN too.
    const bool fits = value > -twoTo63 && value < twoTo63;
    return fits ? static_cast<std::uint64_t>(static_cast<std::int64_t>(value)) : highBit;
}

}  // namespace

std::uint64_t toUnsigned64(double value) noexcept {
    return value >= twoTo63 ? truncateSigned(value - twoTo63) + highBit : truncateSigned(value);
}

}  // namespace foundation::json
