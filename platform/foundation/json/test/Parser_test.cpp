#include "foundation/json/Parser.hpp"

#include "foundation/json/ParserException.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/json/detail/number.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation::json {
namespace {

std::string conversionErrorOf(std::string_view text) {
    try {
        parseText(text);
    } catch (const ParserException& error) {
        return std::string("a parser error: ") + error.what();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

/// "code@offset" of the failure.
std::string failureOf(std::string_view text) {
    try {
        parseText(text);
    } catch (const ParserException& error) {
        return std::to_string(static_cast<int>(error.code())) + "@" + std::to_string(error.offset());
    }
    return "no failure";
}

double number(std::string_view text) {
    return parseText(text).as<double>();
}

TEST(Parser, EachKindOfTextGivesItsAlternative) {
    EXPECT_TRUE(parseText("null").is<Null>());
    EXPECT_EQ(parseText("true").as<bool>(), true);
    EXPECT_EQ(parseText("false").as<bool>(), false);
    EXPECT_EQ(parseText("1").as<double>(), 1.0);
    EXPECT_EQ(parseText("\"a\"").as<std::string>(), "a");
    EXPECT_EQ(parseText("[]").as<Array>(), Array());
    EXPECT_EQ(parseText("{}").as<Object>(), Object());
    EXPECT_EQ(parseText("[null,[true],{\"k\":\"v\"}]").as<Array>(),
              (Array{Null(), Value(Array{Value(true)}), Object{{"k", "v"}}}));
}

TEST(Parser, StopsBehindTheValueAndTellsWhere) {
    const std::string text = "{\"a\":1} x";
    Value value;
    const JsonParseResult result = parse(text.data(), text.data() + text.size(), value);
    EXPECT_EQ(result.code, ParseResult::success);
    EXPECT_EQ(result.offset, 7u);
    EXPECT_EQ(value, Value(Object{{"a", 1.0}}));
}

TEST(Parser, LeavesUndefinedAfterAFailure) {
    const std::string text = "[1,";
    Value value = "before";
    EXPECT_FALSE(parse(text.data(), text.data() + text.size(), value).ok());
    EXPECT_TRUE(value.is<Undefined>());
}

TEST(Parser, RepeatedKeyKeepsItsFirstValue) {
    EXPECT_EQ(parseText("{\"a\":1,\"a\":2}"), parseText("{\"a\":1}"));
}

TEST(Parser, LaterValueOfARepeatedKeyMustBeValid) {
    EXPECT_EQ(failureOf("{\"a\":1,\"a\":tru}"), "8@11");
}

TEST(Parser, LeadingZerosPass) {
    EXPECT_EQ(parseText("{\"requestID\":\"a\",\"n\":007}").as<Object>().at("n").as<double>(), 7.0);
}

TEST(Parser, LeadingBlankFailsWithExpectedString) {
    EXPECT_EQ(failureOf(" {\"requestID\":\"a\"}"), "8@0");
}

TEST(Parser, TrailingBlankIsIncomplete) {
    EXPECT_EQ(failureOf("{\"requestID\":\"a\"} "), "0@17");
}

TEST(Parser, EverySpaceOfTheCLocaleIsWhiteSpaceAndNoOtherByte) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text = std::string("[") + static_cast<char>(byte) + "1]";
        const bool accepted = failureOf(text) == "no failure";
        const bool isSpace = byte == ' ' || (byte >= '\t' && byte <= '\r');
        EXPECT_EQ(accepted, isSpace || byte == '-' || (byte >= '0' && byte <= '9')) << "byte " << byte;
    }
}

TEST(Parser, EscapesAreDecoded) {
    EXPECT_EQ(parseText(R"("\"\/\\\b\f\n\r\t")").as<std::string>(), "\"/\\\b\f\n\r\t");
    EXPECT_EQ(parseText(R"("\u0041\u00e9\u20AC\uD83D\uDE00")").as<std::string>(),
              "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(parseText(R"("\u0000")").as<std::string>(), std::string(1, '\0'));
}

TEST(Parser, RawBytesOfAStringAreKept) {
    const std::string raw = "a\x01\n\xFF\xC3\x28 long enough for the fast scan";
    EXPECT_EQ(parseText("\"" + raw + "\"").as<std::string>(), raw);
}

TEST(Parser, QuotesAndEscapesAreFoundAtEveryPosition) {
    for (std::size_t length = 0; length < 40; ++length) {
        const std::string plain(length, 'x');
        EXPECT_EQ(parseText("\"" + plain + "\"").as<std::string>(), plain);
        EXPECT_EQ(parseText("\"" + plain + "\\n" + plain + "\"").as<std::string>(), plain + "\n" + plain);
    }
}

TEST(Parser, HighSurrogateTakesAnyFollowingUnit) {
    EXPECT_EQ(parseText(R"("\uD800\u0041")").as<std::string>(), "\xF0\x90\x81\x81");
}

TEST(Parser, LoneLowSurrogateTakesThreeBytes) {
    EXPECT_EQ(parseText(R"("\uDE00")").as<std::string>(), "\xED\xB8\x80");
}

TEST(Parser, BrokenUnicodeEscapeIsReportedAtItsBackslash) {
    EXPECT_EQ(failureOf(R"("ab\u12G4")"), "5@3");
    EXPECT_EQ(failureOf(R"("ab\uD83D")"), "5@3");
    EXPECT_EQ(failureOf(R"("ab\uD83D\u12")"), "5@9");
    EXPECT_EQ(failureOf("\"ab\\u12"), "5@3");
}

TEST(Parser, EndOfTextInsideAStringIsAnUnterminatedString) {
    EXPECT_EQ(failureOf("\"abc"), "9@4");
    EXPECT_EQ(failureOf("\"abc\\"), "9@5");
}

TEST(Parser, BadNumberConsumesNothing) {
    for (const char* text : {"-", "1.", "1.e5", "1e", "1e+", "-x", "+1", ".5"}) {
        EXPECT_EQ(failureOf(text), "8@0") << text;
    }
}

TEST(Parser, EndOfTextWhereATokenIsDueIsReportedAtTheLength) {
    for (const std::string text :
         {"", "{", "{ ", "{\"a\"", "{\"a\" ", "{\"a\":", "{\"a\":1", "{\"a\":1,", "[", "[1", "[1, "}) {
        EXPECT_EQ(failureOf(text), "19@" + std::to_string(text.size())) << text;
    }
}

TEST(Parser, NumbersAreTheNearestDoubles) {
    EXPECT_EQ(number("0.1"), 0.1);
    EXPECT_EQ(number("-12.5e+3"), -12500.0);
    EXPECT_EQ(number("1E2"), 100.0);
    EXPECT_EQ(number("9007199254740993"), 9007199254740992.0);
    EXPECT_EQ(number("123456789012345678901234567890"), 123456789012345678901234567890.0);
    EXPECT_EQ(number("0.1000000000000000055511151231257827021181583404541015625"), 0.1);
    EXPECT_EQ(number("2.2250738585072011e-308"), 2.2250738585072011e-308);
    EXPECT_EQ(number("1e23"), 1e23);
    EXPECT_EQ(number("18446744073709551617"), 18446744073709551616.0) << "the digits exceed 64 bits";
    EXPECT_EQ(number("00000000000000000000000000000000000001"), 1.0);
}

TEST(Parser, MinusZeroKeepsItsSign) {
    EXPECT_TRUE(std::signbit(number("-0")));
    EXPECT_TRUE(std::signbit(number("-0.0e5")));
    EXPECT_FALSE(std::signbit(number("0")));
}

TEST(Parser, NumbersBeyondTheRangeBecomeInfiniteAndBelowItVanish) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(number("1e999"), infinity);
    EXPECT_EQ(number("-1e999"), -infinity);
    EXPECT_EQ(number("1e99999999999999999999999"), infinity);
    EXPECT_EQ(number("1e-999"), 0.0);
    EXPECT_EQ(number("1e-99999999999999999999999"), 0.0);
    EXPECT_EQ(number("5e-324"), std::numeric_limits<double>::denorm_min());
}

TEST(Parser, StringToDoubleReadsTheTextOfANumber) {
    const std::string_view text = "-0.25e1";
    EXPECT_EQ(detail::string_to_double(text.data(), text.data() + text.size()), -2.5);
}

TEST(TypedIntegers, OrderOfTheTwoKeysMakesNoDifference) {
    const Value expected(Object{{"ywtype", "uint8"}, {"ywdata", Array{std::uint64_t{1}, std::uint64_t{2}}}});
    EXPECT_EQ(parseText("{\"ywtype\":\"uint8\",\"ywdata\":[1,2]}"), expected);
    EXPECT_EQ(parseText("{\"ywdata\":[1,2],\"ywtype\":\"uint8\"}"), expected);
}

TEST(TypedIntegers, AllEightNamesAndNoOthersAreTyped) {
    for (const std::string name : {"int64", "int32", "int16", "int8"}) {
        EXPECT_TRUE(parseText("{\"ywtype\":\"" + name + "\",\"ywdata\":[1]}")
                        .as<Object>()
                        .at("ywdata")
                        .as<Array>()[0]
                        .is<std::int64_t>());
        EXPECT_TRUE(parseText("{\"ywtype\":\"u" + name + "\",\"ywdata\":[1]}")
                        .as<Object>()
                        .at("ywdata")
                        .as<Array>()[0]
                        .is<std::uint64_t>());
    }
    for (const std::string name : {"double", "INT8", "int", "int128", ""}) {
        EXPECT_TRUE(parseText("{\"ywtype\":\"" + name + "\",\"ywdata\":[1]}")
                        .as<Object>()
                        .at("ywdata")
                        .as<Array>()[0]
                        .is<double>());
    }
}

TEST(TypedIntegers, FractionFailsWithCode20) {
    EXPECT_EQ(failureOf("{\"ywtype\":\"int32\",\"ywdata\":[1.5]}"), "20@29");
}

TEST(TypedIntegers, NegativeInAnUnsignedArrayIsZeroAndTheWidthIsNotKept) {
    EXPECT_EQ(parseText("{\"ywtype\":\"uint8\",\"ywdata\":[-1,300]}").as<Object>().at("ywdata").as<Array>(),
              (Array{std::uint64_t{0}, std::uint64_t{300}}));
}

TEST(TypedIntegers, SaturateAt64Bits) {
    EXPECT_EQ(
        parseText(
            "{\"ywtype\":\"int64\",\"ywdata\":[9223372036854775807,9223372036854775808,-9223372036854775808,"
            "-9223372036854775809,99999999999999999999999]}")
            .as<Object>()
            .at("ywdata")
            .as<Array>(),
        (Array{INT64_MAX, INT64_MAX, INT64_MIN, INT64_MIN, INT64_MAX}));
    EXPECT_EQ(parseText("{\"ywtype\":\"uint64\",\"ywdata\":[18446744073709551615,18446744073709551616,"
                        "18446744073709551614]}")
                  .as<Object>()
                  .at("ywdata")
                  .as<Array>(),
              (Array{UINT64_MAX, UINT64_MAX, UINT64_MAX - 1}));
}

TEST(TypedIntegers, ZeroEndsTheNumber) {
    EXPECT_EQ(failureOf("{\"ywtype\":\"int8\",\"ywdata\":[01]}"), "15@28");
    EXPECT_EQ(parseText("{\"ywtype\":\"int8\",\"ywdata\":[-0, 0]}").as<Object>().at("ywdata").as<Array>(),
              (Array{std::int64_t{0}, std::int64_t{0}}));
}

TEST(TypedIntegers, FailureOfTheSecondPassPointsIntoTheData) {
    EXPECT_EQ(failureOf("{\"ywdata\":[1.5],\"ywtype\":\"int32\"}"), "20@12");
}

TEST(TypedIntegers, FirstOfRepeatedKeysCounts) {
    EXPECT_EQ(
        parseText("{\"ywtype\":\"double\",\"ywtype\":\"int8\",\"ywdata\":[1]}").as<Object>().at("ywdata"),
        Value(Array{1.0}));
    EXPECT_EQ(parseText("{\"ywdata\":[1],\"ywdata\":[2],\"ywtype\":\"int8\"}").as<Object>().at("ywdata"),
              Value(Array{std::int64_t{1}}));
    EXPECT_EQ(parseText("{\"ywtype\":\"int8\",\"ywdata\":[1],\"ywdata\":[2]}").as<Object>().at("ywdata"),
              Value(Array{std::int64_t{1}}));
}

TEST(TypedIntegers, TypeThatIsNoStringThrowsFromInsideTheParser) {
    EXPECT_EQ(conversionErrorOf("{\"ywtype\":5"), "invalid conversion: double to string");
    EXPECT_EQ(conversionErrorOf("{\"a\":[{\"ywtype\":null,"), "invalid conversion: null to string");
    EXPECT_EQ(conversionErrorOf("{\"ywtype\":\"int8\",\"ywtype\":[],"),
              "invalid conversion: array to string");
}

TEST(TypedIntegers, NestedObjectsAreTypedEachForItself) {
    EXPECT_EQ(
        Serializer::serialize(parseText("{\"ywtype\":\"int8\",\"o\":{\"ywdata\":[1.5]},\"ywdata\":[2]}")),
        "{\"o\":{\"ywdata\":[1.5]},\"ywdata\":[2],\"ywtype\":\"int8\"}");
}

TEST(ParseDepth, AMillionBracketsParse) {
    constexpr std::size_t depth = 1000000;
    const std::string text = std::string(depth, '[') + std::string(depth, ']');
    EXPECT_EQ(Serializer::serialize(parseText(text)), text);
}

TEST(ParseDepth, AMillionUnclosedBracketsFailAtTheEnd) {
    EXPECT_EQ(failureOf(std::string(1000000, '[')), "19@1000000");
}

TEST(ParseDepth, AMillionNestedObjectsParse) {
    constexpr std::size_t depth = 1000000;
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) {
        text += "{\"a\":";
    }
    text += "1" + std::string(depth, '}');
    EXPECT_EQ(Serializer::serialize(parseText(text)), text);
}

}  // namespace
}  // namespace foundation::json
