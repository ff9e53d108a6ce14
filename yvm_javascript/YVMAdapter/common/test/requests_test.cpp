// The typed requests of both protocol versions: which keys they read, in which order, and what they refuse.

#include "common/test/support.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"
#include "r22a0/CancelRequest.hpp"
#include "r22a0/DisconnectRequest.hpp"
#include "r22a0/EvalRequest.hpp"
#include "r22a0/FevalRequest.hpp"
#include "r22a0/SubscribeRequest.hpp"
#include "r24a0/CancelGroupRequest.hpp"
#include "r24a0/CancelRequest.hpp"
#include "r24a0/DisconnectRequest.hpp"
#include "r24a0/EvalRequest.hpp"
#include "r24a0/FevalRequest.hpp"
#include "r24a0/SubscribeRequest.hpp"
#include "testing/LogCapture.hpp"

#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace yvm::JSClient {
namespace {

using foundation::yorlabjson::ToJsonMode;
using test::textThrownBy;
using ylutil::cmddistributor::WhenToDequeue;

const std::string badGet = "boost::bad_get: failed value get using boost::get";

struct R22a0 {
    using CancelRequest = r22a0::CancelRequest;
    using DisconnectRequest = r22a0::DisconnectRequest;
    using EvalRequest = r22a0::EvalRequest;
    using FevalRequest = r22a0::FevalRequest;
    using SubscribeRequest = r22a0::SubscribeRequest;
    /// `rhsArgs` of the number 1.5 and the text "x".
    static constexpr const char* arguments = R"([1.5,"x"])";
};

struct R24a0 {
    using CancelRequest = r24a0::CancelRequest;
    using DisconnectRequest = r24a0::DisconnectRequest;
    using EvalRequest = r24a0::EvalRequest;
    using FevalRequest = r24a0::FevalRequest;
    using SubscribeRequest = r24a0::SubscribeRequest;
    static constexpr const char* arguments = R"(["1.5","\"x\""])";
};

/// A request of a type that both versions have.
template <typename Version>
class Requests : public testing::Test {
  protected:
    using FevalRequest = typename Version::FevalRequest;

    static typename Version::EvalRequest evalRequest(const std::string& text) {
        return {BaseRequest(text), nullptr, {}};
    }
    static FevalRequest fevalRequest(const std::string& text) { return {BaseRequest(text), nullptr, {}}; }
    /// A feval request that is well formed but for `members`, which begin with a comma.
    static FevalRequest fevalRequestWith(const std::string& members) {
        return fevalRequest(R"({"requestID":"1","function":"f")" + members + "}");
    }
    static std::string evalFailure(const std::string& text) {
        return textThrownBy<std::exception>([&] { evalRequest(text); });
    }
    static std::string fevalFailure(const std::string& text) {
        return textThrownBy<std::exception>([&] { fevalRequest(text); });
    }
    /// What is said of a feval request whose `rhsArgs` are these.
    static std::string argumentsFailure(const std::string& arguments) {
        return textThrownBy<std::exception>(
            [&] { fevalRequestWith(R"(,"numOutputsExpected":1,"rhsArgs":)" + arguments); });
    }
};

using Versions = testing::Types<R22a0, R24a0>;
TYPED_TEST_SUITE(Requests, Versions);
using RequestsOfR22a0 = Requests<R22a0>;
using RequestsOfR24a0 = Requests<R24a0>;

TYPED_TEST(Requests, EvalReadsItsKeys) {
    const auto request = this->evalRequest(
        R"({"requestID":"1","command":"1+1","isUserEval":true,"runOptions":{"dequeueMode":"DEQUEUE_AT_PPE"}})");
    EXPECT_EQ(request.getRequestID(), "1");
    EXPECT_EQ(request.getCommand(), "1+1");
    EXPECT_TRUE(request.getIsUserEval());
    EXPECT_EQ(request.getRunOptions().getDequeueMode(), WhenToDequeue::DEQUEUE_AT_PPE);
}

TYPED_TEST(Requests, EvalNeedsItsCommandAlone) {
    const auto request = this->evalRequest(R"({"requestID":"1","command":""})");
    EXPECT_EQ(request.getCommand(), "");
    EXPECT_FALSE(request.getIsUserEval());
    EXPECT_EQ(request.getRunOptions().getDequeueMode(), cmddistributor::RunOptions().getDequeueMode());
    EXPECT_EQ(this->evalFailure(R"({"requestID":"1"})"),
              "key: command is missing from {\n  \"requestID\": \"1\"\n}");
}

