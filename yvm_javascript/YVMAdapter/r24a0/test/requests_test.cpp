// The typed requests: which keys they read, in which order, and what they refuse.

#include "common/test/support.hpp"
#include "r24a0/CancelGroupRequest.hpp"
#include "r24a0/CancelRequest.hpp"
#include "r24a0/EvalRequest.hpp"
#include "r24a0/FevalRequest.hpp"
#include "testing/LogCapture.hpp"

#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace yvm::JSClient::r24a0 {
namespace {

using foundation::yorlabjson::ToJsonMode;
using test::textThrownBy;
using ylutil::cmddistributor::WhenToDequeue;

const std::string badGet = "boost::bad_get: failed value get using boost::get";

EvalRequest evalRequest(const std::string& text) {
    return {BaseRequest(text), nullptr, {}};
}

FevalRequest fevalRequest(const std::string& text) {
    return {BaseRequest(text), nullptr, {}};
}

/// A feval request that is well formed but for `members`, which begin with a comma.
FevalRequest fevalRequestWith(const std::string& members) {
    return fevalRequest(R"({"requestID":"1","function":"f")" + members + "}");
}

std::string evalFailure(const std::string& text) {
    return textThrownBy<std::exception>([&] { evalRequest(text); });
}

std::string fevalFailure(const std::string& text) {
    return textThrownBy<std::exception>([&] { fevalRequest(text); });
}

TEST(EvalRequest, ReadsItsKeys) {
    const auto request = evalRequest(
        R"({"requestID":"1","command":"1+1","isUserEval":true,"runOptions":{"dequeueMode":"DEQUEUE_AT_PPE"}})");
    EXPECT_EQ(request.getRequestID(), "1");
    EXPECT_EQ(request.getCommand(), "1+1");
    EXPECT_TRUE(request.getIsUserEval());
    EXPECT_EQ(request.getRunOptions().getDequeueMode(), WhenToDequeue::DEQUEUE_AT_PPE);
}

TEST(EvalRequest, NeedsItsCommandAlone) {
    const auto request = evalRequest(R"({"requestID":"1","command":""})");
    EXPECT_EQ(request.getCommand(), "");
    EXPECT_FALSE(request.getIsUserEval());
    EXPECT_EQ(request.getRunOptions().getDequeueMode(), cmddistributor::RunOptions().getDequeueMode());
    EXPECT_EQ(evalFailure(R"({"requestID":"1"})"),
              "key: command is missing from {\n  \"requestID\": \"1\"\n}");
}

TEST(EvalRequest, IgnoresKeysInAnotherCase) {
    EXPECT_FALSE(evalRequest(R"({"requestID":"1","command":"","IsUserEval":5})").getIsUserEval());
}

TEST(EvalRequest, ReportsTheFirstFaultInTheOrderOfItsKeys) {
    EXPECT_EQ(evalFailure(R"({"requestID":"1","command":1,"isUserEval":1,"runOptions":1})"),
              "invalid conversion: double to string");
    EXPECT_EQ(evalFailure(R"({"requestID":"1","command":"","isUserEval":1,"runOptions":"x"})"),
              "invalid conversion: double to boolean");
    EXPECT_EQ(evalFailure(R"({"requestID":"1","command":"","runOptions":"x"})"),
              "invalid conversion: string to object");
    EXPECT_EQ(evalFailure(R"({"requestID":"1","command":"","runOptions":{"queueName":5}})"), badGet);
}

TEST(FevalRequest, ReadsItsKeys) {
    const auto request = fevalRequest(
        R"({"requestID":"1","function":"numpy.add","numOutputsExpected":2.9,"rhsArgs":["1.5","\"x\""],)"
        R"("runOptions":{"dequeueMode":"DEQUEUE_AT_IDLE"},"ydaOutputFormat":"alwaysYDALong"})");
    EXPECT_EQ(request.getFunction(), "numpy.add");
    EXPECT_EQ(request.getNumOutputsExpected(), 2U);
    ASSERT_EQ(request.getRhsArgs().size(), 2U);
    EXPECT_EQ(*request.getRhsArgs()[0].data<double>(), 1.5);
    EXPECT_EQ(request.getRhsArgs()[1].text(), u"x");
    EXPECT_EQ(request.getRunOptions().getDequeueMode(), WhenToDequeue::DEQUEUE_AT_IDLE);
    EXPECT_EQ(request.getYdaOutputFormat(), ToJsonMode::alwaysYDALong);
}

