#pragma once

#include "foundation/json/ParseResult.hpp"

#include <string>
#include <string_view>

namespace foundation::json::detail {

/// What isspace accepts in the C locale, for any byte.
inline bool isWhiteSpace(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline const char* skipWhiteSpace(const char* position, const char* end) noexcept {
    while (position != end && isWhiteSpace(*position)) {
        ++position;
    }
    return position;
}

/// Reads the string whose opening quote stands at `position` into `text`, escapes decoded.
///
/// Returns success with `position` behind the closing quote, or unterminatedString, invalidUnicodeEscape or
/// unknownEscape with `position` at the byte at fault; `text` then holds a part.
ParseResult readString(const char*& position, const char* end, std::string& text);

/// Appends `value` in quotes, escaped as valid JSON; see Serializer.
void appendQuoted(std::string& text, std::string_view value);

}  // namespace foundation::json::detail
