#include "common/BaseRequest.hpp"

#include "common/test/support.hpp"
#include "foundation/json/ParserException.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace yvm::JSClient {
namespace {

using foundation::json::Array;
using foundation::json::Null;
using foundation::json::ParserException;
using foundation::json::Value;
using test::textThrownBy;

const std::string logChannel = "yvm::JSClient::Request";

/// A request whose member `key` holds `value`.
BaseRequest requestWith(const Value& value) {
    return BaseRequest(JsonObject{{"requestID", "a"}, {"key", value}});
}

TEST(BaseRequest, AnEmptyRequestIDIsAPresentValue) {
    EXPECT_EQ(BaseRequest(std::string(R"({"requestID":""})")).getRequestID(), "");
}

TEST(BaseRequest, KeepsTheRequestID) {
    EXPECT_EQ(BaseRequest(std::string(R"({"requestID":"a-7"})")).getRequestID(), "a-7");
}

TEST(BaseRequest, ANumberAsRequestIDIsAConversionErrorAndNotMissing) {
    EXPECT_EQ(textThrownBy<std::runtime_error>([] { BaseRequest(std::string(R"({"requestID":5})")); }),
              "invalid conversion: double to string");
}

TEST(BaseRequest, AMissingRequestIDIsToldWithTheMessage) {
    EXPECT_EQ(textThrownBy<std::runtime_error>([] { BaseRequest(std::string(R"({"b":[],"a":"x"})")); }),
              "key: requestID is missing from {\n  \"a\": \"x\",\n  \"b\": []\n}");
}

TEST(BaseRequest, AMissingRequiredKeyIsToldWithTheMessage) {
    const BaseRequest request(std::string(R"({"requestID":"1"})"));
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { request.findValue<std::string>("command"); }),
              "key: command is missing from {\n  \"requestID\": \"1\"\n}");
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { request.findValue<std::vector<std::string>>("list"); }),
              "key: list is missing from {\n  \"requestID\": \"1\"\n}");
}

TEST(BaseRequest, NullInARequiredKeyIsAConversionError) {
    EXPECT_EQ(textThrownBy<std::runtime_error>([] { requestWith(Null()).findValue<std::string>("key"); }),
              "invalid conversion: null to string");
}

TEST(BaseRequest, ADefaultDoesNotHideAMistypedKey) {
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [] { requestWith("true").findOptionalValueWithDefault<bool>("key", false); }),
              "invalid conversion: string to boolean");
}

TEST(BaseRequest, ADefaultStandsInForAnAbsentKey) {
    const BaseRequest request(std::string(R"({"requestID":"1"})"));
    EXPECT_TRUE(request.findOptionalValueWithDefault<bool>("absent", true));
    EXPECT_EQ(request.findOptionalValueWithDefault<std::string>("absent", "x"), "x");
    EXPECT_EQ(request.findOptionalValueWithDefault<JsonObject>("absent", {}), JsonObject());
}

TEST(BaseRequest, AnElementOfATypedIntegerArrayIsNoDouble) {
    const BaseRequest request(std::string(R"({"requestID":"1","n":{"ywtype":"int8","ywdata":[1]}})"));
    const auto object = request.findOptionalValue<JsonObject>("n");
    ASSERT_TRUE(object);
    const Value element = object->at("ywdata").as<Array>().front();
    EXPECT_EQ(
        textThrownBy<std::runtime_error>([&] { requestWith(element).findOptionalValue<double>("key"); }),
        "invalid conversion: int64 to double");
}

TEST(BaseRequest, AnAbsentKeyGivesAnEmptyOptional) {
    const BaseRequest request(std::string(R"({"requestID":"1"})"));
    EXPECT_FALSE(request.findOptionalValue<Null>("key"));
    EXPECT_FALSE(request.findOptionalValue<double>("key"));
}

TEST(BaseRequest, APresentKeyGivesItsValue) {
    const BaseRequest request(std::string(
        R"({"requestID":"1","s":"x","b":true,"d":1.5,"a":[1],"o":{"k":2},"n":null,"l":["p","q"]})"));
    EXPECT_EQ(request.findValue<std::string>("s"), "x");
    EXPECT_TRUE(request.findOptionalValueWithDefault<bool>("b", false));
    EXPECT_EQ(request.findValue<double>("d"), 1.5);
    EXPECT_EQ(request.findValue<Array>("a"), Array{Value(1.0)});
    EXPECT_EQ(request.findOptionalValue<JsonObject>("o"), (JsonObject{{"k", 2.0}}));
    EXPECT_TRUE(request.findOptionalValue<Null>("n"));
    EXPECT_EQ(request.findValue<std::vector<std::string>>("l"), (std::vector<std::string>{"p", "q"}));
}

