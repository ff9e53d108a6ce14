#include "fl/i18n/ustring.hpp"

#include <cstddef>

namespace fl::i18n {
namespace {

constexpr char16_t replacement = u'\uFFFD';

bool isHighSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
bool isLowSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

/// What a first byte asks for: how many bytes follow, and the range of the first of these. The range is
/// what shuts out overlong forms, surrogates and characters above U+10FFFF; later bytes are 80..BF.
struct Lead {
    int following;
    unsigned char secondFrom;
    unsigned char secondTo;
};

Lead classify(unsigned char byte) {
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {1, 0x80, 0xBF};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        return {2, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return {3, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0};
}

void append(std::u16string& text, char32_t character) {
    if (character < 0x10000) {
        text += static_cast<char16_t>(character);
    } else {
        text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
        text += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
    }
}

void append(std::string& utf8, char32_t character) {
    const auto byte = [&utf8](char32_t value) { utf8 += static_cast<char>(value); };
    if (character < 0x80) {
        byte(character);
    } else if (character < 0x800) {
        byte(0xC0 | (character >> 6));
        byte(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        byte(0xE0 | (character >> 12));
        byte(0x80 | ((character >> 6) & 0x3F));
        byte(0x80 | (character & 0x3F));
    } else {
        byte(0xF0 | (character >> 18));
        byte(0x80 | ((character >> 12) & 0x3F));
        byte(0x80 | ((character >> 6) & 0x3F));
        byte(0x80 | (character & 0x3F));
    }
}

}  // namespace

std::u16string to_ustring(std::string_view utf8) {
    std::u16string text;
    text.reserve(utf8.size());
    for (std::size_t at = 0; at < utf8.size();) {
        const auto first = static_cast<unsigned char>(utf8[at++]);
        if (first < 0x80) {
            text += static_cast<char16_t>(first);
            continue;
        }
        const Lead lead = classify(first);
        char32_t character = first & (0x3FU >> lead.following);
        int read = 0;
        for (; read < lead.following && at < utf8.size(); ++read, ++at) {
            const auto next = static_cast<unsigned char>(utf8[at]);
            const unsigned from = read == 0 ? lead.secondFrom : 0x80;
            const unsigned to = read == 0 ? lead.secondTo : 0xBF;
            if (next < from || next > to) {
                break;
            }
            character = (character << 6) | (next & 0x3FU);
        }
        if (lead.following == 0 || read < lead.following) {
            text += replacement;
        } else {
            append(text, character);
        }
    }
    return text;
}

std::string to_string(std::u16string_view text) {
    std::string utf8;
    utf8.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char16_t unit = text[at];
        if (isHighSurrogate(unit) && at + 1 < text.size() && isLowSurrogate(text[at + 1])) {
            const char16_t low = text[++at];
            append(utf8, 0x10000 + ((unit & 0x3FFU) << 10) + (low & 0x3FFU));
        } else {
            append(utf8, isHighSurrogate(unit) || isLowSurrogate(unit) ? replacement : unit);
        }
    }
    return utf8;
}

}  // namespace fl::i18n
