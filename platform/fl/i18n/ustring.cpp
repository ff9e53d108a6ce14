#include "fl/i18n/ustring.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace fl::i18n {
namespace {

constexpr char16_t replacement = u'\uFFFD';

bool isHighSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
bool isLowSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}
bool isSurrogate(char16_t unit) {
    return (unit & 0xF800) == 0xD800;
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

/// Runs of ASCII are moved in blocks of this many units, by loops that compilers turn into vector code.
constexpr std::size_t blockSize = 32;

template <typename Unit>
bool isAsciiBlock(const Unit* block) {
    // Of the unit's own size, so that a vector holds as many as it can.
    std::make_unsigned_t<Unit> all = 0;
    for (std::size_t i = 0; i < blockSize; ++i) {
        all =
            static_cast<std::make_unsigned_t<Unit>>(all | static_cast<std::make_unsigned_t<Unit>>(block[i]));
    }
    return all < 0x80;
}

template <typename To, typename From>
void copyAsciiBlock(To* to, const From* from) {
    for (std::size_t i = 0; i < blockSize; ++i) {
        to[i] = static_cast<To>(from[i]);
    }
}

/// Bytes that `encode` may write, of which those behind its result mean nothing.
constexpr std::size_t encodedSize = 4;

/// Writes the UTF-8 form of a character above U+FFFF, and returns its end.
char* encodePair(char16_t high, char16_t low, char* to) {
    const char32_t character = 0x10000 + ((high & 0x3FFU) << 10) + (low & 0x3FFU);
    to[0] = static_cast<char>(0xF0 | (character >> 18));
    to[1] = static_cast<char>(0x80 | ((character >> 12) & 0x3F));
    to[2] = static_cast<char>(0x80 | ((character >> 6) & 0x3F));
    to[3] = static_cast<char>(0x80 | (character & 0x3F));
    return to + 4;
}

/// Writes the UTF-8 form of a unit that is no surrogate, and returns its end. With masks in place of
/// branches: in mixed text lengths cannot be predicted.
char* encode(std::uint32_t unit, char* to) {
    const std::uint32_t last = 0x80 | (unit & 0x3F);
    const std::uint32_t two = (0xC0 | (unit >> 6)) | last << 8;
    const std::uint32_t three = (0xE0 | (unit >> 12)) | (0x80 | ((unit >> 6) & 0x3F)) << 8 | last << 16;
    const std::uint32_t needsTwo = unit >= 0x80 ? 1 : 0;
    const std::uint32_t needsThree = unit >= 0x800 ? 1 : 0;
    const std::uint32_t bytes =
        (unit & (needsTwo - 1)) | (two & (needsThree - 1) & (0 - needsTwo)) | (three & (0 - needsThree));
    // Compilers make one store of these.
    to[0] = static_cast<char>(bytes);
    to[1] = static_cast<char>(bytes >> 8);
    to[2] = static_cast<char>(bytes >> 16);
    to[3] = static_cast<char>(bytes >> 24);
    return to + 1 + needsTwo + needsThree;
}

/// Writes the characters that begin in `from` to `until`, and returns the end of what was written. The last
/// one may be a pair that ends behind `until`, but not behind `end`; `from` is moved behind it.
char* encodeRange(const char16_t*& from, const char16_t* until, const char16_t* end, char* to) {
    while (from < until) {
        const char16_t unit = *from++;
        if (!isSurrogate(unit)) {
            to = encode(unit, to);
        } else if (isHighSurrogate(unit) && from < end && isLowSurrogate(*from)) {
            to = encodePair(unit, *from++, to);
        } else {
            to = encode(replacement, to);
        }
    }
    return to;
}

}  // namespace

std::u16string to_ustring(std::string_view utf8) {
    std::u16string text;
    text.reserve(utf8.size());
    for (std::size_t at = 0; at < utf8.size();) {
        if (utf8.size() - at >= blockSize && isAsciiBlock(utf8.data() + at)) {
            std::array<char16_t, blockSize> block;
            copyAsciiBlock(block.data(), utf8.data() + at);
            text.append(block.data(), blockSize);
            at += blockSize;
            continue;
        }
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
    // By way of a buffer in the cache: a string cannot grow without being filled first.
    constexpr std::size_t chunkSize = 1024;
    static_assert(chunkSize % blockSize == 0);
    std::array<char, 3 * chunkSize + encodedSize> buffer;
    std::string utf8;
    utf8.reserve(text.size());
    const char16_t* from = text.data();
    const char16_t* const end = from + text.size();
    while (from < end) {
        const char16_t* const until = from + std::min<std::ptrdiff_t>(chunkSize, end - from);
        char* to = buffer.data();
        while (until - from >= static_cast<std::ptrdiff_t>(blockSize)) {
            if (isAsciiBlock(from)) {
                copyAsciiBlock(to, from);
                from += blockSize;
                to += blockSize;
            } else {
                to = encodeRange(from, from + blockSize, end, to);
            }
        }
        to = encodeRange(from, until, end, to);
        utf8.append(buffer.data(), to);
    }
    return utf8;
}

}  // namespace fl::i18n
