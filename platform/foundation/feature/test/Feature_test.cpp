#include "foundation/feature/Feature.hpp"

#include <gtest/gtest.h>

#include <string>
#include <thread>

using foundation::feature::Feature;
using foundation::feature::IFeature;

static_assert(noexcept(IFeature::instance().isEnabled("x", false)));
static_assert(noexcept(Feature<0>("x").isEnabled()));

TEST(Feature, OneOfZeroIsOffUntilItIsTurnedOn) {
    const Feature<0> feature("feature-test-off");
    EXPECT_FALSE(feature.isEnabled());
    IFeature::instance().set("feature-test-off", true);
    EXPECT_TRUE(feature.isEnabled());
    IFeature::instance().reset("feature-test-off");
    EXPECT_FALSE(feature.isEnabled());
}

TEST(Feature, OneOfOneIsOnUntilItIsTurnedOff) {
    const Feature<1> feature("feature-test-on");
    EXPECT_TRUE(feature.isEnabled());
    IFeature::instance().set("feature-test-on", false);
    EXPECT_FALSE(feature.isEnabled());
    IFeature::instance().reset("feature-test-on");
    EXPECT_TRUE(feature.isEnabled());
}

TEST(Feature, SwitchesOfDifferentNamesAreApart) {
    IFeature::instance().set("feature-test-a", true);
    EXPECT_FALSE(Feature<0>("feature-test-b").isEnabled());
    EXPECT_FALSE(Feature<0>("feature-test-A").isEnabled());
    IFeature::instance().reset("feature-test-a");
}

TEST(Feature, ResettingASwitchThatWasNeverSetIsHarmless) {
    IFeature::instance().reset("feature-test-never");
    EXPECT_FALSE(Feature<0>("feature-test-never").isEnabled());
}

TEST(Feature, MayBeAskedWhileItIsSet) {
    const Feature<0> feature("feature-test-threads");
    std::thread writer([] {
        for (int turn = 0; turn < 1000; ++turn) {
            IFeature::instance().set("feature-test-threads", turn % 2 == 0);
        }
        IFeature::instance().set("feature-test-threads", true);
    });
    int seen = 0;
    for (int turn = 0; turn < 1000; ++turn) {
        seen += feature.isEnabled() ? 1 : 0;
    }
    writer.join();
    EXPECT_LE(seen, 1000);
    EXPECT_TRUE(feature.isEnabled());
}
