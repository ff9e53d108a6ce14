#include "foundation/yorlabdata/json/conversion.hpp"

#include "foundation/json/Parser.hpp"
#include "foundation/json/ParserException.hpp"
#include "foundation/json/Serializer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::yorlabdata::json {
namespace {

using foundation::json::Serializer;
using yorlabjson::ToJsonMode;

const ArrayFactory factory;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

Array read(std::string_view text) {
    return string_to_yorlabdata(text, factory);
}

std::string shortForm(const Array& array) {
    return Serializer::serialize(yorlabdata_to_json(array, ToJsonMode::preferYDAShort));
}

std::string longForm(const Array& array) {
    return Serializer::serialize(yorlabdata_to_json(array, ToJsonMode::alwaysYDALong));
}

std::string errorOf(std::string_view text) {
    try {
        read(text);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

template <Element T>
Array vector(std::vector<T> elements) {
    return factory.createArray<T>({elements.size()}, elements);
}

std::string typed(std::string_view type, std::string_view size, std::string_view data) {
    return "{\"ywtype\":\"" + std::string(type) + "\",\"ywsize\":" + std::string(size) +
           ",\"ywdata\":" + std::string(data) + "}";
}

TEST(ShortForm, PlainValuesStandForTheirArrays) {
    EXPECT_EQ(shortForm(Array()), "null");
    EXPECT_EQ(shortForm(factory.createScalar(2.5)), "2.5");
    EXPECT_EQ(shortForm(factory.createScalar(true)), "true");
    EXPECT_EQ(shortForm(Array(std::u16string(u"a\u00e9\U0001F600"))), "\"a\xC3\xA9\xF0\x9F\x98\x80\"");
    EXPECT_EQ(shortForm(vector<double>({1, -0.0, 2.5})), "[1,-0,2.5]");
    EXPECT_EQ(shortForm(vector<double>({})), "[]");
}

TEST(ShortForm, EverythingElseHasTheLongForm) {
    EXPECT_EQ(shortForm(factory.createScalar(1.5f)),
              "{\"ywdata\":[1.5],\"ywsize\":[],\"ywtype\":\"float32\"}");
    EXPECT_EQ(shortForm(factory.createScalar(nan)),
              "{\"ywdata\":[\"NaN\"],\"ywsize\":[],\"ywtype\":\"float64\"}");
    EXPECT_EQ(shortForm(vector<double>({1, infinity, -infinity})),
              "{\"ywdata\":[1,\"Inf\",\"-Inf\"],\"ywsize\":[3],\"ywtype\":\"float64\"}");
    const double elements[] = {1, 2, 3, 4};
    EXPECT_EQ(shortForm(factory.createArray<double>({2, 2}, elements)),
              "{\"ywdata\":[1,2,3,4],\"ywsize\":[2,2],\"ywtype\":\"float64\"}");
    const bool flags[] = {true, false};
    EXPECT_EQ(shortForm(factory.createArray<bool>({2}, flags)),
              "{\"ywdata\":[true,false],\"ywsize\":[2],\"ywtype\":\"bool\"}");
    EXPECT_EQ(shortForm(factory.createScalar(std::int32_t{-5})),
              "{\"ywdata\":[-5],\"ywsize\":[],\"ywtype\":\"int32\"}");
    EXPECT_EQ(shortForm(factory.createScalar(std::complex<double>(1, -2))),
              "{\"ywdata\":[1,-2],\"ywsize\":[],\"ywtype\":\"complex128\"}");
    EXPECT_EQ(shortForm(Array(List{Array(), factory.createScalar(1.0)})),
              "{\"ywdata\":[null,1],\"ywsize\":[2],\"ywtype\":\"list\"}");
    EXPECT_EQ(shortForm(Array(Record{{"b", factory.createScalar(1.0)}, {"a", Array()}})),
              "{\"ywdata\":{\"a\":null,\"b\":1},\"ywsize\":[],\"ywtype\":\"record\"}");
}

TEST(LongForm, IsWrittenForAllButNull) {
    EXPECT_EQ(longForm(Array()), "null");
    EXPECT_EQ(longForm(factory.createScalar(2.5)), "{\"ywdata\":[2.5],\"ywsize\":[],\"ywtype\":\"float64\"}");
    EXPECT_EQ(longForm(factory.createScalar(false)),
              "{\"ywdata\":[false],\"ywsize\":[],\"ywtype\":\"bool\"}");
    EXPECT_EQ(longForm(Array(std::u16string(u"a"))), "{\"ywdata\":\"a\",\"ywsize\":[],\"ywtype\":\"text\"}");
    EXPECT_EQ(longForm(vector<double>({1})), "{\"ywdata\":[1],\"ywsize\":[1],\"ywtype\":\"float64\"}");
    EXPECT_EQ(longForm(Array(List{factory.createScalar(1.0)})),
              "{\"ywdata\":[{\"ywdata\":[1],\"ywsize\":[],\"ywtype\":\"float64\"}],\"ywsize\":[1],\"ywtype\":"
              "\"list\"}");
}

TEST(LongForm, IntegersBeyondTheExactDoublesAreStringsOfDigits) {
    EXPECT_EQ(shortForm(vector<std::int64_t>(
                  {9007199254740992, 9007199254740993, -9007199254740992, -9007199254740993})),
              "{\"ywdata\":[9007199254740992,\"9007199254740993\",-9007199254740992,\"-9007199254740993\"],"
              "\"ywsize\":[4],\"ywtype\":\"int64\"}");
    EXPECT_EQ(shortForm(vector<std::uint64_t>({UINT64_MAX})),
              "{\"ywdata\":[\"18446744073709551615\"],\"ywsize\":[1],\"ywtype\":\"uint64\"}");
}

TEST(LongForm, LoneSurrogateOfATextBecomesTheReplacementCharacter) {
    EXPECT_EQ(shortForm(Array(std::u16string(1, char16_t{0xD800}))), "\"\xEF\xBF\xBD\"");
}

std::vector<Array> manyArrays() {
    const double matrix[] = {1, 2.5, nan, -infinity, 0.1, -0.0};
    const std::complex<double> complexes[] = {{1, -2}, {nan, infinity}};
    const std::complex<float> floats[] = {{0.1f, -2}, {3, 1e-40f}};
    const bool flags[] = {true, false, true};
    return {
        Array(),
        factory.createScalar(2.5),
        factory.createScalar(infinity),
        factory.createScalar(true),
        factory.createScalar(0.1f),
        factory.createScalar(std::int8_t{-128}),
        factory.createArray<double>({2, 3}, matrix),
        factory.createArray<double>({3, 1, 2}, matrix),
        factory.createArray<double>({0, 5}, {}),
        factory.createArray<std::complex<double>>({2}, complexes),
        factory.createArray<std::complex<float>>({2, 1}, floats),
        factory.createArray<bool>({3}, flags),
        vector<double>({}),
        vector<double>({1e308, 5e-324, 1.0 / 3, 100000}),
        vector<float>(
            {std::numeric_limits<float>::max(), std::numeric_limits<float>::denorm_min(), 1.0f / 3}),
        vector<std::int8_t>({-128, 0, 127}),
        vector<std::int16_t>({-32768, 32767}),
        vector<std::int32_t>({INT32_MIN, INT32_MAX}),
        vector<std::int64_t>({INT64_MIN, -1, INT64_MAX}),
        vector<std::uint8_t>({0, 255}),
        vector<std::uint16_t>({0, 65535}),
        vector<std::uint32_t>({0, UINT32_MAX}),
        vector<std::uint64_t>({0, UINT64_MAX}),
        Array(std::u16string(u"")),
        Array(std::u16string(u"line\n\"\u20ac\U0001F600\0x", 10)),
        Array(List{}),
        Array(List{Array(), Array(std::u16string(u"x")), Array(List{factory.createScalar(1.0)})}),
        Array(Record{}),
        Array(Record{{"a", vector<std::int64_t>({INT64_MAX})},
                     {"b", Array(Record{{"\u00e9", Array(List{Array()})}})}}),
    };
}

TEST(RoundTrip, BothFormsReadBackToTheSameArray) {
    for (const Array& array : manyArrays()) {
        EXPECT_EQ(read(shortForm(array)), array) << shortForm(array);
        EXPECT_EQ(read(longForm(array)), array) << longForm(array);
    }
}

TEST(RoundTrip, ValuesReadBackLikeTheirText) {
    for (const Array& array : manyArrays()) {
        EXPECT_EQ(json_to_yorlabdata(yorlabdata_to_json(array, ToJsonMode::preferYDAShort), factory), array)
            << shortForm(array);
        EXPECT_EQ(json_to_yorlabdata(yorlabdata_to_json(array, ToJsonMode::alwaysYDALong), factory), array)
            << longForm(array);
    }
}

TEST(RoundTrip, EveryBitOfRandomDoublesAndFloatsSurvives) {
    std::mt19937_64 random(7);
    std::vector<double> doubles;
    std::vector<float> floats;
    while (doubles.size() < 50000) {
        const std::uint64_t bits = random();
        double number;
        float half;
        std::memcpy(&number, &bits, sizeof number);
        std::memcpy(&half, &bits, sizeof half);
        if (std::isfinite(number) && std::isfinite(half)) {
            doubles.push_back(number);
            floats.push_back(half);
        }
    }
    EXPECT_EQ(read(shortForm(vector(doubles))), vector(doubles));
    EXPECT_EQ(read(shortForm(vector(floats))), vector(floats));
}

TEST(Reading, MembersComeInAnyOrder) {
    const double elements[] = {1, 2, 3, 4};
    const Array expected = factory.createArray<double>({2, 2}, elements);
    EXPECT_EQ(read("{\"ywtype\":\"float64\",\"ywsize\":[2,2],\"ywdata\":[1,2,3,4]}"), expected);
    EXPECT_EQ(read("{\"ywtype\":\"float64\",\"ywdata\":[1,2,3,4],\"ywsize\":[2,2]}"), expected);
    EXPECT_EQ(read("{\"ywsize\":[2,2],\"ywtype\":\"float64\",\"ywdata\":[1,2,3,4]}"), expected);
    EXPECT_EQ(read("{\"ywsize\":[2,2],\"ywdata\":[1,2,3,4],\"ywtype\":\"float64\"}"), expected);
    EXPECT_EQ(read("{\"ywdata\":[1,2,3,4],\"ywsize\":[2,2],\"ywtype\":\"float64\"}"), expected);
    EXPECT_EQ(read("{\"ywdata\":[1,2,3,4],\"ywtype\":\"float64\",\"ywsize\":[2,2]}"), expected);
}

TEST(Reading, DataBeforeItsTypeMayHoldStringsAndBrackets) {
    EXPECT_EQ(read(R"({"ywdata":"a]}\"[","ywtype":"text"})"), Array(std::u16string(u"a]}\"[")));
    EXPECT_EQ(read(R"({"ywdata":["1","]"],"ywsize":[2],"ywtype":"list"})"),
              Array(List{Array(std::u16string(u"1")), Array(std::u16string(u"]"))}));
    EXPECT_EQ(read(R"({"ywdata":["NaN",1],"ywsize":[2],"ywtype":"float64"})").size(), 2u);
    EXPECT_EQ(
        read(
            R"({"ywdata":{"a":{"ywdata":["9223372036854775807"],"ywsize":[1],"ywtype":"int64"}},"ywtype":"record"})"),
        Array(Record{{"a", vector<std::int64_t>({INT64_MAX})}}));
}

