#include "common/RequestResponse.hpp"

#include "common/test/support.hpp"
#include "yvm/json_serializers/serialize.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace yvm::JSClient {
namespace {

using cmddistributor::RuntimeException;
using foundation::json::Value;
using Status = RequestResponse::Status;

/// An error in which every field is set.
RuntimeException fullException() {
    return {Status::CommandFailed,
            u"message",
            "Identifier",
            "function",
            {{"file.py", "f", 3, "raise"}},
            {RuntimeException(Status::CommandFailed, std::u16string(u"cause"), "Cause")},
            true,
            {std::int32_t{4}, std::u16string(u"argument")},
            JsonObject{{"detail", "x"}}};
}

TEST(RequestResponse, BeginsWithTheRequestIDAlone) {
    const RequestResponse response("7");
    EXPECT_EQ(response.getRequestID(), "7");
    EXPECT_EQ(response.getJson(), (JsonObject{{"requestID", "7"}}));
}

TEST(RequestResponse, SetValueInsertsAndOverwrites) {
    RequestResponse response("7");
    response.setValue("result", 1.0);
    response.setValue("result", "x");
    EXPECT_EQ(response.getJson(), (JsonObject{{"requestID", "7"}, {"result", "x"}}));
}

TEST(RequestResponse, AnErrorOfTextHasStatusAndMessageAndNothingElse) {
    RequestResponse response("7");
    response.setError("text", Status::RequestInvalid);
    const JsonObject expected =
        json_serializers::serialize(RuntimeException(Status::RequestInvalid, std::u16string(u"text")));
    EXPECT_EQ(response.getJson().at("error"), Value(expected));
    EXPECT_EQ(expected.at("status"), Value(5));
}

TEST(RequestResponse, ARuntimeExceptionIsKeptWhole) {
    RequestResponse response("7");
    response.setError(std::make_exception_ptr(fullException()), std::nullopt);
    EXPECT_EQ(response.getJson().at("error"), Value(json_serializers::serialize(fullException())));
}

TEST(RequestResponse, AGivenStatusReplacesThatOfARuntimeExceptionAndNothingElse) {
    RequestResponse response("7");
    response.setError(std::make_exception_ptr(fullException()), Status::RequestInvalid);
    JsonObject expected = json_serializers::serialize(fullException());
    expected.at("status") = Value(5);
    EXPECT_EQ(response.getJson().at("error"), Value(expected));
}

TEST(RequestResponse, AnotherExceptionGivesItsTextAndStatusTwo) {
    RequestResponse response("7");
    response.setError(std::make_exception_ptr(std::out_of_range("far out")), std::nullopt);
    EXPECT_EQ(response.getJson().at("error"), Value(json_serializers::serialize(RuntimeException(
                                                  Status::Unclassified, std::u16string(u"far out")))));
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "status"), Value(2));
}

TEST(RequestResponse, AnotherExceptionTakesAGivenStatus) {
    RequestResponse response("7");
    response.setError(std::make_exception_ptr(std::out_of_range("far out")), Status::RequestInvalid);
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "status"), Value(5));
}

TEST(RequestResponse, WhatIsNoExceptionIsUnknown) {
    RequestResponse response("7");
    response.setError(std::make_exception_ptr(42), std::nullopt);
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "message"), Value("Unknown Exception"));
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "status"), Value(2));
    response.setError(std::make_exception_ptr(42), Status::RequestInvalid);
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "status"), Value(5));
}

TEST(RequestResponse, NoExceptionAtAllIsUnknown) {
    RequestResponse response("7");
    response.setError(std::exception_ptr(), std::nullopt);
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "message"), Value("Unknown Exception"));
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "status"), Value(2));
    response.setError(std::exception_ptr(), Status::RequestInvalid);
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "status"), Value(5));
}

TEST(RequestResponse, InvalidUtf8InAMessageBecomesTheReplacementCharacter) {
    RequestResponse response("7");
    response.setError(std::make_exception_ptr(std::runtime_error("cut \xC3")), std::nullopt);
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "message"), Value("cut \xEF\xBF\xBD"));
    response.setError(RuntimeException(Status::CommandFailed, std::u16string(u"half \xD800")));
    EXPECT_EQ(test::memberOf(response.getJson().at("error"), "message"), Value("half \xEF\xBF\xBD"));
}

}  // namespace
}  // namespace yvm::JSClient
