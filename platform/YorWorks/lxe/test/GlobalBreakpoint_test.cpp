#include "YorWorks/lxe/GlobalBreakpoint.hpp"

#include <gtest/gtest.h>

namespace YorWorks::lxe {
namespace {

using Condition = GlobalBreakpoint::Condition;

TEST(GlobalBreakpointTest, ConditionsHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(Condition::Error), 0);
    EXPECT_EQ(static_cast<int>(Condition::Warning), 1);
    EXPECT_EQ(static_cast<int>(Condition::CaughtError), 2);
    EXPECT_EQ(static_cast<int>(Condition::NanInf), 3);
    EXPECT_EQ(static_cast<int>(Condition::UnsuppressedOutput), 4);
}

TEST(GlobalBreakpointTest, AnEmptyIdentifierIsNotAMissingOne) {
    const GlobalBreakpoint plain(Condition::Warning);
    const GlobalBreakpoint narrowed(Condition::Warning, "");
    EXPECT_EQ(plain.condition(), Condition::Warning);
    EXPECT_EQ(plain.messageId(), std::nullopt);
    EXPECT_EQ(narrowed.messageId(), "");
    EXPECT_NE(plain, narrowed);
}

TEST(GlobalBreakpointTest, EqualsOneOfTheSameConditionAndIdentifier) {
    const GlobalBreakpoint breakpoint(Condition::Error, "ValueError");
    EXPECT_EQ(breakpoint, GlobalBreakpoint(Condition::Error, "ValueError"));
    EXPECT_NE(breakpoint, GlobalBreakpoint(Condition::Error, "KeyError"));
    EXPECT_NE(breakpoint, GlobalBreakpoint(Condition::CaughtError, "ValueError"));
}

}  // namespace
}  // namespace YorWorks::lxe
