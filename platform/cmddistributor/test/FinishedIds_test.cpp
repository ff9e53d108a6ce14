#include "cmddistributor/detail/FinishedIds.hpp"

#include <gtest/gtest.h>

namespace cmddistributor::detail {
namespace {

using IDType = FinishedIds::IDType;

TEST(FinishedIdsTest, TheOldestIsForgottenFirst) {
    FinishedIds ids(2);
    const IDType first;
    const IDType second;
    const IDType third;
    ids.remember(first);
    ids.remember(second);
    EXPECT_TRUE(ids.contains(first));
    ids.remember(third);
    EXPECT_FALSE(ids.contains(first));
    EXPECT_TRUE(ids.contains(second));
    EXPECT_TRUE(ids.contains(third));
}

TEST(FinishedIdsTest, AnIdentityThatIsRememberedTwiceTakesOnePlace) {
    FinishedIds ids(2);
    const IDType first;
    const IDType second;
    ids.remember(first);
    ids.remember(second);
    ids.remember(second);
    EXPECT_TRUE(ids.contains(first));
}

}  // namespace
}  // namespace cmddistributor::detail
