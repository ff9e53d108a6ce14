#include "ylutil/io/StreamTypeEnum.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace ylutil::io {
namespace {

std::string printed(StreamTypeEnum type) {
    std::ostringstream out;
    out << type;
    return out.str();
}

TEST(StreamTypeEnumTest, StreamsPrintAsTheirNames) {
    EXPECT_EQ(printed(StreamTypeEnum::Output), "OUTPUT_STREAM");
    EXPECT_EQ(printed(StreamTypeEnum::Error), "ERROR_STREAM");
    EXPECT_EQ(printed(StreamTypeEnum::Generic), "GENERIC_STREAM");
}

TEST(StreamTypeEnumTest, AnyOtherNumberPrintsAsUndefined) {
    EXPECT_EQ(printed(static_cast<StreamTypeEnum>(3)), "Undefined stream type");
    EXPECT_EQ(printed(static_cast<StreamTypeEnum>(-1)), "Undefined stream type");
}

TEST(StreamTypeEnumTest, NumbersAreThoseOfTextMessages) {
    EXPECT_EQ(static_cast<int>(StreamTypeEnum::Output), 0);
    EXPECT_EQ(static_cast<int>(StreamTypeEnum::Error), 1);
    EXPECT_EQ(static_cast<int>(StreamTypeEnum::Generic), 2);
}

}  // namespace
}  // namespace ylutil::io
