#include "ylutil/io/TextBase.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace ylutil::io {
namespace {

std::string printed(const TextBase& fragment) {
    std::ostringstream out;
    out << fragment;
    return out.str();
}

TEST(TextBaseTest, AFragmentPrintsItsStreamAndItsText) {
    EXPECT_EQ(printed({StreamTypeEnum::Output, u"ans = 2\n"}), "{OUTPUT_STREAM, ans = 2\n}");
    EXPECT_EQ(printed({StreamTypeEnum::Error, u""}), "{ERROR_STREAM, }");
    EXPECT_EQ(printed({static_cast<StreamTypeEnum>(9), u"x"}), "{Undefined stream type, x}");
}

TEST(TextBaseTest, ALoneSurrogatePrintsAsTheReplacementCharacter) {
    EXPECT_EQ(printed({StreamTypeEnum::Generic, u"\u00e4" + std::u16string(1, char16_t(0xD83D))}),
              "{GENERIC_STREAM, \xC3\xA4\xEF\xBF\xBD}");
}

}  // namespace
}  // namespace ylutil::io
