#include "YorWorks/lxe/LineBreakpoint.hpp"

#include <gtest/gtest.h>

namespace YorWorks::lxe {
namespace {

using Location = LineBreakpoint::Location;

TEST(LineBreakpointTest, EachConstructorSetsWhatItIsGiven) {
    const LineBreakpoint file(u"a.py");
    EXPECT_EQ(file.fileName(), u"a.py");
    EXPECT_EQ(file.location(), std::nullopt);
    EXPECT_EQ(file.expression(), std::nullopt);

    const LineBreakpoint line(u"a.py", Location(7));
    EXPECT_EQ(line.location(), Location(7));
    EXPECT_EQ(line.expression(), std::nullopt);

    const LineBreakpoint conditional(u"a.py", u"x > 1");
    EXPECT_EQ(conditional.location(), std::nullopt);
    EXPECT_EQ(conditional.expression(), u"x > 1");

    const LineBreakpoint both(u"a.py", Location("f"), u"x > 1");
    EXPECT_EQ(both.location(), Location("f"));
    EXPECT_EQ(both.expression(), u"x > 1");
}

TEST(LineBreakpointTest, ALocationIsAFunctionOrALine) {
    const Location function("f");
    EXPECT_EQ(function.localFunction(), "f");
    EXPECT_EQ(function.lineNumber(), 0U);
    EXPECT_EQ(function.anonymousIndex(), std::nullopt);

    const Location line(12);
    EXPECT_EQ(line.localFunction(), std::nullopt);
    EXPECT_EQ(line.lineNumber(), 12U);
    EXPECT_EQ(line.anonymousIndex(), std::nullopt);

    EXPECT_EQ(Location(12, 2).anonymousIndex(), 2U);
}

TEST(LineBreakpointTest, TheIndexZeroIsNotAMissingOne) {
    EXPECT_NE(Location(12), Location(12, 0));
    EXPECT_EQ(Location(12, 0), Location(12, 0));
}

TEST(LineBreakpointTest, EqualsOneWithTheSameParts) {
    const LineBreakpoint breakpoint(u"a.py", Location(7), u"x");
    EXPECT_EQ(breakpoint, LineBreakpoint(u"a.py", Location(7), u"x"));
    EXPECT_NE(breakpoint, LineBreakpoint(u"b.py", Location(7), u"x"));
    EXPECT_NE(breakpoint, LineBreakpoint(u"a.py", Location(8), u"x"));
    EXPECT_NE(breakpoint, LineBreakpoint(u"a.py", Location(7), u""));
    EXPECT_NE(breakpoint, LineBreakpoint(u"a.py", Location(7)));
}

}  // namespace
}  // namespace YorWorks::lxe
