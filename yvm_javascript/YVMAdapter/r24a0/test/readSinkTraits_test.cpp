#include "r24a0/readSinkTraits.hpp"

#include "common/test/support.hpp"

#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

namespace yvm::JSClient::r24a0 {
namespace {

using test::parseObject;
using test::textThrownBy;
using ylutil::io::SinkTraits;

const std::string badGet = "boost::bad_get: failed value get using boost::get";

TEST(ReadSinkTraits, AnEmptyObjectGivesTheDefaults) {
    EXPECT_EQ(readSinkTraits({}), SinkTraits());
}

TEST(ReadSinkTraits, EachKeyChangesItsTraitAndNoOther) {
    const SinkTraits defaults;
    const auto withFlipped = [&defaults](int position) {
        const auto flip = [position](int own, bool value) { return own == position ? !value : value; };
        return SinkTraits(flip(1, defaults.supportsMore()), flip(2, defaults.supportsHotlinks()),
                          flip(3, defaults.needsFormattingForDisplay()), flip(4, defaults.useDiary()),
                          flip(5, defaults.useEcho()), flip(6, defaults.useLogging()));
    };
    const auto flipped = [](const std::string& key, bool defaultValue) {
        return readSinkTraits(JsonObject{{key, foundation::json::Value(!defaultValue)}});
    };
    EXPECT_EQ(flipped("supportsMore", defaults.supportsMore()), withFlipped(1));
    EXPECT_EQ(flipped("supportsHotlinks", defaults.supportsHotlinks()), withFlipped(2));
    EXPECT_EQ(flipped("needsFormattingForDisplay", defaults.needsFormattingForDisplay()), withFlipped(3));
    EXPECT_EQ(flipped("useDiary", defaults.useDiary()), withFlipped(4));
    EXPECT_EQ(flipped("useEcho", defaults.useEcho()), withFlipped(5));
    EXPECT_EQ(flipped("useLogging", defaults.useLogging()), withFlipped(6));
}

TEST(ReadSinkTraits, UnknownKeysAndThoseOfTheOlderProtocolAreIgnored) {
    EXPECT_EQ(readSinkTraits(parseObject(R"({"_useEcho":true,"_useLogging":5,"other":null})")), SinkTraits());
}

TEST(ReadSinkTraits, ATraitThatIsNoBooleanThrows) {
    for (const char* key : {"supportsMore", "supportsHotlinks", "needsFormattingForDisplay", "useDiary",
                            "useEcho", "useLogging"}) {
        EXPECT_EQ(textThrownBy<boost::bad_get>([key] { readSinkTraits(JsonObject{{key, 1.0}}); }), badGet)
            << key;
    }
}

TEST(ReadSinkTraitsPair, AbsentSidesHaveTheDefaults) {
    const auto [out, err] = readSinkTraitsPair(parseObject("{}"));
    EXPECT_EQ(out, SinkTraits());
    EXPECT_EQ(err, SinkTraits());
}

TEST(ReadSinkTraitsPair, OutComesFirst) {
    const auto [out, err] = readSinkTraitsPair(
        parseObject(R"({"outSinkTraits":{"useEcho":true},"errSinkTraits":{"useDiary":true}})"));
    EXPECT_TRUE(out.useEcho());
    EXPECT_FALSE(out.useDiary());
    EXPECT_TRUE(err.useDiary());
    EXPECT_FALSE(err.useEcho());
}

TEST(ReadSinkTraitsPair, ASideThatIsNoObjectThrows) {
    for (const char* text : {R"({"outSinkTraits":null})", R"({"errSinkTraits":[]})",
                             R"({"outSinkTraits":true})", R"({"outSinkTraits":{"useEcho":1}})"}) {
        EXPECT_EQ(textThrownBy<boost::bad_get>([text] { readSinkTraitsPair(parseObject(text)); }), badGet)
            << text;
    }
}

TEST(ReadSinkTraitsPair, AnEnclosingValueThatIsNoObjectThrows) {
    EXPECT_EQ(textThrownBy<boost::bad_get>([] { readSinkTraitsPair(foundation::json::Value("x")); }), badGet);
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
