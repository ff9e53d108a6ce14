#include "yvm/Factory.hpp"

#include "testing/FakeYvm.hpp"

#include <gtest/gtest.h>

namespace yvm {
namespace {

TEST(FactoryTest, TheCurrentEngineIsHeldWeakly) {
    EXPECT_FALSE(Factory::getCurrentLocalYVM());
    auto engine = platform_testing::FakeYvm::create();
    Factory::setCurrentLocalYVM(engine);
    EXPECT_EQ(Factory::getCurrentLocalYVM(), engine);
    engine.reset();
    EXPECT_FALSE(Factory::getCurrentLocalYVM());
}

TEST(FactoryTest, AnEmptyPointerTakesTheEngineAway) {
    const auto engine = platform_testing::FakeYvm::create();
    Factory::setCurrentLocalYVM(engine);
    Factory::setCurrentLocalYVM(nullptr);
    EXPECT_FALSE(Factory::getCurrentLocalYVM());
}

}  // namespace
}  // namespace yvm
