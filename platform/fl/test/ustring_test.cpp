#include "fl/i18n/ustring.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using fl::i18n::to_string;
using fl::i18n::to_ustring;
using namespace std::string_literals;

TEST(ToUstring, EmptyGivesEmpty) {
    EXPECT_EQ(to_ustring(""), u"");
}

TEST(ToUstring, ReadsCharactersOfEveryLength) {
    EXPECT_EQ(to_ustring("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"), u"a\u00E9\u20AC\U0001F600z");
}

TEST(ToUstring, KeepsNul) {
    EXPECT_EQ(to_ustring("a\0b"s), u"a\0b"s);
}

TEST(ToUstring, AnAstralCharacterBecomesAPair) {
    const auto text = to_ustring("\xF0\x9F\x98\x80");
    ASSERT_EQ(text.size(), 2U);
    EXPECT_EQ(text[0], 0xD83D);
    EXPECT_EQ(text[1], 0xDE00);
}

TEST(ToUstring, ReadsTheFirstAndLastCharacterOfEachLength) {
    EXPECT_EQ(to_ustring("\x7F"), u"\u007F"s);
    EXPECT_EQ(to_ustring("\xC2\x80"), u"\u0080"s);
    EXPECT_EQ(to_ustring("\xDF\xBF"), u"\u07FF"s);
    EXPECT_EQ(to_ustring("\xE0\xA0\x80"), u"\u0800"s);
    EXPECT_EQ(to_ustring("\xED\x9F\xBF"), u"\uD7FF"s);
    EXPECT_EQ(to_ustring("\xEE\x80\x80"), u"\uE000"s);
    EXPECT_EQ(to_ustring("\xEF\xBF\xBF"), u"\uFFFF"s);
    EXPECT_EQ(to_ustring("\xF0\x90\x80\x80"), u"\U00010000"s);
    EXPECT_EQ(to_ustring("\xF4\x8F\xBF\xBF"), u"\U0010FFFF"s);
}

