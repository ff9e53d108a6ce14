#include "foundation/json/ParserException.hpp"

#include "foundation/json/Parser.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace foundation::json {
namespace {

TEST(ParserException, TellsCodeDescriptionPlaceAndContextInThreeLines) {
    const ParserException error(ParseResult::expectedColon, "Expected ':'", "{\"a\"=1}", 4);
    EXPECT_STREQ(error.what(),
                 "JSON ParserException (E0018): Expected ':' (Line 1, Column 4)\n\t{\"a\"=1}\n\t    ^");
    EXPECT_EQ(error.code(), ParseResult::expectedColon);
    EXPECT_EQ(error.offset(), 4u);
}

TEST(ParserException, CountsLinesFromOneAndColumnsFromZero) {
    const ParserException error(ParseResult::expectedString, "d", "{\n\"a\":1,\n  x}\n", 11);
    EXPECT_EQ(error.line(), 3u);
    EXPECT_EQ(error.column(), 2u);
    EXPECT_STREQ(error.what(), "JSON ParserException (E0008): d (Line 3, Column 2)\n\t  x}\n\t  ^");
}

TEST(ParserException, ContextTakesEightyBytesOnEachSide) {
    const std::string line = std::string(100, 'a') + std::string(100, 'b');
    const ParserException error(ParseResult::expectedString, "d", "\n\n" + line, 102);
    EXPECT_EQ(error.line(), 3u);
    EXPECT_EQ(error.column(), 100u);
    EXPECT_EQ(error.context(), std::string(80, 'a') + std::string(80, 'b'));
    EXPECT_EQ(std::string(error.what()), "JSON ParserException (E0008): d (Line 3, Column 100)\n\t" +
                                             std::string(80, 'a') + std::string(80, 'b') + "\n\t" +
                                             std::string(80, ' ') + "^");
}

TEST(ParserException, ErrorAtALineFeedHasNothingBehindIt) {
    const ParserException error(ParseResult::unterminatedString, "d", "ab\ncd", 2);
    EXPECT_EQ(error.context(), "ab");
    EXPECT_EQ(error.line(), 1u);
    EXPECT_EQ(error.column(), 2u);
}

TEST(ParserException, EmptyTextHasAnEmptyContext) {
    const ParserException error(ParseResult::unexpectedEnd, "d", "", 0);
    EXPECT_STREQ(error.what(), "JSON ParserException (E0019): d (Line 1, Column 0)\n\t\n\t^");
}

TEST(ParserException, WhatGoesOnBehindTheValueHasCodeZero) {
    try {
        parseText("{} ");
        FAIL() << "parsed";
    } catch (const ParserException& error) {
        EXPECT_STREQ(error.what(),
                     "JSON ParserException (E0000): Parse incomplete (Line 1, Column 2)\n\t{} \n\t  ^");
    }
}

TEST(ParserException, ParseFailuresCarryTheDescriptionOfTheirCode) {
    try {
        parseText("{\"a\"}");
        FAIL() << "parsed";
    } catch (const ParserException& error) {
        EXPECT_STREQ(error.what(),
                     "JSON ParserException (E0018): Expected ':' after an object key (Line 1, Column 4)\n"
                     "\t{\"a\"}\n\t    ^");
    }
}

TEST(ParseResultDescription, EachAssignedCodeHasItsOwnAndTheOthersHaveNone) {
    std::set<std::string_view> descriptions;
    for (int code = 0; code <= 20; ++code) {
        const std::string_view description = get_parse_result_description(static_cast<ParseResult>(code));
        if (code == 3 || code == 4 || code == 10) {
            EXPECT_EQ(description, "Unknown error") << code;
        } else {
            EXPECT_NE(description, "Unknown error") << code;
            EXPECT_TRUE(descriptions.insert(description).second) << description;
        }
    }
}

}  // namespace
}  // namespace foundation::json
