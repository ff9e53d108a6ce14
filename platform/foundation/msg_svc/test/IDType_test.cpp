#include "foundation/msg_svc/exchange/IDType.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <unordered_set>
#include <vector>

namespace foundation::msg_svc::exchange {
namespace {

TEST(IDTypeTest, EachDefaultConstructedIdentityIsNewWhicheverThreadMakesIt) {
    std::mutex mutex;
    std::set<IDType> all;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            std::vector<IDType> own(1000);
            const std::lock_guard lock(mutex);
            all.insert(own.begin(), own.end());
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(all.size(), 4000U);
    EXPECT_FALSE(all.contains(IDType::null()));
}

TEST(IDTypeTest, OnlyZeroZeroIsNull) {
    EXPECT_TRUE(IDType(0, 0).isNull());
    EXPECT_FALSE(IDType(0, 1).isNull());
    EXPECT_FALSE(IDType(1, 0).isNull());
    EXPECT_FALSE(IDType().isNull());
    EXPECT_EQ(IDType::null(), IDType(0, 0));
}

TEST(IDTypeTest, IsOrderedHighPartFirstAndSigned) {
    EXPECT_LT(IDType(0, 9), IDType(1, 0));
    EXPECT_LT(IDType(1, -1), IDType(1, 0));
    EXPECT_LT(IDType(-1, 5), IDType(0, 0));
    EXPECT_LT(IDType(1, std::numeric_limits<std::int64_t>::min()), IDType(1, 0));
    EXPECT_EQ(IDType(3, 4), IDType(3, 4));
    EXPECT_NE(IDType(3, 4), IDType(4, 3));
}

TEST(IDTypeTest, PrintsBothParts) {
    std::ostringstream text;
    text << IDType(-3, 4);
    EXPECT_EQ(text.str(), "-3:4");
}

TEST(IDTypeTest, CopiesAreEqualAndHashAlike) {
    const IDType id;
    const IDType copy = id;
    EXPECT_EQ(copy, id);
    EXPECT_EQ(std::hash<IDType>{}(copy), std::hash<IDType>{}(id));
    const std::unordered_set<IDType> set{IDType(1, 2), IDType(2, 1), IDType(1, 2)};
    EXPECT_EQ(set.size(), 2U);
}

}  // namespace
}  // namespace foundation::msg_svc::exchange