TEST(FevalRequest, TakesNoArgumentsAndNoOutputs) {
    const auto request = fevalRequestWith(R"(,"numOutputsExpected":0,"rhsArgs":[])");
    EXPECT_EQ(request.getNumOutputsExpected(), 0U);
    EXPECT_TRUE(request.getRhsArgs().empty());
    EXPECT_EQ(request.getYdaOutputFormat(), ToJsonMode::preferYDAShort);
}

TEST(FevalRequest, ANegativeNumberOfOutputsWraps) {
    EXPECT_EQ(fevalRequestWith(R"(,"numOutputsExpected":-1,"rhsArgs":[])").getNumOutputsExpected(),
              std::numeric_limits<std::uint64_t>::max());
}

TEST(FevalRequest, NeedsFunctionOutputsAndArguments) {
    EXPECT_EQ(fevalFailure(R"({"requestID":"1"})"),
              "key: function is missing from {\n  \"requestID\": \"1\"\n}");
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f"})"),
              "key: numOutputsExpected is missing from {\n  \"function\": \"f\",\n  \"requestID\": \"1\"\n}");
    EXPECT_TRUE(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1})")
                    .starts_with("key: rhsArgs is missing from {\n  \"function\": \"f\",\n"));
}

TEST(FevalRequest, ReportsTheFirstFaultInTheOrderOfItsKeys) {
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":null,"numOutputsExpected":"1","rhsArgs":5})"),
              "invalid conversion: null to string");
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":"1","rhsArgs":5})"),
              "invalid conversion: string to double");
    EXPECT_EQ(
        fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":5,"runOptions":1})"),
        "invalid conversion: double to array");
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[],)"
                           R"("runOptions":{"dequeueMode":3},"ydaOutputFormat":"x"})"),
              badGet);
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[],)"
                           R"("runOptions":1,"ydaOutputFormat":"x"})"),
              "invalid conversion: double to object");
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[],)"
                           R"("ydaOutputFormat":1})"),
              "invalid conversion: double to string");
}

TEST(FevalRequest, AnArgumentThatIsNoStringIsAConversionError) {
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":["1",2]})"),
              "invalid conversion: double to string");
    EXPECT_EQ(fevalFailure(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":)"
                           R"([{"ywtype":"float64","ywsize":[1],"ywdata":[2]}]})"),
              "invalid conversion: object to string");
}

TEST(FevalRequest, ABrokenArgumentIsLoggedWithAllOfThemAndRethrown) {
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

TEST(FevalRequest, TheOutputFormatIsComparedExactly) {
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

TEST(CancelRequest, ReadsItsKeys) {
    const CancelRequest request(
        BaseRequest(std::string(R"({"requestID":"2","interrupt":true,"requestIDtoCancel":"1"})")));
    EXPECT_EQ(request.getRequestID(), "2");
    EXPECT_TRUE(request.getInterrupt());
    EXPECT_EQ(request.getRequestIDtoCancel(), "1");
    EXPECT_FALSE(CancelRequest(BaseRequest(std::string(R"({"requestID":"2","requestIDtoCancel":"1"})")))
                     .getInterrupt());
}

TEST(CancelRequest, ReportsInterruptBeforeTheMissingRequest) {
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [] { CancelRequest(BaseRequest(std::string(R"({"requestID":"2","interrupt":1})"))); }),
              "invalid conversion: double to boolean");
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [] { CancelRequest(BaseRequest(std::string(R"({"requestID":"2"})"))); }),
              "key: requestIDtoCancel is missing from {\n  \"requestID\": \"2\"\n}");
}

TEST(CancelGroupRequest, ReadsItsKeys) {
    const CancelGroupRequest request(
        BaseRequest(std::string(R"({"requestID":"2","interrupt":true,"requestGroupNametoCancel":"plots"})")));
    EXPECT_TRUE(request.getInterrupt());
    EXPECT_EQ(request.getRequestGroupNametoCancel(), "plots");
    EXPECT_FALSE(
        CancelGroupRequest(BaseRequest(std::string(R"({"requestID":"2","requestGroupNametoCancel":""})")))
            .getInterrupt());
}

TEST(CancelGroupRequest, ReportsInterruptBeforeTheMissingGroup) {
    EXPECT_EQ(textThrownBy<std::runtime_error>([] {
                  CancelGroupRequest(BaseRequest(std::string(R"({"requestID":"2","interrupt":null})")));
              }),
              "invalid conversion: null to boolean");
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [] { CancelGroupRequest(BaseRequest(std::string(R"({"requestID":"2"})"))); }),
              "key: requestGroupNametoCancel is missing from {\n  \"requestID\": \"2\"\n}");
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
