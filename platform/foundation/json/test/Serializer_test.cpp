#include "foundation/json/Serializer.hpp"

#include "foundation/json/Parser.hpp"

#include <gtest/gtest.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <string_view>

namespace foundation::json {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::string text(const Value& value) {
    return Serializer::serialize(value);
}

std::uint64_t bitsOf(double number) {
    std::uint64_t bits;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

TEST(Serializer, WritesEachAlternative) {
    EXPECT_EQ(text(Undefined()), "null");
    EXPECT_EQ(text(Null()), "null");
    EXPECT_EQ(text(true), "true");
    EXPECT_EQ(text(false), "false");
    EXPECT_EQ(text(0), "0");
    EXPECT_EQ(text(1.0), "1");
    EXPECT_EQ(text(-2.5), "-2.5");
    EXPECT_EQ(text(0.1f), "0.1");
    EXPECT_EQ(text("a"), "\"a\"");
    EXPECT_EQ(text(Array()), "[]");
    EXPECT_EQ(text(Object()), "{}");
    EXPECT_EQ(text(Object{{"b", Array{1.0, Null(), Object{{"c", "d"}}}}, {"a", true}}),
              "{\"a\":true,\"b\":[1,null,{\"c\":\"d\"}]}");
}

TEST(Serializer, AppendsBehindWhatIsThere) {
    std::string target = "x=";
    Serializer::append(target, Array{1.0});
    EXPECT_EQ(target, "x=[1]");
}

TEST(Serializer, WritesAnObjectAsTheValueOfIt) {
    const Object object{{"a", Array{1, Object{{"b", Null()}}, Array{}, 2}}, {"c", "d"}};
    EXPECT_EQ(Serializer::serialize(object), text(Value(object)));
    EXPECT_EQ(Serializer::serialize(Object{}), "{}");
}

TEST(Serializer, WritesLongArraysWithContainersBetweenTheNumbers) {
    Array array;
    std::string expected = "[";
    for (int i = 0; i < 3000; ++i) {
        if (i % 1000 == 999) {
            array.emplace_back(Array{i, Object{{"k", i}}});
            expected += "[" + std::to_string(i) + R"(,{"k":)" + std::to_string(i) + "}],";
        } else {
            array.emplace_back(i);
            expected += std::to_string(i) + ",";
        }
    }
    expected.back() = ']';
    EXPECT_EQ(text(array), expected);
}

TEST(Serializer, IntegersAreExact) {
    EXPECT_EQ(text(INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(text(INT64_MAX), "9223372036854775807");
    EXPECT_EQ(text(UINT64_MAX), "18446744073709551615");
}

TEST(Serializer, NumbersThatAreNotFiniteAreNull) {
    EXPECT_EQ(text(Array{infinity, -infinity, nan, std::numeric_limits<float>::infinity()}),
              "[null,null,null,null]");
}

TEST(Serializer, DoublesReadBackToTheSameBits) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 200000; ++i) {
        const std::uint64_t bits = random();
        double number;
        std::memcpy(&number, &bits, sizeof number);
        if (number - number == 0) {
            const double back = parseText(text(number)).as<double>();
            ASSERT_EQ(bitsOf(back), bitsOf(number)) << text(number);
        }
    }
    for (const double number :
         {0.0, -0.0, 5e-324, 2.2250738585072011e-308, 1.7976931348623157e308, 1e22, 1e23, 0.1, 1.0 / 3}) {
        EXPECT_EQ(bitsOf(parseText(text(number)).as<double>()), bitsOf(number)) << text(number);
    }
}

TEST(Serializer, DecimalsAreWrittenWithTheirDigitsAndWithoutAnExponent) {
    EXPECT_EQ(text(Array{100000.0, -12.5, 0.000001, 1.25, 999999999.999999, 123456789.0, -0.0, 0.0}),
              "[100000,-12.5,0.000001,1.25,999999999.999999,123456789,-0,0]");
    EXPECT_EQ(text(Array{0.1 + 0.2, 1e9, 1e15, 1e-7, 1e22}), "[0.30000000000000004,1e+09,1e+15,1e-07,1e+22]");
    std::mt19937_64 random(5);
    for (int i = 0; i < 100000; ++i) {
        const double number =
            static_cast<double>(static_cast<std::int64_t>(random() % 2000000000000000) - 1000000000000000) /
            1e6;
        char expected[64];
        const char* const end =
            std::to_chars(expected, std::end(expected), number, std::chars_format::fixed).ptr;
        ASSERT_EQ(text(number), std::string_view(expected, end));
    }
}

TEST(Serializer, EscapesControlsQuotesAndBackslashes) {
    EXPECT_EQ(text("\"\\/\b\f\n\r\t"), R"("\"\\/\b\f\n\r\t")");
    std::string controls;
    for (int c = 0; c < 0x20; ++c) {
        controls += static_cast<char>(c);
    }
    EXPECT_EQ(
        text(controls),
        R"("\u0000\u0001\u0002\u0003\u0004\u0005\u0006\u0007\b\t\n\u000b\f\r\u000e\u000f\u0010\u0011\u0012\u0013)"
        R"(\u0014\u0015\u0016\u0017\u0018\u0019\u001a\u001b\u001c\u001d\u001e\u001f")");
    EXPECT_EQ(text("\x7F"), "\"\x7F\"");
}

TEST(Serializer, EscapesAtEveryPosition) {
    for (std::size_t length = 0; length < 40; ++length) {
        const std::string plain(length, 'x');
        EXPECT_EQ(text(plain + "\n" + plain), "\"" + plain + "\\n" + plain + "\"");
        EXPECT_EQ(text(plain + "\xC3\xA9" + plain), "\"" + plain + "\xC3\xA9" + plain + "\"");
    }
}

TEST(Serializer, ValidUtf8PassesAndTheRestBecomesReplacementCharacters) {
    const std::string replacement = "\xEF\xBF\xBD";
    const std::string valid =
        "\xC2\x80 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF \xF0\x90\x80\x80 "
        "\xF4\x8F\xBF\xBF";
    EXPECT_EQ(text(valid), "\"" + valid + "\"");
    EXPECT_EQ(text("a\xFF"), "\"a" + replacement + "\"");
    EXPECT_EQ(text("\xC3"), "\"" + replacement + "\"");
    EXPECT_EQ(text("\xC3("), "\"" + replacement + "(\"");
    EXPECT_EQ(text("\x80"), "\"" + replacement + "\"");
    EXPECT_EQ(text("\xC0\x80"), "\"" + replacement + replacement + "\"") << "overlong";
    EXPECT_EQ(text("\xE0\x80\x80"), "\"" + replacement + replacement + replacement + "\"") << "overlong";
    EXPECT_EQ(text("\xF0\x80\x80\x80"), "\"" + replacement + replacement + replacement + replacement + "\"")
        << "overlong";
    EXPECT_EQ(text("\xED\xA0\x80"), "\"" + replacement + replacement + replacement + "\"") << "surrogate";
    EXPECT_EQ(text("\xF4\x90\x80\x80"), "\"" + replacement + replacement + replacement + replacement + "\"")
        << "too high";
    EXPECT_EQ(text("\xF5\x80"), "\"" + replacement + replacement + "\"");
}

TEST(Serializer, KeysAreEscapedToo) {
    EXPECT_EQ(text(Object{{"a\"\xFF", 1}}), "{\"a\\\"\xEF\xBF\xBD\":1}");
}

TEST(PrettyPrint, IndentsByTwoAndKeepsEmptyContainersOnOneLine) {
    EXPECT_EQ(pretty_print(Object{{"b", Array{1.0, Array(), Object()}}, {"a", Object{{"c", "d"}}}}),
              "{\n"
              "  \"a\": {\n"
              "    \"c\": \"d\"\n"
              "  },\n"
              "  \"b\": [\n"
              "    1,\n"
              "    [],\n"
              "    {}\n"
              "  ]\n"
              "}");
    EXPECT_EQ(pretty_print("a"), "\"a\"");
}

TEST(PrettyPrint, TakesWhateverAValueCanHold) {
    EXPECT_EQ(pretty_print(Object{{"a", infinity}, {"b", nan}, {"c", Undefined()}, {"d", "\xFF"}}),
              "{\n  \"a\": null,\n  \"b\": null,\n  \"c\": null,\n  \"d\": \"\xEF\xBF\xBD\"\n}");
}

TEST(PrettyPrint, StopsIndentingAtSixteenLevels) {
    const std::string printed = pretty_print(parseText(std::string(20, '[') + "1" + std::string(20, ']')));
    EXPECT_NE(printed.find("\n" + std::string(32, ' ') + "1\n"), std::string::npos);
    EXPECT_EQ(printed.find(std::string(33, ' ')), std::string::npos);
}

TEST(PrettyPrint, AMillionLevelsArePrinted) {
    constexpr std::size_t depth = 1000000;
    const Value value = parseText(std::string(depth, '[') + std::string(depth, ']'));
    EXPECT_EQ(parseText(pretty_print(value)), value);
}

}  // namespace
}  // namespace foundation::json
