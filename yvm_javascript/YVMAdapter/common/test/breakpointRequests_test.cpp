// The requests for breakpoints, which both protocol versions read alike but for one type.

#include "common/test/support.hpp"
#include "r22a0/GlobalBreakpointRequest.hpp"
#include "r22a0/LineBreakpointRequest.hpp"
#include "r24a0/GlobalBreakpointRequest.hpp"
#include "r24a0/LineBreakpointRequest.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace yvm::JSClient {
namespace {

using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;
using Condition = GlobalBreakpoint::Condition;
using Location = LineBreakpoint::Location;

struct R22a0 {
    using GlobalBreakpointRequest = r22a0::GlobalBreakpointRequest;
    using LineBreakpointRequest = r22a0::LineBreakpointRequest;
};

struct R24a0 {
    using GlobalBreakpointRequest = r24a0::GlobalBreakpointRequest;
    using LineBreakpointRequest = r24a0::LineBreakpointRequest;
};

template <typename Version>
class BreakpointRequestsTest : public testing::Test {
  protected:
    /// A request whose member `breakpoint` is this text.
    static BaseRequest request(const std::string& breakpoint) {
        return BaseRequest(R"({"requestID":"1","breakpoint":)" + breakpoint + "}");
    }

    static GlobalBreakpoint global(const std::string& breakpoint) {
        return typename Version::GlobalBreakpointRequest(request(breakpoint)).getBreakpoint();
    }
    static LineBreakpoint line(const std::string& breakpoint) {
        return typename Version::LineBreakpointRequest(request(breakpoint)).getBreakpoint();
    }
    /// The breakpoint on a place in "a".
    static LineBreakpoint lineAt(const std::string& location) {
        return line(R"({"fileName":"a","location":)" + location + "}");
    }

