#include "engine/test/EngineFixture.hpp"

namespace yvm::engine::test {
namespace {

TEST_F(EngineTest, TheValueOfALastBareExpressionIsDisplayed) {
    EXPECT_EQ(eval("1+1"), "2\n");
}

}  // namespace
}  // namespace yvm::engine::test