TYPED_TEST(Requests, EvalIgnoresKeysInAnotherCase) {
    EXPECT_FALSE(this->evalRequest(R"({"requestID":"1","command":"","IsUserEval":5})").getIsUserEval());
}

TYPED_TEST(Requests, EvalReportsTheFirstFaultInTheOrderOfItsKeys) {
    EXPECT_EQ(this->evalFailure(R"({"requestID":"1","command":1,"isUserEval":1,"runOptions":1})"),
              "invalid conversion: double to string");
    EXPECT_EQ(this->evalFailure(R"({"requestID":"1","command":"","isUserEval":1,"runOptions":"x"})"),
              "invalid conversion: double to boolean");
    EXPECT_EQ(this->evalFailure(R"({"requestID":"1","command":"","runOptions":"x"})"),
              "invalid conversion: string to object");
    EXPECT_EQ(this->evalFailure(R"({"requestID":"1","command":"","runOptions":{"queueName":5}})"), badGet);
}

TYPED_TEST(Requests, FevalReadsItsKeys) {
    const auto request = this->fevalRequest(
        R"({"requestID":"1","function":"numpy.add","numOutputsExpected":2.9,"rhsArgs":)" +
        std::string(TypeParam::arguments) + R"(,"runOptions":{"dequeueMode":"DEQUEUE_AT_IDLE"}})");
    EXPECT_EQ(request.getFunction(), "numpy.add");
    EXPECT_EQ(request.getNumOutputsExpected(), 2U);
    ASSERT_EQ(request.getRhsArgs().size(), 2U);
    EXPECT_EQ(*request.getRhsArgs()[0].template data<double>(), 1.5);
    EXPECT_EQ(request.getRhsArgs()[1].text(), u"x");
    EXPECT_EQ(request.getRunOptions().getDequeueMode(), WhenToDequeue::DEQUEUE_AT_IDLE);
}

TYPED_TEST(Requests, FevalTakesNoArgumentsAndNoOutputs) {
    const auto request = this->fevalRequestWith(R"(,"numOutputsExpected":0,"rhsArgs":[])");
    EXPECT_EQ(request.getNumOutputsExpected(), 0U);
    EXPECT_TRUE(request.getRhsArgs().empty());
}

TYPED_TEST(Requests, FevalANegativeNumberOfOutputsWraps) {
    EXPECT_EQ(this->fevalRequestWith(R"(,"numOutputsExpected":-1,"rhsArgs":[])").getNumOutputsExpected(),
              std::numeric_limits<std::uint64_t>::max());
}

TYPED_TEST(Requests, FevalNeedsFunctionOutputsAndArguments) {
    EXPECT_EQ(this->fevalFailure(R"({"requestID":"1"})"),
              "key: function is missing from {\n  \"requestID\": \"1\"\n}");
    EXPECT_EQ(this->fevalFailure(R"({"requestID":"1","function":"f"})"),
              "key: numOutputsExpected is missing from {\n  \"function\": \"f\",\n  \"requestID\": \"1\"\n}");
    EXPECT_TRUE(this->fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1})")
                    .starts_with("key: rhsArgs is missing from {\n  \"function\": \"f\",\n"));
}

TYPED_TEST(Requests, FevalReportsTheFirstFaultInTheOrderOfItsKeys) {
    EXPECT_EQ(this->fevalFailure(R"({"requestID":"1","function":null,"numOutputsExpected":"1","rhsArgs":5})"),
              "invalid conversion: null to string");
    EXPECT_EQ(this->fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":"1","rhsArgs":5})"),
              "invalid conversion: string to double");
    EXPECT_EQ(this->fevalFailure(
                  R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":5,"runOptions":1})"),
              "invalid conversion: double to array");
    EXPECT_EQ(this->fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[],)"
                                 R"("runOptions":{"dequeueMode":3},"ydaOutputFormat":"x"})"),
              badGet);
    EXPECT_EQ(this->fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[],)"
                                 R"("runOptions":1,"ydaOutputFormat":"x"})"),
              "invalid conversion: double to object");
    EXPECT_EQ(this->argumentsFailure(R"([{"ywtype":"float64"}],"runOptions":1)"),
              this->argumentsFailure(R"([{"ywtype":"float64"}])"))
        << "the arguments come before the run options";
}