TEST(Reading, SizeMayBeLeftOutWhereItIsNotNeeded) {
    EXPECT_EQ(read("{\"ywtype\":\"text\",\"ywdata\":\"a\"}"), Array(std::u16string(u"a")));
    EXPECT_EQ(read("{\"ywtype\":\"list\",\"ywdata\":[1]}"), Array(List{factory.createScalar(1.0)}));
    EXPECT_EQ(read("{\"ywtype\":\"record\",\"ywdata\":{}}"), Array(Record{}));
}

TEST(Reading, RecordKeepsTheOrderOfTheText) {
    const Array array = read("{\"ywtype\":\"record\",\"ywdata\":{\"z\":1,\"a\":2}}");
    EXPECT_EQ(array.record()[0].first, "z");
    EXPECT_EQ(array.record()[1].first, "a");
}

TEST(Reading, WhiteSpaceIsSkippedEverywhere) {
    EXPECT_EQ(read(" [ 1 , 2 ] \n"), vector<double>({1, 2}));
    EXPECT_EQ(read(" { \"ywtype\" : \"int8\" , \"ywsize\" : [ 2 ] , \"ywdata\" : [ 1 , \"2\" ] } "),
              vector<std::int8_t>({1, 2}));
}

TEST(Reading, IntegersMayBeNumbersOrStringsOfDigits) {
    EXPECT_EQ(read(typed("int64", "[3]", "[\"-9223372036854775808\",9223372036854775807,\"0\"]")),
              vector<std::int64_t>({INT64_MIN, INT64_MAX, 0}));
    EXPECT_EQ(read(typed("uint64", "[2]", "[18446744073709551615,\"18446744073709551615\"]")),
              vector<std::uint64_t>({UINT64_MAX, UINT64_MAX}));
}

