#include "foundation/json/detail/number.hpp"

#include <fast_float/fast_float.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>

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

char* writeNull(char* target) noexcept {
    return std::ranges::copy(std::string_view("null"), target).out;
}

/// Writes a number that is a decimal of at most 15 digits, six of them behind the point; returns null for
/// another one.
///
/// Most numbers that people and instruments make are such decimals, and the general algorithm is slowest on
/// them. Two decimals of 15 digits never share a double, so the digits found here are those that the general
/// algorithm finds. There is never an exponent, where that may write 1e+05.
char* writeShortDecimal(char* target, double number) noexcept {
    constexpr double scale = 1e6;
    constexpr auto integerScale = static_cast<std::int64_t>(scale);
    constexpr double limit = 1e15;
    const double scaled = std::nearbyint(std::fabs(number) * scale);
    // The division of two exact numbers gives the nearest double, as reading the text will. Minus zero has
    // its own text.
    if (!(scaled < limit) || scaled / scale != std::fabs(number) || (scaled == 0 && std::signbit(number))) {
        return nullptr;
    }
    const auto digits = static_cast<std::int64_t>(scaled);
    if (number < 0) {
        *target++ = '-';
    }
    target = std::to_chars(target, target + numberRoom, digits / integerScale).ptr;
    std::int64_t fraction = digits % integerScale;
    if (fraction != 0) {
        *target++ = '.';
        for (std::int64_t place = integerScale / 10; fraction != 0; place /= 10) {
            *target++ = static_cast<char>('0' + fraction / place);
            fraction %= place;
        }
    }
    return target;
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

ParseResult readNumber(const char*& position, const char* end, double& number) noexcept {
    const char* const start = position;
    const char* p = position;
    const auto stop = [&](ParseResult result) {
        position = p;
        return result;
    };
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
        return stop(ParseResult::expectedDigit);
    }
    std::int64_t power = 0;
    if (p != end && *p == '.') {
        const char* const fraction = ++p;
        while (p != end && isDigit(*p)) {
            mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p++ - '0');
        }
        if (p == fraction) {
            return stop(ParseResult::expectedFraction);
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
            return stop(ParseResult::expectedExponent);
        }
        power += below ? -value : value;
    }
    // Both operands of one operation are exact, so its result is the nearest double (Clinger's fast path).
    if (digits <= 19 && mantissa <= maxExactInteger && power >= -maxExactPower && power <= maxExactPower) {
        const double exact = static_cast<double>(mantissa);
        const double magnitude = power < 0 ? exact / exactPowers[-power] : exact * exactPowers[power];
        number = negative ? -magnitude : magnitude;
    } else {
        number = string_to_double(start, p);
    }
    return stop(ParseResult::success);
}

char* writeNumber(char* target, double number) noexcept {
    if (!std::isfinite(number)) {
        return writeNull(target);
    }
    char* const end = writeShortDecimal(target, number);
    return end != nullptr ? end : std::to_chars(target, target + numberRoom, number).ptr;
}

char* writeNumber(char* target, float number) noexcept {
    return std::isfinite(number) ? std::to_chars(target, target + numberRoom, number).ptr : writeNull(target);
}

}  // namespace foundation::json::detail