TEST_F(RequestsOfR22a0, FevalTakesArraysInEitherFormAndEachStringAsText) {
    const auto request = fevalRequestWith(
        R"(,"numOutputsExpected":1,"rhsArgs":[[1,2],{"ywtype":"int8","ywsize":[1],"ywdata":[3]},"[1,2]",null])");
    ASSERT_EQ(request.getRhsArgs().size(), 4U);
    using foundation::yorlabdata::json::string_to_yorlabdata;
    const foundation::yorlabdata::ArrayFactory factory;
    EXPECT_EQ(request.getRhsArgs()[0], string_to_yorlabdata("[1,2]", factory));
    EXPECT_EQ(request.getRhsArgs()[1],
              string_to_yorlabdata(R"({"ywtype":"int8","ywsize":[1],"ywdata":[3]})", factory));
    EXPECT_EQ(request.getRhsArgs()[2].text(), u"[1,2]");
    EXPECT_EQ(request.getRhsArgs()[3], string_to_yorlabdata("null", factory));
}

TEST_F(RequestsOfR22a0, FevalABrokenArgumentIsToldByTheLibraryAndNotLogged) {
    const std::string broken = R"({"ywtype":"nonsense"})";
    const auto expected = textThrownBy<std::runtime_error>([&broken] {
        foundation::yorlabdata::json::json_to_yorlabdata(foundation::json::parseText(broken),
                                                         foundation::yorlabdata::ArrayFactory());
    });
    const platform_testing::LogCapture log;
    EXPECT_EQ(argumentsFailure("[1," + broken + ",{}]"), expected);
    EXPECT_TRUE(log.texts("yvm::JSClient::Request", 16).empty());
    EXPECT_TRUE(log.texts("yvm::JSClient::Request", 8).empty());
}

TEST_F(RequestsOfR22a0, FevalIgnoresAnOutputFormatOfAnyKind) {
    for (const char* format : {R"("alwaysYDALong")", R"("x")", "1", "null"}) {
        EXPECT_EQ(fevalRequestWith(R"(,"numOutputsExpected":1,"rhsArgs":[],"ydaOutputFormat":)" +
                                   std::string(format))
                      .getNumOutputsExpected(),
                  1U);
    }
}

TEST_F(RequestsOfR24a0, FevalAnArgumentThatIsNoStringIsAConversionError) {
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":["1",2]})"),
              "invalid conversion: double to string");
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":)"
                           R"([{"ywtype":"float64","ywsize":[1],"ywdata":[2]}]})"),
              "invalid conversion: object to string");
}

TEST_F(RequestsOfR24a0, FevalABrokenArgumentIsLoggedWithAllOfThemAndRethrown) {
    const platform_testing::LogCapture log;
    const auto text = fevalFailure(
        R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":["1","[1,",5],"ydaOutputFormat":"x"})");
    EXPECT_FALSE(text.empty());
    EXPECT_NE(text, "Invalid YDA output format");
    const auto caught = log.texts("yvm::JSClient::Request", 16);
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_TRUE(caught.front().starts_with("Exception caught: "));
    EXPECT_NE(caught.front().find(text), std::string::npos) << caught.front();
    EXPECT_EQ(log.texts("yvm::JSClient::Request", 8),
              std::vector<std::string>{R"(Failed to deserialize the following into YDA: ["1","[1,",5])"});
    const auto records = log.records("yvm::JSClient::Request");
    ASSERT_GE(records.size(), 2U);
    EXPECT_EQ(records[records.size() - 2].severity, 16U) << "the exception comes first";
    EXPECT_EQ(records.back().severity, 8U);
}

TEST_F(RequestsOfR24a0, FevalReadsTheOutputFormatLast) {
    const auto format = [](const std::string& members) {
        return fevalRequestWith(R"(,"numOutputsExpected":1,"rhsArgs":[])" + members).getYdaOutputFormat();
    };
    EXPECT_EQ(format(""), ToJsonMode::preferYDAShort);
    EXPECT_EQ(format(R"(,"ydaOutputFormat":"alwaysYDALong")"), ToJsonMode::alwaysYDALong);
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { format(R"(,"ydaOutputFormat":1)"); }),
              "invalid conversion: double to string");
    EXPECT_EQ(textThrownBy<boost::bad_get>(
                  [&] { format(R"(,"runOptions":{"dequeueMode":3},"ydaOutputFormat":"x")"); }),
              badGet);
}