TEST(Reading, FloatsAreRoundedOnceFromTheirText) {
    // A little above the middle of two floats, but so little that the nearest double is the middle.
    EXPECT_EQ(read(typed("float32", "[]", "[1.00000005960464477539062500000001]")),
              factory.createScalar(0x1.000002p0f));
}

TEST(Reading, TypedIntegersOfAParsedValueAreTaken) {
    EXPECT_EQ(json_to_yorlabdata(foundation::json::parseText(typed("int8", "[2]", "[-128,127]")), factory),
              vector<std::int8_t>({-128, 127}));
}

TEST(BadArrays, TextThatIsNoJsonTellsThePlace) {
    EXPECT_THROW(read("[1,"), foundation::json::ParserException);
    EXPECT_THAT(errorOf(""), testing::StartsWith("JSON ParserException (E0019): "));
    EXPECT_THAT(errorOf("[1 2]"), testing::StartsWith("JSON ParserException (E0015): "));
    EXPECT_THAT(errorOf("[1] x"),
                testing::StartsWith("JSON ParserException (E0000): Parse incomplete (Line 1, Column 4)"));
    EXPECT_THAT(errorOf("tru"), testing::StartsWith("JSON ParserException (E0008): "));
    EXPECT_THAT(errorOf("\"abc"), testing::StartsWith("JSON ParserException (E0009): "));
    EXPECT_THAT(errorOf("{\"ywtype\" \"int8\"}"), testing::StartsWith("JSON ParserException (E0018): "));
    EXPECT_THAT(errorOf("{\"ywdata\":[1,"), testing::StartsWith("JSON ParserException (E0019): "));
    EXPECT_THAT(errorOf("{\"ywdata\":\"a\\"), testing::StartsWith("JSON ParserException (E0009): "));
    EXPECT_THAT(errorOf("{\"ywtype\":\"int8\",\"ywsize\":[1],\"ywdata\":[1]"),
                testing::StartsWith("JSON ParserException (E0019): "));
}

