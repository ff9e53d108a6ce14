#include "server/bayeux/JsonText.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

TEST(JsonText, QuotesWhatAStringMayNotHold) {
    std::string out = "x";
    appendJsonString(out, std::string_view("a\"\\\n\0b/\xc3\xa4", 9));
    EXPECT_EQ(out, "x\"a\\\"\\\\\\u000a\\u0000b/\xc3\xa4\"");
}

TEST(JsonText, WritesOtherCharactersAsEscapesInAscii) {
    EXPECT_EQ(toAsciiJson("[\"a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\",1]"),
              R"(["a\u00e4\u20ac\ud83d\ude00",1])");
}

TEST(JsonText, TheValidatorTakesEveryKindOfValue) {
    for (const char* text : {"null", "true", "false", "0", "-0", "10", "1.5", "1e5", "1E-5", "1.0e+10",
                             "\"\"", "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00fF\"", "[]", "{}", "[[],{}]",
                             " { \"a\" : [ 1 , 2 ] } \n", R"({"a":{"b":[null]}})", R"("\ud83d\ude00")"}) {
        EXPECT_FALSE(whyNotStrictJson(text, 10)) << text;
    }
}

TEST(JsonText, TheValidatorSaysWhatIsWrongAndWhere) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "the text ends too early at byte 0"},
        {"[", "the text ends too early at byte 1"},
        {"[1", "the text ends too early at byte 2"},
        {"{\"a\":", "the text ends too early at byte 5"},
        {"1 2", "more text behind the value at byte 2"},
        {"[1,]", "a value is expected at byte 3"},
        {"{\"a\":1,}", "a key in quotes is expected at byte 7"},
        {"{a:1}", "a key in quotes is expected at byte 1"},
        {"{\"a\" 1}", "a colon is expected at byte 5"},
        {"[1 2]", "a comma or the end is expected at byte 3"},
        {"[1}", "a comma or the end is expected at byte 2"},
        {"nul", "a value is expected at byte 0"},
        {"-", "a digit is expected at byte 1"},
        {"1.", "a digit is expected at byte 2"},
        {"1e", "a digit is expected at byte 2"},
        {"01", "more text behind the value at byte 1"},
        {"\"a", "a string has no end at byte 2"},
        {"\"\\", "a string has no end at byte 2"},
        {"\"\\x\"", "an unknown escape stands in a string at byte 2"},
        {"\"\\ud800\"", "a lone high surrogate stands in a string at byte 7"},
        {"\"\\udc00\"", "a lone low surrogate stands in a string at byte 7"},
        {"\"\t\"", "a control character stands in a string at byte 1"},
        {"[[[]]]", "nested more than 2 levels deep at byte 2"},
    };
    for (const auto& [text, why] : cases) {
        const auto fault = whyNotStrictJson(text, 2);
        ASSERT_TRUE(fault) << text;
        EXPECT_EQ(fault->text, why) << text;
        EXPECT_EQ(fault->isDepth, std::string_view(text) == "[[[]]]") << text;
    }
}

TEST(JsonText, TheValidatorSurvivesAMillionBrackets) {
    const std::string deep = std::string(1'000'000, '[') + std::string(1'000'000, ']');
    EXPECT_FALSE(whyNotStrictJson(deep, 1'000'000));
}

}  // namespace
}  // namespace server::bayeux
