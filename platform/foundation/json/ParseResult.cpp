#include "foundation/json/ParseResult.hpp"

namespace foundation::json {

std::string_view get_parse_result_description(ParseResult code) noexcept {
    switch (code) {
        case ParseResult::success:
            return "Success";
        case ParseResult::expectedNull:
            return "Expected null";
        case ParseResult::expectedBoolean:
            return "Expected true or false";
        case ParseResult::invalidUnicodeEscape:
            return "Invalid Unicode escape in string";
        case ParseResult::unknownEscape:
            return "Unknown escape in string";
        case ParseResult::endOfString:
            return "End of string";
        case ParseResult::expectedString:
            return "Expected a value or a string";
        case ParseResult::unterminatedString:
            return "Missing closing quote of string";
        case ParseResult::expectedDigit:
            return "Expected a digit";
        case ParseResult::expectedFraction:
            return "Expected a digit after the decimal point";
        case ParseResult::expectedExponent:
            return "Expected a digit in the exponent";
        case ParseResult::expectedArray:
            return "Expected an array";
        case ParseResult::expectedCommaOrBracket:
            return "Expected ',' or ']' after an array element";
        case ParseResult::expectedObject:
            return "Expected an object";
        case ParseResult::expectedCommaOrBrace:
            return "Expected ',' or '}' after an object member";
        case ParseResult::expectedColon:
            return "Expected ':' after an object key";
        case ParseResult::unexpectedEnd:
            return "Unexpected end of text";
        case ParseResult::invalidIntegerElement:
            return "Invalid element of a typed integer array";
    }
    return "Unknown error";
}

}  // namespace foundation::json
