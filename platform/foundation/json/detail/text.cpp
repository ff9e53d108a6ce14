#include "foundation/json/detail/text.hpp"

#include <cstdint>
#include <cstring>

namespace foundation::json::detail {

namespace {

constexpr std::uint64_t everyByte(unsigned char byte) noexcept {
    return 0x0101010101010101u * byte;
}

/// Non-zero if one of the eight bytes of `word` is zero.
constexpr std::uint64_t zeroBytes(std::uint64_t word) noexcept {
    return (word - everyByte(1)) & ~word & everyByte(0x80);
}

/// The first quote or backslash in [position, end), else `end`. Eight bytes at a time, since most of a string
/// is plain.
const char* findQuoteOrBackslash(const char* position, const char* end) noexcept {
    while (end - position >= 8) {
        std::uint64_t word;
        std::memcpy(&word, position, sizeof word);
        if ((zeroBytes(word ^ everyByte('"')) | zeroBytes(word ^ everyByte('\\'))) != 0) {
            break;
        }
        position += 8;
    }
    while (position != end && *position != '"' && *position != '\\') {
        ++position;
    }
    return position;
}

/// The first byte in [position, end) that does not stand for itself in a JSON string or begins a multibyte
/// character.
const char* findSpecial(const char* position, const char* end) noexcept {
    while (end - position >= 8) {
        std::uint64_t word;
        std::memcpy(&word, position, sizeof word);
        const std::uint64_t controls = (word - everyByte(0x20)) & ~word;
        if (((controls | word) & everyByte(0x80)) != 0 ||
            (zeroBytes(word ^ everyByte('"')) | zeroBytes(word ^ everyByte('\\'))) != 0) {
            break;
        }
        position += 8;
    }
    while (position != end && static_cast<unsigned char>(*position) >= 0x20 &&
           static_cast<unsigned char>(*position) < 0x80 && *position != '"' && *position != '\\') {
        ++position;
    }
    return position;
}

void appendUtf8(std::string& text, std::uint32_t code) {
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += static_cast<char>(0xC0 | code >> 6);
        text += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        text += static_cast<char>(0xE0 | code >> 12);
        text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | code >> 18);
        text += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (code & 0x3F));
    }
}

/// The value of a `\uXXXX` that begins at `position`, or -1 if no such escape stands there.
std::int32_t hexEscape(const char* position, const char* end) noexcept {
    if (end - position < 6 || position[0] != '\\' || position[1] != 'u') {
        return -1;
    }
    std::int32_t unit = 0;
    for (int i = 2; i < 6; ++i) {
        const char c = position[i];
        if (c >= '0' && c <= '9') {
            unit = unit * 16 + (c - '0');
        } else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f') {
            unit = unit * 16 + ((c | 0x20) - 'a' + 10);
        } else {
            return -1;
        }
    }
    return unit;
}

constexpr bool isHighSurrogate(std::int32_t unit) noexcept {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

/// Decodes the `\u` escape at `position`, the second half of a pair included, and goes behind it.
ParseResult readUnicodeEscape(const char*& position, const char* end, std::string& text) {
    const char* fault = position;
    std::int32_t code = hexEscape(position, end);
    std::ptrdiff_t length = 6;
    if (isHighSurrogate(code)) {
        const char* const second = position + length;
        if (std::string_view(second, end).starts_with("\\u")) {
            fault = second;
        }
        // The second half is not checked to be a low surrogate.
        const std::int32_t low = hexEscape(second, end);
        code = low < 0 ? low : 0x10000 + ((code & 0x3FF) << 10) + (low & 0x3FF);
        length = 12;
    }
    if (code < 0) {
        // At the backslash of the escape at fault: dropping that one byte mends the text, as in "C:\users".
        position = fault;
        return ParseResult::invalidUnicodeEscape;
    }
    appendUtf8(text, static_cast<std::uint32_t>(code));
    position += length;
    return ParseResult::success;
}

/// Decodes the escape whose backslash stands at `position`, and goes behind it.
ParseResult readEscape(const char*& position, const char* end, std::string& text) {
    if (end - position < 2) {
        position = end;
        return ParseResult::unterminatedString;
    }
    char decoded = 0;
    switch (position[1]) {
        case '"':
        case '/':
        case '\\':
            decoded = position[1];
            break;
        case 'b':
            decoded = '\b';
            break;
        case 'f':
            decoded = '\f';
            break;
        case 'n':
            decoded = '\n';
            break;
        case 'r':
            decoded = '\r';
            break;
        case 't':
            decoded = '\t';
            break;
        case 'u':
            return readUnicodeEscape(position, end, text);
        default:
            ++position;
            return ParseResult::unknownEscape;
    }
    text += decoded;
    position += 2;
    return ParseResult::success;
}

/// The length of the valid UTF-8 character of two bytes or more at the start of `text`, or 0.
std::size_t multibyteLength(std::string_view text) noexcept {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const std::size_t length = lead >= 0xC2 && lead < 0xE0   ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead < 0xF5                 ? 4
                                                             : 0;
    if (lead < 0xC2 || length == 0 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool surrogate = lead == 0xED && byte(1) >= 0xA0;
    const bool tooHigh = lead == 0xF4 && byte(1) >= 0x90;
    return overlong || surrogate || tooHigh ? 0 : length;
}

void appendEscaped(std::string& text, char c) {
    constexpr std::string_view hex = "0123456789abcdef";
    switch (c) {
        case '"':
            text += "\\\"";
            break;
        case '\\':
            text += "\\\\";
            break;
        case '\b':
            text += "\\b";
            break;
        case '\f':
            text += "\\f";
            break;
        case '\n':
            text += "\\n";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\t':
            text += "\\t";
            break;
        default:
            text += "\\u00";
            text += hex[static_cast<unsigned char>(c) >> 4];
            text += hex[static_cast<unsigned char>(c) & 0xF];
    }
}

}  // namespace

ParseResult readString(const char*& position, const char* end, std::string& text) {
    ++position;
    const char* stop = findQuoteOrBackslash(position, end);
    text.assign(position, stop);
    while (stop != end && *stop == '\\') {
        position = stop;
        if (const ParseResult result = readEscape(position, end, text); result != ParseResult::success) {
            return result;
        }
        stop = findQuoteOrBackslash(position, end);
        text.append(position, stop);
    }
    position = stop;
    if (stop == end) {
        return ParseResult::unterminatedString;
    }
    ++position;
    return ParseResult::success;
}

void appendQuoted(std::string& text, std::string_view value) {
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    text += '"';
    const char* position = value.data();
    const char* const end = position + value.size();
    for (;;) {
        const char* special = findSpecial(position, end);
        text.append(position, special);
        position = special;
        if (position == end) {
            break;
        }
        if (static_cast<unsigned char>(*position) < 0x80) {
            appendEscaped(text, *position++);
        } else if (const std::size_t length = multibyteLength({position, end}); length != 0) {
            text.append(position, length);
            position += length;
        } else {
            text += replacement;
            ++position;
        }
    }
    text += '"';
}

}  // namespace foundation::json::detail
