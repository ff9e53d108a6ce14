#pragma once

#include "foundation/json/ParseResult.hpp"

#include <cstddef>

namespace foundation::json::detail {

/// The double nearest to the text of a JSON number, which the caller has checked. Beyond the range the result
/// is infinite, below it 0 or denormal. Independent of the locale.
double string_to_double(const char* begin, const char* end) noexcept;

/// The same for float, which may differ from the double rounded once more.
float string_to_float(const char* begin, const char* end) noexcept;

/// Reads the number at the start of [position, end): an optional `-`, digits, an optional fraction, an
/// optional exponent. Leading zeros pass.
///
/// Returns success with `position` behind the number, or expectedDigit, expectedFraction or expectedExponent
/// with `position` where the digit is missing; `number` is then as it was.
ParseResult readNumber(const char*& position, const char* end, double& number) noexcept;

/// Room that each of the `write` functions below may need.
constexpr std::size_t numberRoom = 32;

/// Write a number as the Serializer does to `target`, which has numberRoom bytes, and return the end of the
/// text.
char* writeNumber(char* target, double number) noexcept;
char* writeNumber(char* target, float number) noexcept;

}  // namespace foundation::json::detail
