#include "capabilities/CapabilityList.hpp"

#include <gtest/gtest.h>

namespace capabilities {
namespace {

TEST(CapabilityListTest, ADefaultListAllowsEverything) {
    const CapabilityList list;
    EXPECT_TRUE(list.isUnrestricted());
    EXPECT_TRUE(list.allows("input"));
    EXPECT_TRUE(list.allows("whatever comes next"));
}

TEST(CapabilityListTest, AListOfNamesAllowsThoseAlone) {
    const auto list = CapabilityList::fromStringVector({"input", "figures"});
    EXPECT_FALSE(list.isUnrestricted());
    EXPECT_TRUE(list.allows("input"));
    EXPECT_TRUE(list.allows("figures"));
    EXPECT_FALSE(list.allows("debugger"));
    EXPECT_FALSE(list.allows("Input"));
}

TEST(CapabilityListTest, AnEmptyListOfNamesAllowsNothing) {
    const auto list = CapabilityList::fromStringVector({});
    EXPECT_FALSE(list.isUnrestricted());
    EXPECT_FALSE(list.allows("input"));
    EXPECT_NE(list, CapabilityList());
}

TEST(CapabilityListTest, OrderAndRepetitionOfNamesMakeNoDifference) {
    EXPECT_EQ(CapabilityList::fromStringVector({"a", "b", "a"}),
              CapabilityList::fromStringVector({"b", "a"}));
}

}  // namespace
}  // namespace capabilities
