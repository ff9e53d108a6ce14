#pragma once

#include <string_view>

namespace foundation::json {

/// What a parse came to. The numbers are a contract: they stand in the texts of errors, and the repair of
/// damaged requests is steered by them. 3, 4 and 10 are unassigned.
enum class ParseResult : int {
    /// Parsed; also the code of a text that goes on behind its value.
    success = 0,
    /// At a value, the text is not `null`. Never wins over expectedString at the same place.
    expectedNull = 1,
    /// At a value, the text is neither `true` nor `false`. Never wins, as above.
    expectedBoolean = 2,
    /// `\u` without four hexadecimal digits, or a high surrogate that is not followed by `\u`.
    invalidUnicodeEscape = 5,
    /// Unknown escape after a backslash.
    unknownEscape = 6,
    /// Inside the string reader only: the closing quote was met.
    endOfString = 7,
    /// A string was expected and no double quote stands there; also any bad token where a value is due.
    expectedString = 8,
    /// Closing double quote missing.
    unterminatedString = 9,
    /// A number has no digit where it must begin. Never wins, as above.
    expectedDigit = 11,
    /// No digit after the decimal point. Never wins, as above.
    expectedFraction = 12,
    /// No digit in the exponent. Never wins, as above.
    expectedExponent = 13,
    /// An array was expected and no `[` stands there.
    expectedArray = 14,
    /// After an array element, neither `,` nor `]`.
    expectedCommaOrBracket = 15,
    /// An object was expected and no `{` stands there. Never wins, as above.
    expectedObject = 16,
    /// After an object member, neither `,` nor `}`.
    expectedCommaOrBrace = 17,
    /// After an object key, no `:`.
    expectedColon = 18,
    /// The text ended too early.
    unexpectedEnd = 19,
    /// Invalid element of a typed integer array.
    invalidIntegerElement = 20,
};

/// A short English description without a full stop. Never empty; an unassigned number gives "Unknown error".
std::string_view get_parse_result_description(ParseResult code) noexcept;

}  // namespace foundation::json
