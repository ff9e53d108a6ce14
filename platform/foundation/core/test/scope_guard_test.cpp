#include "foundation/core/util/scope_guard.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <utility>

using foundation::core::util::scope_guard;

static_assert(!std::is_copy_constructible_v<scope_guard>);
static_assert(std::is_nothrow_move_constructible_v<scope_guard>);

TEST(ScopeGuard, RunsItsFunctionOnceAtDestruction) {
    int runs = 0;
    {
        const scope_guard guard([&runs] { ++runs; });
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeGuard, DestructionSwallowsWhatTheFunctionThrows) {
    int runs = 0;
    {
        const scope_guard guard([&runs] {
            ++runs;
            throw std::runtime_error("nobody hears this");
        });
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeGuard, AnEarlyRunIsTheOnlyRun) {
    int runs = 0;
    {
        scope_guard guard([&runs] { ++runs; });
        guard.run();
        EXPECT_EQ(runs, 1);
        EXPECT_FALSE(guard);
        guard.run();
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeGuard, AnEarlyRunThatThrowsLetsTheExceptionOutAndEmptiesTheGuard) {
    int runs = 0;
    {
        scope_guard guard([&runs] {
            ++runs;
            throw std::runtime_error("heard");
        });
        EXPECT_THROW(guard.run(), std::runtime_error);
        EXPECT_FALSE(guard);
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeGuard, ADismissedGuardDoesNotRun) {
    int runs = 0;
    {
        scope_guard guard([&runs] { ++runs; });
        guard.dismiss();
        EXPECT_FALSE(guard);
    }
    EXPECT_EQ(runs, 0);
}

TEST(ScopeGuard, AMovedFromGuardIsEmpty) {
    int runs = 0;
    {
        scope_guard first([&runs] { ++runs; });
        scope_guard second(std::move(first));
        EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): the promise under test
        EXPECT_TRUE(second);
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeGuard, AssignmentRunsWhatTheGuardHeldBefore) {
    int oldRuns = 0;
    int newRuns = 0;
    {
        scope_guard guard([&oldRuns] { ++oldRuns; });
        guard = scope_guard([&newRuns] { ++newRuns; });
        EXPECT_EQ(oldRuns, 1);
        EXPECT_EQ(newRuns, 0);
    }
    EXPECT_EQ(oldRuns, 1);
    EXPECT_EQ(newRuns, 1);
}

TEST(ScopeGuard, ADefaultGuardHoldsNothing) {
    scope_guard guard;
    EXPECT_FALSE(guard);
    guard.run();
}
