#include "foundation/json/detail/number.hpp"

#include <fast_float/fast_float.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace foundation::json::detail {

namespace {

constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

/// The powers of ten that a double holds exactly.
constexpr double exactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                  1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr std::int64_t maxExactPower = 22;
constexpr std::uint64_t maxExactInteger = std::uint64_t{1} << 53;

template <typename T>
char* writeFloating(char* target, T number) noexcept {
    if (!std::isfinite(number)) {
        return static_cast<char*>(std::memcpy(target, "null", 4)) + 4;
    }
    return std::to_chars(target, target + numberRoom, number).ptr;
}

}  // namespace

double string_to_double(const char* begin, const char* end) noexcept {
    double number = 0;
    fast_float::from_chars(begin, end, number);
    return number;
}

float string_to_float(const char* begin, const char* end) noexcept {
    float number = 0;
    fast_float::from_chars(begin, end, number);
    return number;
}

bool readNumber(const char*& position, const char* end, double& number) noexcept {
    const char* p = position;
    const bool negative = p != end && *p == '-';
    if (negative) {
        ++p;
    }
    // Past 19 digits the mantissa is garbage, and not used.
    std::uint64_t mantissa = 0;
    const char* const integer = p;
    while (p != end && isDigit(*p)) {
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p++ - '0');
    }
    std::ptrdiff_t digits = p - integer;
    if (digits == 0) {
        return false;
    }
    std::int64_t power = 0;
    if (p != end && *p == '.') {
        const char* const fraction = ++p;
        while (p != end && isDigit(*p)) {
            mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p++ - '0');
        }
        if (p == fraction) {
            return false;
        }
        power = fraction - p;
        digits += p - fraction;
    }
    if (p != end && (*p == 'e' || *p == 'E')) {
        ++p;
        const bool below = p != end && *p == '-';
        if (p != end && (*p == '-' || *p == '+')) {
            ++p;
        }
        const char* const exponent = p;
        std::int64_t value = 0;
        while (p != end && isDigit(*p)) {
            // Held below the overflow of 64 bits; so large an exponent is not used here.
            value = value < 100000 ? value * 10 + (*p - '0') : value;
            ++p;
        }
        if (p == exponent) {
            return false;
        }
        power += below ? -value : value;
    }
    // Both operands of one operation are exact, so its result is the nearest double (Clinger's fast path).
    if (digits <= 19 && mantissa <= maxExactInteger && power >= -maxExactPower && power <= maxExactPower) {
        const double exact = static_cast<double>(mantissa);
        const double magnitude = power < 0 ? exact / exactPowers[-power] : exact * exactPowers[power];
        number = negative ? -magnitude : magnitude;
    } else {
        number = string_to_double(position, p);
    }
    position = p;
    return true;
}

char* writeNumber(char* target, double number) noexcept {
    return writeFloating(target, number);
}

char* writeNumber(char* target, float number) noexcept {
    return writeFloating(target, number);
}

}  // namespace foundation::json::detail