TEST(BadArrays, UnknownTypeIsToldWithTheKnownOnes) {
    EXPECT_EQ(
        errorOf(typed("double", "[1]", "[1]")),
        "invalid array: unknown \"ywtype\" \"double\"; it takes float64, float32, int8, int16, int32, int64, "
        "uint8, uint16, uint32, uint64, bool, complex128, complex64, text, list or record");
    EXPECT_EQ(errorOf("{\"ywtype\":5}"), "invalid array: \"ywtype\" is 5; it takes a string");
}

TEST(BadArrays, MissingKeysAreNamed) {
    EXPECT_THAT(errorOf("{}"),
                testing::StartsWith("invalid array: \"ywtype\" is missing; it takes float64, "));
    EXPECT_EQ(errorOf("{\"ywtype\":\"int8\",\"ywsize\":[1]}"), "invalid array: \"ywdata\" is missing");
    EXPECT_EQ(errorOf("{\"ywtype\":\"int8\",\"ywdata\":[1]}"),
              "invalid array: \"ywsize\" is missing; it takes an array of lengths, [] for a scalar");
    EXPECT_EQ(errorOf("{\"ywtype\":\"text\"}"), "invalid array: \"ywdata\" is missing");
}

TEST(BadArrays, UnknownAndRepeatedKeysAreNamed) {
    EXPECT_EQ(errorOf("{\"type\":\"int8\"}"),
              "invalid array: unknown key \"type\"; an array has \"ywtype\", \"ywsize\" and \"ywdata\"");
    EXPECT_EQ(errorOf("{\"ywtype\":\"int8\",\"ywtype\":\"int8\"}"),
              "invalid array: \"ywtype\" stands there twice");
    EXPECT_EQ(errorOf("{\"ywdata\":[1],\"ywdata\":[1]}"), "invalid array: \"ywdata\" stands there twice");
    EXPECT_EQ(errorOf("{\"ywtype\":\"record\",\"ywdata\":{\"a\":1,\"a\":2}}"),
              "invalid array at .a: the key stands there twice");
}

