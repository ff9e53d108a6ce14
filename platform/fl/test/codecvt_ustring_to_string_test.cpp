#include "fl/i18n/codecvt_ustring_to_string.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using fl::i18n::codecvt_ustring_to_string;
using namespace std::string_literals;

TEST(CodecvtUstringToString, ConvertsThroughItsBase) {
    codecvt_ustring_to_string codecvt("UTF-8", true);
    fl::i18n::converter<char, char16_t>& converter = codecvt;
    EXPECT_EQ(converter.convert(u"a\0\u20AC\U0001F600"s), "a\0\xE2\x82\xAC\xF0\x9F\x98\x80"s);
}

TEST(CodecvtUstringToString, ReplacesLoneSurrogatesWhenAskedTo) {
    codecvt_ustring_to_string codecvt("UTF-8", true);
    EXPECT_EQ(codecvt.convert(std::u16string{u'a', 0xDE00, u'b', 0xD83D}),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
}

TEST(CodecvtUstringToString, KeepsNoStateBetweenCalls) {
    codecvt_ustring_to_string codecvt("UTF-8", true);
    EXPECT_EQ(codecvt.convert(std::u16string{0xD83D}), "\xEF\xBF\xBD");
    EXPECT_EQ(codecvt.convert(std::u16string{0xDE00}), "\xEF\xBF\xBD");
}

TEST(CodecvtUstringToString, ThrowsOnALoneSurrogateWhenNotAskedToReplace) {
    codecvt_ustring_to_string codecvt("UTF-8", false);
    EXPECT_EQ(codecvt.convert(u"fine \uFFFD \U0001F600"), "fine \xEF\xBF\xBD \xF0\x9F\x98\x80");
    try {
        codecvt.convert(std::u16string{u'a', u'b', 0xDE00});
        FAIL() << "no exception";
    } catch (const std::range_error& error) {
        EXPECT_STREQ(error.what(), "lone surrogate at offset 2 of the 16-bit text");
    }
}

TEST(CodecvtUstringToString, RefusesAnotherEncoding) {
    try {
        const codecvt_ustring_to_string codecvt("Shift_JIS", true);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "encoding 'Shift_JIS' is not supported; the only one is 'UTF-8'");
    }
}