    static std::string globalFailure(const std::string& breakpoint) {
        return test::textThrownBy<std::runtime_error>([&] { global(breakpoint); });
    }
    static std::string lineFailure(const std::string& breakpoint) {
        return test::textThrownBy<std::runtime_error>([&] { line(breakpoint); });
    }
    static std::string locationFailure(const std::string& location) {
        return test::textThrownBy<std::runtime_error>([&] { lineAt(location); });
    }
};

using Versions = testing::Types<R22a0, R24a0>;
TYPED_TEST_SUITE(BreakpointRequestsTest, Versions);

TYPED_TEST(BreakpointRequestsTest, EachTypeGivesItsCondition) {
    EXPECT_EQ(this->global(R"({"type":"ERROR"})"), GlobalBreakpoint(Condition::Error));
    EXPECT_EQ(this->global(R"({"type":"WARNING"})"), GlobalBreakpoint(Condition::Warning));
    EXPECT_EQ(this->global(R"({"type":"CAUGHT_ERROR"})"), GlobalBreakpoint(Condition::CaughtError));
    EXPECT_EQ(this->global(R"({"type":"NAN_INF"})"), GlobalBreakpoint(Condition::NanInf));
}

TEST(GlobalBreakpointRequestOfR24a0, KnowsUnsuppressedOutput) {
    const BaseRequest request(R"({"requestID":"1","breakpoint":{"type":"UNSUPPRESSED_OUTPUT"}})");
    EXPECT_EQ(r24a0::GlobalBreakpointRequest(request).getBreakpoint(),
              GlobalBreakpoint(Condition::UnsuppressedOutput));
}

TEST(GlobalBreakpointRequestOfR22a0, KnowsNoUnsuppressedOutput) {
    const BaseRequest request(R"({"requestID":"1","breakpoint":{"type":"UNSUPPRESSED_OUTPUT"}})");
    EXPECT_EQ(test::textThrownBy<std::runtime_error>(
                  [&request] { const r22a0::GlobalBreakpointRequest refused(request); }),
              "Unknown GlobalBreakpoint type");
}

TYPED_TEST(BreakpointRequestsTest, AMessageIdNarrowsEvenAnEmptyOne) {
    EXPECT_EQ(this->global(R"({"messageId":"ValueError","type":"ERROR"})"),
              GlobalBreakpoint(Condition::Error, "ValueError"));
    EXPECT_EQ(this->global(R"({"type":"ERROR","messageId":""})"), GlobalBreakpoint(Condition::Error, ""));
}

TYPED_TEST(BreakpointRequestsTest, AnyOtherTypeIsUnknown) {
    for (const auto* type : {"error", "ERRO", "ERRORS", " ERROR", "", "0", "ERROR\\u0000"}) {
        EXPECT_EQ(this->globalFailure(R"({"type":")" + std::string(type) + R"("})"),
                  "Unknown GlobalBreakpoint type");
    }
}

TYPED_TEST(BreakpointRequestsTest, ATypeThatIsNoStringOrMissingIsAnInvalidConversion) {
    EXPECT_EQ(this->globalFailure(R"({"type":0})"), "invalid conversion: double to string");
    EXPECT_EQ(this->globalFailure(R"({"type":null})"), "invalid conversion: null to string");
    EXPECT_EQ(this->globalFailure("{}"), "invalid conversion: undefined to string");
    EXPECT_EQ(this->globalFailure(R"({"Type":"ERROR"})"), "invalid conversion: undefined to string");
}

TYPED_TEST(BreakpointRequestsTest, TheTypeIsReadAheadOfTheMessageId) {
    EXPECT_EQ(this->globalFailure(R"({"type":"x","messageId":1})"), "Unknown GlobalBreakpoint type");
    EXPECT_EQ(this->globalFailure(R"({"type":"ERROR","messageId":1})"),
              "invalid conversion: double to string");
    EXPECT_EQ(this->globalFailure(R"({"type":"ERROR","messageId":null})"),
              "invalid conversion: null to string");
}

TYPED_TEST(BreakpointRequestsTest, ABreakpointHasToBeAnObject) {
    EXPECT_EQ(this->globalFailure(R"("ERROR")"), "invalid conversion: string to object");
    EXPECT_EQ(this->lineFailure("[]"), "invalid conversion: array to object");
    const BaseRequest none(R"({"requestID":"1"})");
    const std::string missing = "key: breakpoint is missing from {\n  \"requestID\": \"1\"\n}";
    EXPECT_EQ(test::textThrownBy<std::runtime_error>(
                  [&none] { (void)typename TypeParam::GlobalBreakpointRequest(none); }),
              missing);
    EXPECT_EQ(test::textThrownBy<std::runtime_error>(
                  [&none] { (void)typename TypeParam::LineBreakpointRequest(none); }),
              missing);
}

TYPED_TEST(BreakpointRequestsTest, ItsRequestIsKeptAndOtherKeysAreIgnored) {
    const typename TypeParam::LineBreakpointRequest request(
        BaseRequest(R"({"requestID":"7","breakpoint":{"fileName":"a","lineNumber":3,"FileName":1},"x":1})"));
    EXPECT_EQ(request.getRequestID(), "7");
    EXPECT_EQ(request.getBreakpoint(), LineBreakpoint(u"a"));
}

TYPED_TEST(BreakpointRequestsTest, LocationAndExpressionAreBothOptional) {
    EXPECT_EQ(this->line(R"({"fileName":"a"})"), LineBreakpoint(u"a"));
    EXPECT_EQ(this->line(R"({"fileName":"a","location":{"lineNumber":3}})"),
              LineBreakpoint(u"a", Location(3)));
    EXPECT_EQ(this->line(R"({"fileName":"a","expression":"x > 1"})"), LineBreakpoint(u"a", u"x > 1"));
    EXPECT_EQ(this->line(R"({"fileName":"a","location":{"localFunction":"f"},"expression":""})"),
              LineBreakpoint(u"a", Location("f"), u""));
}

TYPED_TEST(BreakpointRequestsTest, FileAndExpressionBecomeWideAndNamesStayNarrow) {
    EXPECT_EQ(this->line("{\"fileName\":\"\u00e4\U0001F600\",\"location\":{\"localFunction\":\"\u00fc\"},"
                         "\"expression\":\"\u20ac\"}"),
              LineBreakpoint(u"\u00e4\U0001F600", Location("\u00fc"), u"\u20ac"));
}

TYPED_TEST(BreakpointRequestsTest, ALocalFunctionGoesBeforeALine) {
    EXPECT_EQ(this->lineAt(R"({"lineNumber":"x","anonymousIndex":null,"localFunction":"f"})"),
              LineBreakpoint(u"a", Location("f")));
    EXPECT_EQ(this->locationFailure(R"({"lineNumber":3,"localFunction":5})"),
              "invalid conversion: double to string");
}

TYPED_TEST(BreakpointRequestsTest, AnIndexThatIsThereCountsEvenAsZero) {
    EXPECT_EQ(this->lineAt(R"({"lineNumber":3,"anonymousIndex":0})"), LineBreakpoint(u"a", Location(3, 0)));
    EXPECT_EQ(this->lineAt(R"({"lineNumber":3,"anonymousIndex":2})"), LineBreakpoint(u"a", Location(3, 2)));
}

TYPED_TEST(BreakpointRequestsTest, NumbersAreCutAndNotChecked) {
    EXPECT_EQ(this->lineAt(R"({"lineNumber":12.9,"anonymousIndex":1.99})"),
              LineBreakpoint(u"a", Location(12, 1)));
    EXPECT_EQ(this->lineAt(R"({"lineNumber":0})"), LineBreakpoint(u"a", Location(0)));
    EXPECT_EQ(this->lineAt(R"({"lineNumber":-1})"),
              LineBreakpoint(u"a", Location(std::numeric_limits<unsigned long long>::max())));
    EXPECT_EQ(this->lineAt(R"({"lineNumber":1e15})"), LineBreakpoint(u"a", Location(1'000'000'000'000'000)));
}

TYPED_TEST(BreakpointRequestsTest, ALineThatIsNoNumberOrMissingIsAnInvalidConversion) {
    EXPECT_EQ(this->locationFailure("{}"), "invalid conversion: undefined to double");
    EXPECT_EQ(this->locationFailure(R"({"anonymousIndex":1})"), "invalid conversion: undefined to double");
    EXPECT_EQ(this->locationFailure(R"({"lineNumber":"12"})"), "invalid conversion: string to double");
    EXPECT_EQ(this->locationFailure(R"({"lineNumber":3,"anonymousIndex":"1"})"),
              "invalid conversion: string to double");
    EXPECT_EQ(this->locationFailure("3"), "invalid conversion: double to object");
    EXPECT_EQ(this->locationFailure("null"), "invalid conversion: null to object");
}

TYPED_TEST(BreakpointRequestsTest, AFileThatIsNoStringOrMissingIsAnInvalidConversion) {
    EXPECT_EQ(this->lineFailure(R"({"location":1,"expression":1})"),
              "invalid conversion: undefined to string");
    EXPECT_EQ(this->lineFailure(R"({"fileName":true})"), "invalid conversion: boolean to string");
}

TYPED_TEST(BreakpointRequestsTest, TheLocationIsReadAheadOfTheExpression) {
    EXPECT_EQ(this->lineFailure(R"({"fileName":"a","location":1,"expression":true})"),
              "invalid conversion: double to object");
    EXPECT_EQ(this->lineFailure(R"({"fileName":"a","expression":true})"),
              "invalid conversion: boolean to string");
}

}  // namespace
}  // namespace yvm::JSClient