TEST(BaseRequest, TheFirstElementThatIsNoStringFailsAListOfStrings) {
    const BaseRequest request(std::string(R"({"requestID":"1","l":["p",true,1]})"));
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { request.findValue<std::vector<std::string>>("l"); }),
              "invalid conversion: boolean to string");
    EXPECT_EQ(
        textThrownBy<std::runtime_error>([] { requestWith("x").findValue<std::vector<std::string>>("key"); }),
        "invalid conversion: string to array");
}

/// The text of the failed conversion of each alternative but T itself to T, in the order of the alternatives.
template <typename T>
std::vector<std::string> failedConversionsTo() {
    const std::vector<Value> alternatives = {Value(),
                                             Null(),
                                             Value(true),
                                             Value(1.0),
                                             Value(1.0F),
                                             Value(std::int64_t{1}),
                                             Value(std::uint64_t{1}),
                                             Value("x"),
                                             Value(Array()),
                                             Value(JsonObject())};
    std::vector<std::string> texts;
    for (const auto& value : alternatives) {
        if (!value.is<T>()) {
            texts.push_back(
                textThrownBy<std::runtime_error>([&] { requestWith(value).findOptionalValue<T>("key"); }));
        } else {
            EXPECT_EQ(requestWith(value).findOptionalValue<T>("key"), value.as<T>());
        }
    }
    return texts;
}

/// "invalid conversion: X to `wanted`" for each name X but `wanted`.
std::vector<std::string> allTextsFor(const std::string& wanted) {
    std::vector<std::string> texts;
    for (const std::string name : {"undefined", "null", "boolean", "double", "float", "int64", "uint64",
                                   "string", "array", "object"}) {
        if (name != wanted) {
            texts.push_back("invalid conversion: " + name + " to " + wanted);
        }
    }
    return texts;
}

TEST(BaseRequest, NothingConvertsBetweenTheAlternatives) {
    EXPECT_EQ(failedConversionsTo<std::string>(), allTextsFor("string"));
    EXPECT_EQ(failedConversionsTo<Array>(), allTextsFor("array"));
    EXPECT_EQ(failedConversionsTo<JsonObject>(), allTextsFor("object"));
    EXPECT_EQ(failedConversionsTo<bool>(), allTextsFor("boolean"));
    EXPECT_EQ(failedConversionsTo<double>(), allTextsFor("double"));
    EXPECT_EQ(failedConversionsTo<Null>(), allTextsFor("null"));
}

TEST(BaseRequest, ARepeatedKeyKeepsItsFirstValue) {
    EXPECT_EQ(BaseRequest(std::string(R"({"requestID":"1","a":1,"a":2})")).findValue<double>("a"), 1);
}

TEST(BaseRequest, LeadingZerosPass) {
    EXPECT_EQ(BaseRequest(std::string(R"({"requestID":"a","n":007})")).findValue<double>("n"), 7);
}

TEST(BaseRequest, AMessageThatIsNoObjectIsAConversionErrorAndNoParserError) {
    EXPECT_EQ(textThrownBy<std::runtime_error>([] {
                  try {
                      BaseRequest(std::string("[]"));
                  } catch (const ParserException&) {
                      ADD_FAILURE() << "a parser error";
                  }
              }),
              "invalid conversion: array to object");
}

TEST(BaseRequest, ALeadingBlankIsAParserError) {
    EXPECT_EQ(textThrownBy<ParserException>([] { BaseRequest(std::string(R"( {"requestID":"a"})")); }),
              "JSON ParserException (E0008): Expected a value or a string (Line 1, Column 0)\n"
              "\t {\"requestID\":\"a\"}\n\t^");
}

TEST(BaseRequest, ATrailingBlankIsAnIncompleteParse) {
    EXPECT_EQ(textThrownBy<ParserException>([] { BaseRequest(std::string("{\"requestID\":\"a\"} ")); }),
              "JSON ParserException (E0000): Parse incomplete (Line 1, Column 17)\n"
              "\t{\"requestID\":\"a\"} \n\t                 ^");
}

TEST(BaseRequest, LookupsAreLogged) {
    const BaseRequest request(std::string(R"({"requestID":"1","present":true})"));
    const platform_testing::LogCapture log;
    request.findOptionalValueWithDefault<bool>("present", false);
    request.findOptionalValueWithDefault<bool>("absent", false);
    const std::vector<platform_testing::LogRecord> expected = {
        {logChannel, 2, 0, " keyName=present"},
        {logChannel, 2, 0, " keyName=present"},
        {logChannel, 2, 0, " keyName=absent"},
        {logChannel, 2, 0, " keyName=absent"},
        {logChannel, 8, 0, "Can't find value for absent"},
        {logChannel, 8, 0, "Returning default value "},
    };
    EXPECT_EQ(log.records(), expected);
}

}  // namespace
}  // namespace yvm::JSClient