TEST(BadArrays, NumberOfElementsMustBeThatOfTheSize) {
    EXPECT_EQ(errorOf(typed("float64", "[2,2]", "[1,2,3]")),
              "invalid array: \"ywsize\" [2,2] asks for 4 numbers, \"ywdata\" has 3");
    EXPECT_EQ(errorOf(typed("float64", "[2]", "[1,2,3]")),
              "invalid array: \"ywsize\" [2] asks for 2 numbers, \"ywdata\" has more");
    EXPECT_EQ(errorOf(typed("float64", "[]", "[]")),
              "invalid array: \"ywsize\" [] asks for 1 numbers, \"ywdata\" has 0");
    EXPECT_EQ(errorOf(typed("complex128", "[2]", "[1,2,3]")),
              "invalid array: \"ywsize\" [2] asks for 4 numbers, \"ywdata\" has 3");
    EXPECT_EQ(errorOf(typed("float64", "[0,3]", "[1]")),
              "invalid array: \"ywsize\" [0,3] asks for 0 numbers, \"ywdata\" has more");
    EXPECT_EQ(errorOf(typed("list", "[2]", "[1]")), "invalid array: \"ywsize\" is [2] and should be [1]");
    EXPECT_EQ(errorOf(typed("text", "[1]", "\"a\"")), "invalid array: \"ywsize\" is [1] and should be []");
}

TEST(BadArrays, HugeSizesAreRefusedBeforeMemoryIsTaken) {
    EXPECT_EQ(errorOf(typed("float64", "[1000000000000]", "[1]")),
              "invalid array: \"ywsize\" [1000000000000] asks for more numbers than \"ywdata\" has");
    EXPECT_EQ(
        errorOf(typed("float64", "[4294967296,4294967296,4]", "[1]")),
        "invalid array: \"ywsize\" [4294967296,4294967296,4] asks for more numbers than \"ywdata\" has");
}

TEST(BadArrays, SizeTakesLengths) {
    EXPECT_EQ(errorOf(typed("float64", "2", "[1,2]")),
              "invalid array: \"ywsize\" is 2; it takes an array of lengths");
    EXPECT_EQ(errorOf(typed("float64", "[-1]", "[]")),
              "invalid array: \"ywsize\" holds -1; it takes lengths, which are integers from 0 on");
    EXPECT_EQ(errorOf(typed("float64", "[1.5]", "[]")),
              "invalid array: \"ywsize\" holds 1.5; it takes lengths, which are integers from 0 on");
    EXPECT_EQ(errorOf(typed("float64", "[\"2\"]", "[]")),
              "invalid array: \"ywsize\" holds \"2\"; it takes lengths, which are integers from 0 on");
}