TEST(ToUstring, EachMaximalInvalidSequenceBecomesOneReplacement) {
    const std::vector<std::pair<std::string, std::u16string>> cases = {
        // A lone continuation byte, and bytes that never occur.
        {"\x80", u"\uFFFD"},
        {"\xBF\x80", u"\uFFFD\uFFFD"},
        {"\xFE\xFF", u"\uFFFD\uFFFD"},
        // Characters cut short, at the end and by another character.
        {"\xC3", u"\uFFFD"},
        {"\xE2\x82", u"\uFFFD"},
        {"\xF0\x9F\x98", u"\uFFFD"},
        {"\xF0\x9F\x98z", u"\uFFFDz"},
        {"\xE2\x82\xE2\x82\xAC", u"\uFFFD\u20AC"},
        {"\xC3\"", u"\uFFFD\""},
        // Overlong forms: no byte of them starts or continues a character.
        {"\xC0\x80", u"\uFFFD\uFFFD"},
        {"\xC1\xBF", u"\uFFFD\uFFFD"},
        {"\xE0\x80\x80", u"\uFFFD\uFFFD\uFFFD"},
        {"\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x8F\xBF\xBF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        // Surrogates written as three bytes, alone and as a pair.
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        {"\xED\xBF\xBF", u"\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\xBD\xED\xB8\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        // Above U+10FFFF.
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF5\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        // The example of the Unicode standard, table 3-8.
        {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64", u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(to_ustring(bytes), text) << testing::PrintToString(bytes);
    }
}

TEST(ToString, EmptyGivesEmpty) {
    EXPECT_EQ(to_string(u""), "");
}

TEST(ToString, WritesCharactersOfEveryLength) {
    EXPECT_EQ(to_string(u"a\u00E9\u20AC\U0001F600z"), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z");
}

TEST(ToString, KeepsNul) {
    EXPECT_EQ(to_string(u"a\0b"s), "a\0b"s);
}

TEST(ToString, EachLoneSurrogateBecomesOneReplacement) {
    const std::string replaced = "\xEF\xBF\xBD";
    const auto units = [](std::vector<unsigned> values) {
        return std::u16string(values.begin(), values.end());
    };
    EXPECT_EQ(to_string(units({0xDE00})), replaced);
    EXPECT_EQ(to_string(units({0xD83D})), replaced);
    EXPECT_EQ(to_string(units({0xD83D, 'x'})), replaced + "x");
    EXPECT_EQ(to_string(units({0xDE00, 0xD83D})), replaced + replaced);
    EXPECT_EQ(to_string(units({0xD83D, 0xD83D, 0xDE00})), replaced + "\xF0\x9F\x98\x80");
    EXPECT_EQ(to_string(units({0xD83D, 0xDE00, 0xDE00})), "\xF0\x9F\x98\x80" + replaced);
    EXPECT_EQ(to_string(units({0xDBFF, 0xDFFF})), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(to_string(units({0xD800, 0xDC00})), "\xF0\x90\x80\x80");
}

TEST(ToString, TheHalvesOfAPairConvertedSinglyGiveTwoReplacements) {
    const std::u16string pair = u"\U0001F600";
    EXPECT_EQ(to_string(pair.substr(0, 1)) + to_string(pair.substr(1)), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(ToString, EveryCharacterOfUnicodeComesBackFromUtf8) {
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        if (character >= 0xD800 && character <= 0xDFFF) {
            continue;
        }
        std::u16string text;
        if (character < 0x10000) {
            text += static_cast<char16_t>(character);
        } else {
            text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
        }
        ASSERT_EQ(to_ustring(to_string(text)), text) << static_cast<unsigned>(character);
    }
}

TEST(ToString, EverySurrogateAloneIsReplaced) {
    for (unsigned unit = 0xD800; unit <= 0xDFFF; ++unit) {
        ASSERT_EQ(to_string(std::u16string(1, static_cast<char16_t>(unit))), "\xEF\xBF\xBD") << unit;
    }
}

TEST(ToUstring, EveryTextOfTwoBytesGivesValidText) {
    for (unsigned first = 0; first < 256; ++first) {
        for (unsigned second = 0; second < 256; ++second) {
            const std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
            const auto text = to_ustring(bytes);
            ASSERT_FALSE(text.empty());
            ASSERT_LE(text.size(), 2U);
            // Valid text survives the way out and back.
            ASSERT_EQ(to_ustring(to_string(text)), text) << first << ' ' << second;
        }
    }
}

namespace {

/// UTF-8 by the definition, a character at a time.
std::string plainUtf8(const std::u16string& text) {
    std::string utf8;
    const auto byte = [&utf8](char32_t value) { utf8 += static_cast<char>(value); };
    for (std::size_t at = 0; at < text.size(); ++at) {
        char32_t character = text[at];
        const auto isBetween = [](char32_t unit, char32_t first, char32_t last) {
            return unit >= first && unit <= last;
        };
        if (isBetween(character, 0xD800, 0xDBFF) && at + 1 < text.size() &&
            isBetween(text[at + 1], 0xDC00, 0xDFFF)) {
            character = 0x10000 + (character - 0xD800) * 0x400 + (text[++at] - 0xDC00);
        } else if (isBetween(character, 0xD800, 0xDFFF)) {
            character = 0xFFFD;
        }
        if (character < 0x80) {
            byte(character);
        } else if (character < 0x800) {
            byte(0xC0 + character / 0x40);
            byte(0x80 + character % 0x40);
        } else if (character < 0x10000) {
            byte(0xE0 + character / 0x1000);
            byte(0x80 + character / 0x40 % 0x40);
            byte(0x80 + character % 0x40);
        } else {
            byte(0xF0 + character / 0x40000);
            byte(0x80 + character / 0x1000 % 0x40);
            byte(0x80 + character / 0x40 % 0x40);
            byte(0x80 + character % 0x40);
        }
    }
    return utf8;
}

/// All texts of `length` units, each of which is one of `units`.
template <typename String>
std::vector<String> allTexts(const String& units, std::size_t length) {
    std::vector<String> texts{String()};
    for (std::size_t i = 0; i < length; ++i) {
        std::vector<String> longer;
        for (const String& text : texts) {
            for (const auto unit : units) {
                longer.push_back(text + unit);
            }
        }
        texts = std::move(longer);
    }
    return texts;
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

}  // namespace

// Text is converted in blocks of 16 units and in chunks of 1024.
TEST(ToString, EveryMixOfSurrogatesIsTheSameAtEveryPlaceOfABlockAndOfAChunk) {
    // 'x', two and three bytes, and the halves.
    const auto mixes = allTexts(std::u16string{u'x', u'\u00E9', u'\u6F22', 0xD83D, 0xDE00}, 4);
    std::vector<std::size_t> places;
    for (std::size_t place = 0; place <= 17; ++place) {
        places.push_back(place);
    }
    for (std::size_t place = 1016; place <= 1027; ++place) {
        places.push_back(place);
    }
    std::size_t compared = 0;
    for (const std::u16string& mix : mixes) {
        const std::string expected = plainUtf8(mix);
        for (const char16_t before : {u'a', u'\u00E9', u'\u6F22'}) {
            const std::string beforeUtf8 = plainUtf8({before});
            for (const std::size_t place : places) {
                for (const std::size_t behind : {0U, 1U, 16U}) {
                    const auto text = std::u16string(place, before) + mix + std::u16string(behind, u'z');
                    ASSERT_EQ(to_string(text),
                              repeated(beforeUtf8, place) + expected + std::string(behind, 'z'))
                        << testing::PrintToString(mix) << " behind " << place << " times "
                        << testing::PrintToString(before) << ", before " << behind;
                    ++compared;
                }
            }
        }
    }
    EXPECT_EQ(compared, 625U * 3 * 30 * 3);
}

TEST(ToString, EveryPairOfUnitsIsAsTheDefinitionSays) {
    // Every unit, before and behind a high and a low half, and alone.
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        const std::u16string text{static_cast<char16_t>(unit), 0xD83D, static_cast<char16_t>(unit), 0xDE00,
                                  static_cast<char16_t>(unit), u'a',   static_cast<char16_t>(unit)};
        ASSERT_EQ(to_string(text), plainUtf8(text)) << unit;
    }
}

TEST(ToUstring, AsciiAroundTextOfBytesChangesNothingInIt) {
    for (const std::string& bytes : allTexts("x\xC3\xA9\xE2\x82\xF0\x9F\xFF"s, 4)) {
        const std::u16string expected = to_ustring(bytes);
        for (std::size_t before = 0; before <= 17; ++before) {
            for (const std::size_t behind : {0U, 1U, 33U}) {
                ASSERT_EQ(to_ustring(std::string(before, 'a') + bytes + std::string(behind, 'z')),
                          std::u16string(before, u'a') + expected + std::u16string(behind, u'z'))
                    << testing::PrintToString(bytes) << " behind " << before << ", before " << behind;
            }
        }
    }
}