TEST_F(RequestsOfR24a0, FevalTheOutputFormatIsComparedExactly) {
    for (const char* format : {"preferydashort", "preferYDAShort ", "", "AlwaysYDALong"}) {
        EXPECT_EQ(textThrownBy<std::runtime_error>([format] {
                      fevalRequestWith(R"(,"numOutputsExpected":1,"rhsArgs":[],"ydaOutputFormat":")" +
                                       std::string(format) + "\"");
                  }),
                  "Invalid YDA output format")
            << format;
    }
    EXPECT_EQ(fevalRequestWith(R"(,"numOutputsExpected":1,"rhsArgs":[],"ydaOutputFormat":"preferYDAShort")")
                  .getYdaOutputFormat(),
              ToJsonMode::preferYDAShort);
}

TYPED_TEST(Requests, CancelReadsItsKeys) {
    using CancelRequest = typename TypeParam::CancelRequest;
    const CancelRequest request(
        BaseRequest(std::string(R"({"requestID":"2","interrupt":true,"requestIDtoCancel":"1"})")));
    EXPECT_EQ(request.getRequestID(), "2");
    EXPECT_TRUE(request.getInterrupt());
    EXPECT_EQ(request.getRequestIDtoCancel(), "1");
    EXPECT_FALSE(CancelRequest(BaseRequest(std::string(R"({"requestID":"2","requestIDtoCancel":"1"})")))
                     .getInterrupt());
}

TYPED_TEST(Requests, CancelReportsInterruptBeforeTheMissingRequest) {
    using CancelRequest = typename TypeParam::CancelRequest;
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [] { CancelRequest{BaseRequest(std::string(R"({"requestID":"2","interrupt":1})"))}; }),
              "invalid conversion: double to boolean");
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [] { CancelRequest{BaseRequest(std::string(R"({"requestID":"2"})"))}; }),
              "key: requestIDtoCancel is missing from {\n  \"requestID\": \"2\"\n}");
}

TYPED_TEST(Requests, OfEventsReadTheirKey) {
    using SubscribeRequest = typename TypeParam::SubscribeRequest;
    using DisconnectRequest = typename TypeParam::DisconnectRequest;
    const BaseRequest base(std::string(R"({"requestID":"1","eventName":"e","requestIDtoDisconnect":"2"})"));
    EXPECT_EQ(SubscribeRequest(base).getEventName(), "e");
    EXPECT_EQ(SubscribeRequest(base).getRequestID(), "1");
    EXPECT_EQ(DisconnectRequest(base).getRequestIDtoDisconnect(), "2");
    EXPECT_EQ(DisconnectRequest(base).getRequestID(), "1");
}

TYPED_TEST(Requests, OfEventsThrowForAMissingOrMistypedKey) {
    using SubscribeRequest = typename TypeParam::SubscribeRequest;
    using DisconnectRequest = typename TypeParam::DisconnectRequest;
    const BaseRequest empty(std::string(R"({"requestID":"1"})"));
    const std::string rest = " is missing from {\n  \"requestID\": \"1\"\n}";
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { SubscribeRequest{empty}; }), "key: eventName" + rest);
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { DisconnectRequest{empty}; }),
              "key: requestIDtoDisconnect" + rest);
    const BaseRequest mistyped(
        std::string(R"({"requestID":"1","eventName":5,"requestIDtoDisconnect":null})"));
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { SubscribeRequest{mistyped}; }),
              "invalid conversion: double to string");
    EXPECT_EQ(textThrownBy<std::runtime_error>([&] { DisconnectRequest{mistyped}; }),
              "invalid conversion: null to string");
}

TEST(RequestsOfR24a0Alone, CancelGroupReadsItsKeys) {
    const r24a0::CancelGroupRequest request(
        BaseRequest(std::string(R"({"requestID":"2","interrupt":true,"requestGroupNametoCancel":"plots"})")));
    EXPECT_TRUE(request.getInterrupt());
    EXPECT_EQ(request.getRequestGroupNametoCancel(), "plots");
    EXPECT_FALSE(r24a0::CancelGroupRequest(
                     BaseRequest(std::string(R"({"requestID":"2","requestGroupNametoCancel":""})")))
                     .getInterrupt());
}

TEST(RequestsOfR24a0Alone, CancelGroupReportsInterruptBeforeTheMissingGroup) {
    EXPECT_EQ(
        textThrownBy<std::runtime_error>([] {
            r24a0::CancelGroupRequest(BaseRequest(std::string(R"({"requestID":"2","interrupt":null})")));
        }),
        "invalid conversion: null to boolean");
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [] { r24a0::CancelGroupRequest(BaseRequest(std::string(R"({"requestID":"2"})"))); }),
              "key: requestGroupNametoCancel is missing from {\n  \"requestID\": \"2\"\n}");
}

}  // namespace
}  // namespace yvm::JSClient
