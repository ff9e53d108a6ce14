#include "yvm/json_serializers/serialize.hpp"

#include "foundation/json/Serializer.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace yvm::json_serializers {
namespace {

using cmddistributor::RuntimeException;
using foundation::json::Serializer;
using foundation::json::Value;
using Status = RuntimeException::Status;

std::string textOf(const RuntimeException& error) {
    return Serializer::serialize(Value(serialize(error)));
}

TEST(SerializeErrorTest, AllNineKeysAreAlwaysThere) {
    EXPECT_EQ(textOf({Status::Unclassified, u"just a text"}),
              R"({"arguments":[],"causes":[],"exceptionJson":null,"functionName":"","identifier":"",)"
              R"("message":"just a text","shutdown":false,"stackFrames":[],"status":2})");
}

TEST(SerializeErrorTest, EveryFieldIsCarried) {
    const RuntimeException error(
        Status::CommandFailed, u"caf\u00e9", "ZeroDivisionError", "divide",
        {{"<command>", "<module>", 1, "ratio = divide"}, {"lib.py", "divide", 7, "return a / b"}},
        {RuntimeException(Status::RequestInvalid, u"first"),
         RuntimeException(Status::CommandFailed, u"second", "ValueError", {}, {},
                          {RuntimeException(Status::CommandFailed, u"root")})},
        true, {}, {{"kind", "arithmetic"}});
    EXPECT_EQ(
        textOf(error),
        R"({"arguments":[],"causes":[)"
        R"({"arguments":[],"causes":[],"exceptionJson":null,"functionName":"","identifier":"",)"
        R"("message":"first","shutdown":false,"stackFrames":[],"status":5},)"
        R"({"arguments":[],"causes":[)"
        R"({"arguments":[],"causes":[],"exceptionJson":null,"functionName":"","identifier":"",)"
        R"("message":"root","shutdown":false,"stackFrames":[],"status":1}],)"
        R"("exceptionJson":null,"functionName":"","identifier":"ValueError",)"
        R"("message":"second","shutdown":false,"stackFrames":[],"status":1}],)"
        R"("exceptionJson":{"kind":"arithmetic"},"functionName":"divide","identifier":"ZeroDivisionError",)"
        "\"message\":\"caf\xC3\xA9\",\"shutdown\":true,\"stackFrames\":["
        R"({"fileName":"<command>","functionName":"<module>","lineNumber":1,"sourceLine":"ratio = divide"},)"
        R"({"fileName":"lib.py","functionName":"divide","lineNumber":7,"sourceLine":"return a / b"}],)"
        R"("status":1})");
}

TEST(SerializeErrorTest, ArgumentsKeepTheirValues) {
    const RuntimeException error(
        Status::CommandFailed, u"", {}, {}, {}, {}, false,
        {std::int8_t{-8}, std::uint8_t{8}, std::int16_t{-16}, std::uint16_t{16}, std::int32_t{-32},
         std::uint32_t{32}, std::numeric_limits<std::int64_t>::min(), ~std::uint64_t{0}, 0.5F, 0.1,
         std::numeric_limits<double>::infinity(), std::u16string(u"t\u00e9xt")});
    EXPECT_EQ(Serializer::serialize(serialize(error).at("arguments")),
              R"([-8,8,-16,16,-32,32,)"
              R"({"ywdata":["-9223372036854775808"],"ywsize":[],"ywtype":"int64"},)"
              R"({"ywdata":["18446744073709551615"],"ywsize":[],"ywtype":"uint64"},)"
              R"(0.5,0.1,{"ywdata":["Inf"],"ywsize":[],"ywtype":"float64"},)"
              "\"t\xC3\xA9xt\"]");
}

TEST(SerializeErrorTest, BrokenTextBecomesTheReplacementCharacter) {
    const RuntimeException error(Status::CommandFailed, std::u16string(1, char16_t(0xD800)), "\xFF");
    EXPECT_EQ(serialize(error).at("message"), Value("\xEF\xBF\xBD"));
    EXPECT_NE(textOf(error).find("\"identifier\":\"\xEF\xBF\xBD\""), std::string::npos);
}

TEST(SerializeErrorTest, ALongChainOfCausesIsWrittenUpToItsBound) {
    RuntimeException error(Status::CommandFailed, u"root");
    for (int level = 0; level < 300; ++level) {
        error = RuntimeException(Status::CommandFailed, u"wrapped", {}, {}, {}, {error});
    }
    const auto text = textOf(error);
    std::size_t levels = 0;
    for (auto at = text.find("\"causes\":[{"); at != std::string::npos;
         at = text.find("\"causes\":[{", at + 1)) {
        ++levels;
    }
    EXPECT_EQ(levels, RuntimeException::maxCauseDepth);
}

}  // namespace
}  // namespace yvm::json_serializers
