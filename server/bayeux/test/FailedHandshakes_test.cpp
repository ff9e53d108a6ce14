#include "server/bayeux/FailedHandshakes.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

class FailedHandshakesTest : public ::testing::Test {
  protected:
    FailedHandshakes::Clock::time_point now;
    FailedHandshakes failures{2, [this] { return now; }};
};

TEST_F(FailedHandshakesTest, BlockAnAddressFromTheLimitOnAndNoOther) {
    failures.add("a");
    EXPECT_FALSE(failures.isBlocked("a"));
    failures.add("a");
    EXPECT_TRUE(failures.isBlocked("a"));
    EXPECT_FALSE(failures.isBlocked("b"));
}

TEST_F(FailedHandshakesTest, AreForgottenWhenTheMinuteIsOver) {
    failures.add("a");
    failures.add("a");
    now += std::chrono::milliseconds(59'999);
    EXPECT_TRUE(failures.isBlocked("a"));
    now += std::chrono::milliseconds(1);
    EXPECT_FALSE(failures.isBlocked("a"));
    failures.add("a");
    EXPECT_FALSE(failures.isBlocked("a")) << "nothing is left of the minute before";
    now += std::chrono::minutes(1);
    failures.add("a");
    EXPECT_FALSE(failures.isBlocked("a")) << "a failure begins a new minute too";
}

TEST_F(FailedHandshakesTest, OfMoreAddressesThanAreKeptAreCountedTogether) {
    for (std::size_t i = 0; i < FailedHandshakes::kMaxAddresses; ++i) {
        failures.add(std::to_string(i));
    }
    failures.add("x");
    EXPECT_FALSE(failures.isBlocked("y"));
    failures.add("y");
    for (const char* address : {"x", "y", "z"}) {
        EXPECT_TRUE(failures.isBlocked(address)) << address;
    }
    EXPECT_FALSE(failures.isBlocked("0"));
    now += std::chrono::minutes(1);
    EXPECT_FALSE(failures.isBlocked("x"));
}

}  // namespace
}  // namespace server::bayeux
