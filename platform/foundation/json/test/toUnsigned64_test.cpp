#include "foundation/json/toUnsigned64.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace foundation::json {
namespace {

constexpr std::uint64_t highBit = std::uint64_t{1} << 63;

TEST(ToUnsigned64, TruncatesTowardsZero) {
    EXPECT_EQ(toUnsigned64(0.0), 0u);
    EXPECT_EQ(toUnsigned64(-0.0), 0u);
    EXPECT_EQ(toUnsigned64(2.9), 2u);
    EXPECT_EQ(toUnsigned64(80.9), 80u);
    EXPECT_EQ(toUnsigned64(-0.9), 0u);
    EXPECT_EQ(toUnsigned64(9007199254740993.0), 9007199254740992u);
}

TEST(ToUnsigned64, NegativeNumbersWrap) {
    EXPECT_EQ(toUnsigned64(-1.0), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(toUnsigned64(-2.9), std::numeric_limits<std::uint64_t>::max() - 1);
}

TEST(ToUnsigned64, UpTo2To64TheValueItself) {
    EXPECT_EQ(toUnsigned64(9223372036854774784.0), 9223372036854774784u);
    EXPECT_EQ(toUnsigned64(9223372036854775808.0), highBit);
    EXPECT_EQ(toUnsigned64(1e19), 10000000000000000000u);
    EXPECT_EQ(toUnsigned64(18446744073709549568.0), 18446744073709549568u);
}

TEST(ToUnsigned64, TheRestIsDefined) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(toUnsigned64(18446744073709551616.0), 0u);
    EXPECT_EQ(toUnsigned64(1e300), 0u);
    EXPECT_EQ(toUnsigned64(infinity), 0u);
    EXPECT_EQ(toUnsigned64(-9223372036854775808.0), highBit);
    EXPECT_EQ(toUnsigned64(-1e300), highBit);
    EXPECT_EQ(toUnsigned64(-infinity), highBit);
    EXPECT_EQ(toUnsigned64(std::nan("")), highBit);
}

}  // namespace
}  // namespace foundation::json
