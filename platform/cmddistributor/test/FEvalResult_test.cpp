#include "cmddistributor/FEvalResult.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace cmddistributor {
namespace {

using foundation::yorlabdata::Array;

TEST(FEvalResultTest, OutputsAreTakenOnce) {
    FEvalResult result({Array(std::u16string(u"a")), Array()});
    EXPECT_EQ(result.take(), (std::vector<Array>{Array(std::u16string(u"a")), Array()}));
    try {
        result.take();
        FAIL() << "taken twice";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Cannot use FEvalResult results after move.");
    }
}

TEST(FEvalResultTest, ADefaultResultHasNoOutputs) {
    EXPECT_TRUE(FEvalResult().take().empty());
}

}  // namespace
}  // namespace cmddistributor
