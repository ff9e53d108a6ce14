// The traits of sinks, which r22a0 spells with an underscore and r24a0 without.

#include "r22a0/readSinkTraits.hpp"

#include "common/test/support.hpp"
#include "common/test/versions.hpp"
#include "r24a0/readSinkTraits.hpp"

#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace yvm::JSClient {
namespace {

using test::parseObject;
using test::textThrownBy;
using ylutil::io::SinkTraits;

const std::string badGet = "boost::bad_get: failed value get using boost::get";

class ReadSinkTraits : public testing::Test, public test::ForEachVersion {
  protected:
    static SinkTraits readSinkTraits(const JsonObject& object) {
        return isR22a0() ? r22a0::readSinkTraits(object) : r24a0::readSinkTraits(object);
    }
    static std::pair<SinkTraits, SinkTraits> readSinkTraitsPair(const foundation::json::Value& enclosing) {
        return isR22a0() ? r22a0::readSinkTraitsPair(enclosing) : r24a0::readSinkTraitsPair(enclosing);
    }
    /// The key of a trait, as the version spells it.
    static std::string key(const std::string& trait) { return perVersion("_", "") + trait; }
};

INSTANTIATE_TEST_SUITE_P(Versions, ReadSinkTraits, test::bothVersions(), test::nameOfVersion);

TEST_P(ReadSinkTraits, AnEmptyObjectGivesTheDefaults) {
    EXPECT_EQ(readSinkTraits({}), SinkTraits());
}

TEST_P(ReadSinkTraits, EachKeyChangesItsTraitAndNoOther) {
    const SinkTraits defaults;
    const auto withFlipped = [&defaults](int position) {
        const auto flip = [position](int own, bool value) { return own == position ? !value : value; };
        return SinkTraits(flip(1, defaults.supportsMore()), flip(2, defaults.supportsHotlinks()),
                          flip(3, defaults.needsFormattingForDisplay()), flip(4, defaults.useDiary()),
                          flip(5, defaults.useEcho()), flip(6, defaults.useLogging()));
    };
    const auto flipped = [](const std::string& trait, bool defaultValue) {
        return readSinkTraits(JsonObject{{key(trait), foundation::json::Value(!defaultValue)}});
    };
    EXPECT_EQ(flipped("supportsMore", defaults.supportsMore()), withFlipped(1));
    EXPECT_EQ(flipped("supportsHotlinks", defaults.supportsHotlinks()), withFlipped(2));
    EXPECT_EQ(flipped("needsFormattingForDisplay", defaults.needsFormattingForDisplay()), withFlipped(3));
    EXPECT_EQ(flipped("useDiary", defaults.useDiary()), withFlipped(4));
    EXPECT_EQ(flipped("useEcho", defaults.useEcho()), withFlipped(5));
    EXPECT_EQ(flipped("useLogging", defaults.useLogging()), withFlipped(6));
}

TEST_P(ReadSinkTraits, UnknownKeysAndThoseOfTheOtherVersionAreIgnored) {
    EXPECT_EQ(readSinkTraits(parseObject(perVersion(R"({"useEcho":true,"useLogging":5,"other":null})",
                                                    R"({"_useEcho":true,"_useLogging":5,"other":null})"))),
              SinkTraits());
}

TEST_P(ReadSinkTraits, ATraitThatIsNoBooleanThrows) {
    for (const char* trait : {"supportsMore", "supportsHotlinks", "needsFormattingForDisplay", "useDiary",
                              "useEcho", "useLogging"}) {
        EXPECT_EQ(textThrownBy<boost::bad_get>([trait] { readSinkTraits(JsonObject{{key(trait), 1.0}}); }),
                  badGet)
            << trait;
    }
}

TEST_P(ReadSinkTraits, AbsentSidesOfAPairHaveTheDefaults) {
    const auto [out, err] = readSinkTraitsPair(parseObject("{}"));
    EXPECT_EQ(out, SinkTraits());
    EXPECT_EQ(err, SinkTraits());
}

TEST_P(ReadSinkTraits, OfAPairOutComesFirst) {
    const auto [out, err] = readSinkTraitsPair(
        parseObject(perVersion(R"({"outSinkTraits":{"_useEcho":true},"errSinkTraits":{"_useDiary":true}})",
                               R"({"outSinkTraits":{"useEcho":true},"errSinkTraits":{"useDiary":true}})")));
    EXPECT_TRUE(out.useEcho());
    EXPECT_FALSE(out.useDiary());
    EXPECT_TRUE(err.useDiary());
    EXPECT_FALSE(err.useEcho());
}

TEST_P(ReadSinkTraits, ASideOfAPairThatIsNoObjectThrows) {
    for (const char* text :
         {R"({"outSinkTraits":null})", R"({"errSinkTraits":[]})", R"({"outSinkTraits":true})",
          perVersion(R"({"outSinkTraits":{"_useEcho":1}})", R"({"outSinkTraits":{"useEcho":1}})")}) {
        EXPECT_EQ(textThrownBy<boost::bad_get>([text] { readSinkTraitsPair(parseObject(text)); }), badGet)
            << text;
    }
}

TEST_P(ReadSinkTraits, APairInAValueThatIsNoObjectThrows) {
    EXPECT_EQ(textThrownBy<boost::bad_get>([] { readSinkTraitsPair(foundation::json::Value("x")); }), badGet);
}

}  // namespace
}  // namespace yvm::JSClient
