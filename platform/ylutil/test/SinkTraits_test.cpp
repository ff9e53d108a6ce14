#include "ylutil/io/SinkTraits.hpp"

#include <gtest/gtest.h>

namespace ylutil::io {
namespace {

TEST(SinkTraitsTest, DefaultsAreThoseOfAPlainStream) {
    const SinkTraits traits;
    EXPECT_FALSE(traits.supportsMore());
    EXPECT_FALSE(traits.supportsHotlinks());
    EXPECT_TRUE(traits.needsFormattingForDisplay());
    EXPECT_FALSE(traits.useDiary());
    EXPECT_FALSE(traits.useEcho());
    EXPECT_FALSE(traits.useLogging());
}

TEST(SinkTraitsTest, EachConstructorParameterSetsItsOwnTrait) {
    using Reader = bool (SinkTraits::*)() const noexcept;
    constexpr Reader readers[] = {
        &SinkTraits::supportsMore, &SinkTraits::supportsHotlinks, &SinkTraits::needsFormattingForDisplay,
        &SinkTraits::useDiary,     &SinkTraits::useEcho,          &SinkTraits::useLogging};
    for (int set = 0; set < 6; ++set) {
        const SinkTraits traits(set == 0, set == 1, set == 2, set == 3, set == 4, set == 5);
        for (int read = 0; read < 6; ++read) {
            EXPECT_EQ((traits.*readers[read])(), read == set) << "set " << set << ", read " << read;
        }
    }
}

TEST(SinkTraitsTest, TraitsAreEqualWhenAllSixAre) {
    const SinkTraits echoing(false, false, true, false, true, false);
    EXPECT_EQ(SinkTraits(echoing), echoing);
    EXPECT_NE(SinkTraits(), echoing);
    EXPECT_NE(SinkTraits(false, false, true, false, true, true), echoing);
}

}  // namespace
}  // namespace ylutil::io
