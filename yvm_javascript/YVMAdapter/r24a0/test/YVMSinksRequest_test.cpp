#include "r24a0/YVMSinksRequest.hpp"

#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace yvm::JSClient::r24a0 {
namespace {

using platform_testing::LogCapture;
using ylutil::io::SinkTraits;

/// A request with the members of `members`, which begin with a comma where there are any.
YVMSinksRequest requestWith(const std::string& members) {
    return YVMSinksRequest(BaseRequest(R"({"requestID":"1")" + members + "}"));
}

TEST(YVMSinksRequest, WithoutTraitsInstallsDefaultSinks) {
    const auto request = requestWith("");
    EXPECT_EQ(request.getRequestID(), "1");
    EXPECT_EQ(request.getOutSinkTraits(), SinkTraits());
    EXPECT_EQ(request.getErrSinkTraits(), SinkTraits());
    EXPECT_FALSE(request.getUseDefaultSinks());
}

TEST(YVMSinksRequest, EachSideHasItsTraits) {
    const auto request =
        requestWith(R"(,"outSinkTraits":{"supportsMore":true},"errSinkTraits":{"useLogging":true})");
    EXPECT_EQ(request.getOutSinkTraits(), SinkTraits(true, false, true, false, false, false));
    EXPECT_EQ(request.getErrSinkTraits(), SinkTraits(false, false, true, false, false, true));
    EXPECT_FALSE(request.getUseDefaultSinks());
}

TEST(YVMSinksRequest, OneSideAloneLeavesTheOtherAtItsDefaults) {
    const auto request = requestWith(R"(,"errSinkTraits":{"useEcho":true})");
    EXPECT_EQ(request.getOutSinkTraits(), SinkTraits());
    EXPECT_TRUE(request.getErrSinkTraits().useEcho());
    EXPECT_FALSE(request.getUseDefaultSinks());
}

TEST(YVMSinksRequest, BothSidesNullAskForThePreviousSinks) {
    const auto request = requestWith(R"(,"outSinkTraits":null,"errSinkTraits":null)");
    EXPECT_TRUE(request.getUseDefaultSinks());
    EXPECT_EQ(request.getOutSinkTraits(), SinkTraits());
    EXPECT_EQ(request.getErrSinkTraits(), SinkTraits());
}

TEST(YVMSinksRequest, OneSideNullInstalls) {
    EXPECT_FALSE(requestWith(R"(,"outSinkTraits":null)").getUseDefaultSinks());
    EXPECT_FALSE(requestWith(R"(,"errSinkTraits":null)").getUseDefaultSinks());
    for (const char* members : {R"(,"outSinkTraits":null,"errSinkTraits":{"useEcho":true})",
                                R"(,"outSinkTraits":null,"errSinkTraits":false)"}) {
        const auto request = requestWith(members);
        EXPECT_FALSE(request.getUseDefaultSinks()) << members;
        EXPECT_EQ(request.getOutSinkTraits(), SinkTraits()) << members;
    }
    const auto request = requestWith(R"(,"outSinkTraits":{"useEcho":true},"errSinkTraits":null)");
    EXPECT_FALSE(request.getUseDefaultSinks());
    EXPECT_TRUE(request.getOutSinkTraits().useEcho());
    EXPECT_EQ(request.getErrSinkTraits(), SinkTraits());
}

TEST(YVMSinksRequest, ASideOfAnyWrongTypeHasDefaultTraits) {
    for (const std::string value : {"null", "true", "1", "\"x\"", "[]", R"([{"useEcho":true}])"}) {
        const auto request =
            requestWith(",\"outSinkTraits\":" + value + R"(,"errSinkTraits":{"useEcho":true})");
        EXPECT_EQ(request.getOutSinkTraits(), SinkTraits()) << value;
        EXPECT_TRUE(request.getErrSinkTraits().useEcho()) << value;
        EXPECT_FALSE(request.getUseDefaultSinks()) << value;
        EXPECT_EQ(requestWith(",\"errSinkTraits\":" + value).getErrSinkTraits(), SinkTraits()) << value;
    }
}

TEST(YVMSinksRequest, ATraitThatIsNoBooleanDropsTheWholeSide) {
    for (const std::string key : {"supportsMore", "supportsHotlinks", "useDiary", "useEcho",
                                  "needsFormattingForDisplay", "useLogging"}) {
        for (const std::string value : {"null", "1", "\"true\"", "[]", "{}"}) {
            std::string traits = R"({"useEcho":true,"useDiary":true,"supportsMore":true})";
            traits = "{\"" + key + "\":" + value + "," + traits.substr(1);
            const auto request =
                requestWith(",\"outSinkTraits\":" + traits + R"(,"errSinkTraits":{"useEcho":true})");
            EXPECT_EQ(request.getOutSinkTraits(), SinkTraits()) << traits;
            EXPECT_TRUE(request.getErrSinkTraits().useEcho()) << traits;
        }
    }
}

TEST(YVMSinksRequest, UnknownKeysAndThoseOfTheOlderProtocolAreIgnored) {
    const auto request =
        requestWith(R"(,"outSinkTraits":{"_useEcho":true,"other":5},"useDefaultSinks":true)");
    EXPECT_EQ(request.getOutSinkTraits(), SinkTraits());
    EXPECT_FALSE(request.getUseDefaultSinks());
}

TEST(YVMSinksRequest, ItsLookupsAreLogged) {
    const BaseRequest base(std::string(R"({"requestID":"1","outSinkTraits":null})"));
    const LogCapture log;
    const YVMSinksRequest request(base);
    std::vector<std::pair<unsigned, std::string>> lines;
    for (const auto& record : log.records("yvm::JSClient::Request")) {
        lines.emplace_back(record.severity, record.text);
    }
    EXPECT_EQ(lines,
              (std::vector<std::pair<unsigned, std::string>>{// The out side cannot be read as an object,
                                                             {2, " keyName=outSinkTraits"},
                                                             {2, " keyName=outSinkTraits"},
                                                             // the err side is absent,
                                                             {2, " keyName=errSinkTraits"},
                                                             {2, " keyName=errSinkTraits"},
                                                             {8, "Can't find value for errSinkTraits"},
                                                             {8, "Returning default value "},
                                                             // and of the two nulls one is missing.
                                                             {2, " keyName=outSinkTraits"},
                                                             {2, " keyName=errSinkTraits"},
                                                             {8, "Can't find value for errSinkTraits"}}));
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
