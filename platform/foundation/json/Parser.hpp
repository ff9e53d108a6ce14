#pragma once

#include "foundation/json/ParseResult.hpp"
#include "foundation/json/Value.hpp"

#include <cstddef>
#include <string_view>

namespace foundation::json {

/// The outcome of `parse`.
struct JsonParseResult {
    ParseResult code = ParseResult::success;
    /// On success the bytes consumed: the parser stands behind the value, and what follows is the caller's
    /// concern. On failure the byte at fault, counted from the start of the text.
    std::size_t offset = 0;

    bool ok() const noexcept { return code == ParseResult::success; }
};

/// Parses one value from the start of [begin, end) into `out`, which is Undefined after a failure.
///
/// The grammar is JSON's, with these differences:
///
/// - White space (space, \t, \n, \v, \f, \r) is skipped only inside of objects and arrays; a text that starts
///   with a blank fails with expectedString at 0.
/// - Numbers may have leading zeros, and become double always; beyond the range they become infinite or 0.
/// - Strings may hold any raw byte but the quote and the backslash, valid UTF-8 or not. A lone low surrogate
///   is encoded in three bytes.
/// - In an object, a repeated key keeps its first value.
/// - An object whose key `ywtype` names an integer type has the array in its key `ywdata` read as 64-bit
///   integers: signed for "int8" to "int64", unsigned for "uint8" to "uint64", saturating. Either key may
///   come first.
/// - There is no limit of depth; the parser takes no stack per level.
///
/// Throws std::runtime_error ("invalid conversion: ...") for a `ywtype` that is no string.
JsonParseResult parse(const char* begin, const char* end, Value& out);

/// Parses a whole text. Throws ParserException when it is no value or goes on behind the value ("Parse
/// incomplete", code 0; trailing white space counts), and std::runtime_error as `parse` does.
Value parseText(std::string_view text);

}  // namespace foundation::json