TEST(BadArrays, ElementsOfTheWrongTypeAreNamedWithWhatIsAccepted) {
    EXPECT_EQ(errorOf(typed("float64", "[2]", "[1,\"nan\"]")),
              "invalid array: number 1 of \"ywdata\" is \"nan\"; float64 takes numbers in its range, "
              "\"NaN\", \"Inf\" and "
              "\"-Inf\"");
    EXPECT_EQ(errorOf(typed("float64", "[1]", "[null]")),
              "invalid array: number 0 of \"ywdata\" is null; float64 takes numbers in its range, \"NaN\", "
              "\"Inf\" and \"-Inf\"");
    EXPECT_EQ(errorOf(typed("int8", "[1]", "[1.5]")),
              "invalid array: number 0 of \"ywdata\" is 1.5; int8 takes integers from -128 to 127, also as "
              "strings of digits");
    EXPECT_EQ(errorOf(typed("int8", "[1]", "[[1]]")),
              "invalid array: number 0 of \"ywdata\" is an array; int8 takes integers from -128 to 127, also "
              "as strings of "
              "digits");
    EXPECT_EQ(errorOf(typed("bool", "[1]", "[1]")),
              "invalid array: number 0 of \"ywdata\" is 1; bool takes true and false");
    EXPECT_EQ(errorOf(typed("float64", "[1]", "5")),
              "invalid array: \"ywdata\" of float64 is 5; it takes an array");
    EXPECT_EQ(errorOf(typed("text", "[]", "5")), "invalid array: \"ywdata\" of text is 5; it takes a string");
    EXPECT_EQ(errorOf(typed("list", "[0]", "{}")),
              "invalid array: \"ywdata\" of list is an object; it takes an array of values");
    EXPECT_EQ(errorOf(typed("record", "[]", "[]")),
              "invalid array: \"ywdata\" of record is an array; it takes an object of values");
}

TEST(BadArrays, NumbersBeyondTheWidthAreRefused) {
    for (const auto& [type, number] :
         std::vector<std::pair<std::string, std::string>>{{"int8", "128"},
                                                          {"int8", "-129"},
                                                          {"int16", "32768"},
                                                          {"int32", "2147483648"},
                                                          {"int64", "9223372036854775808"},
                                                          {"int64", "\"9223372036854775808\""},
                                                          {"uint8", "256"},
                                                          {"uint8", "-1"},
                                                          {"uint16", "65536"},
                                                          {"uint32", "4294967296"},
                                                          {"uint64", "18446744073709551616"},
                                                          {"float32", "1e39"},
                                                          {"float64", "1e999"}}) {
        EXPECT_THAT(errorOf(typed(type, "[1]", "[" + number + "]")),
                    testing::StartsWith("invalid array: number 0 of \"ywdata\" is " + number + "; " + type +
                                        " takes "));
    }
    EXPECT_EQ(errorOf("-1e999"), "invalid array: the number -1e999 is beyond the range of float64");
}

TEST(BadArrays, PlainArrayTakesNumbersOnly) {
    const std::string accepted =
        "; a plain array takes finite numbers only, all else needs the form "
        "{\"ywtype\":...,\"ywsize\":...,\"ywdata\":...}";
    EXPECT_EQ(errorOf("[1,\"a\"]"), "invalid array: element 1 is \"a\"" + accepted);
    EXPECT_EQ(errorOf("[[1]]"), "invalid array: element 0 is an array" + accepted);
    EXPECT_EQ(errorOf("[1,null]"), "invalid array: element 1 is null" + accepted);
}

TEST(BadArrays, PlaceInListsAndRecordsIsTold) {
    EXPECT_EQ(errorOf(R"({"ywtype":"record","ywdata":{"a":{"ywtype":"list","ywdata":[1,{"ywtype":"x"}]}}})")
                  .substr(0, 59),
              "invalid array at .a[1]: unknown \"ywtype\" \"x\"; it takes floa");
}

TEST(BadArrays, DeepListsAreRefused) {
    std::string text;
    for (int i = 0; i < 600; ++i) {
        text += "{\"ywtype\":\"list\",\"ywdata\":[";
    }
    EXPECT_EQ(
        errorOf(text),
        "invalid array at [0][0][0][0][0][0][0][0]...: lists and records are nested deeper than 512 levels");
    const std::string reversed(1000000, '[');
    EXPECT_THAT(errorOf(reversed), testing::HasSubstr("a plain array takes finite numbers only"));
    EXPECT_THAT(errorOf("{\"ywdata\":" + reversed), testing::StartsWith("JSON ParserException (E0019): "));
}

}  // namespace
}  // namespace foundation::yorlabdata::json
