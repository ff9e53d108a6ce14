#include "cppmicroservices/LDAPFilter.hpp"

#include "cppmicroservices/LDAPProp.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using cppmicroservices::LDAPFilter;
using cppmicroservices::LDAPProp;
using cppmicroservices::ServiceProperties;
using foundation::json::Array;

namespace {

ServiceProperties engine() {
    return {{"objectClass", Array{"yvm::YVM", "other::Interface"}},
            {"user-yvm", true},
            {"quiet", false},
            {"name", "Main Engine"},
            {"size", 12},
            {"load", 0.5},
            {"large", std::uint64_t{1} << 40},
            {"odd", "a(b)*c\\d"},
            {"none", foundation::json::Null()},
            {"ports", Array{80, 443}}};
}

bool matches(const std::string& filter) {
    return LDAPFilter(filter).Match(engine());
}

std::string errorOf(const std::string& filter) {
    try {
        LDAPFilter{filter};
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "no error";
}

}  // namespace

TEST(LDAPFilter, TheFilterOfTheEngineMatchesOnlyAUsersEngine) {
    const LDAPFilter filter("(&(objectClass=yvm::YVM)(user-yvm=true))");
    EXPECT_TRUE(filter.Match(engine()));
    auto other = engine();
    other["user-yvm"] = false;
    EXPECT_FALSE(filter.Match(other));
    other["user-yvm"] = "true";
    EXPECT_TRUE(filter.Match(other));
    other.erase("user-yvm");
    EXPECT_FALSE(filter.Match(other));
}

TEST(LDAPFilter, AnEmptyOneMatchesEverything) {
    EXPECT_TRUE(LDAPFilter().Match({}));
    EXPECT_TRUE(LDAPFilter("").Match(engine()));
    EXPECT_FALSE(LDAPFilter());
    EXPECT_TRUE(LDAPFilter("(a=b)"));
}

TEST(LDAPFilter, GivesItsTextBack) {
    EXPECT_EQ(LDAPFilter("( a = b )").ToString(), "( a = b )");
}

TEST(LDAPFilter, MatchesByThisTable) {
    const std::vector<std::pair<std::string, bool>> cases = {
        // Equality, by kind of property.
        {"(name=Main Engine)", true},
        {"(name=main engine)", false},
        {"(name=Main)", false},
        {"(NAME=Main Engine)", true},
        {"(ObjectClass=yvm::YVM)", true},
        {"(objectClass=other::Interface)", true},
        {"(objectClass=yvm)", false},
        {"(user-yvm=TRUE)", true},
        {"(user-yvm=false)", false},
        {"(user-yvm=1)", false},
        {"(quiet=false)", true},
        {"(size=12)", true},
        {"(size=12.0)", true},
        {"(size=13)", false},
        {"(size=twelve)", false},
        {"(size=)", false},
        {"(load=0.5)", true},
        {"(large=1099511627776)", true},
        {"(ports=443)", true},
        {"(ports=444)", false},
        {"(absent=x)", false},
        {"(none=null)", false},
        // Blanks around names go, those of values stay.
        {" ( name =Main Engine) ", true},
        {"(name= Main Engine)", false},
        {"(name=Main Engine )", false},
        // Presence.
        {"(name=*)", true},
        {"(none=*)", true},
        {"(quiet=*)", true},
        {"(absent=*)", false},
        // Wildcards.
        {"(name=Main*)", true},
        {"(name=*Engine)", true},
        {"(name=M*n E*e)", true},
        {"(name=*in*gi*)", true},
        {"(name=**)", true},
        {"(name=Main Engine*)", true},
        {"(name=*Main Engine*)", true},
        {"(name=Main Engine*e)", false},
        {"(name=*x*)", false},
        {"(name=*gi*in*)", false},
        {"(objectClass=*::YVM)", true},
        {"(size=1*)", false},
        {"(user-yvm=t*)", false},
        // Escapes.
        {"(odd=a\\(b\\)\\*c\\\\d)", true},
        {"(odd=a\\(b\\)*d)", true},
        {"(odd=*\\*c*)", true},
        {"(name=\\M\\a\\in Engine)", true},
        // Order.
        {"(size>=12)", true},
        {"(size>=12.5)", false},
        {"(size<=12)", true},
        {"(size<=11)", false},
        {"(name>=Main)", true},
        {"(name<=Main)", false},
        {"(user-yvm>=true)", false},
        {"(ports>=100)", true},
        {"(ports>=1000)", false},
        // Approximation; an asterisk is plain here.
        {"(name~=mainengine)", true},
        {"(name~= M A I N engine)", true},
        {"(name~=main)", false},
        {"(name~=main*)", false},
        {"(size~=12)", true},
        {"(user-yvm~=True)", true},
        // And, or, not.
        {"(&(size=12)(quiet=false))", true},
        {"(&(size=12)(quiet=true))", false},
        {"(&(size=12))", true},
        {"(|(size=1)(quiet=false))", true},
        {"(|(size=1)(quiet=true))", false},
        {"(!(size=1))", true},
        {"(!(size=12))", false},
        {"(!(absent=x))", true},
        {"(& (size=12) (! (| (quiet=true) (load=1) ) ) )", true},
    };
    for (const auto& [filter, expected] : cases) {
        EXPECT_EQ(matches(filter), expected) << filter;
    }
}

TEST(LDAPFilter, AnEmptyValueMatchesOnlyAnEmptyText) {
    EXPECT_TRUE(LDAPFilter("(a=)").Match({{"a", ""}}));
    EXPECT_FALSE(LDAPFilter("(a=)").Match({{"a", "x"}}));
    EXPECT_FALSE(LDAPFilter("(a=)").Match({{"b", ""}}));
}

TEST(LDAPFilter, ANulInAValueIsPlainText) {
    const std::string value("a\0b", 3);
    EXPECT_TRUE(LDAPFilter(LDAPProp("x") == value).Match({{"x", value}}));
    EXPECT_FALSE(LDAPFilter(LDAPProp("x") == value).Match({{"x", "a"}}));
}

TEST(LDAPFilter, ABadOneIsRefusedWithPlaceAndReason) {
    EXPECT_EQ(errorOf("a=b"), "bad filter \"a=b\" at offset 0: '(' is expected");
    EXPECT_EQ(errorOf("()"), "bad filter \"()\" at offset 1: a property's name is expected");
    EXPECT_EQ(errorOf("(=b)"), "bad filter \"(=b)\" at offset 1: a property's name is expected");
    EXPECT_EQ(errorOf("(a)"), "bad filter \"(a)\" at offset 2: one of = ~= >= <= is expected");
    EXPECT_EQ(errorOf("(a>b)"), "bad filter \"(a>b)\" at offset 3: one of = ~= >= <= is expected");
    EXPECT_EQ(errorOf("(a=b"), "bad filter \"(a=b\" at offset 4: ')' is missing");
    EXPECT_EQ(errorOf("(a=b\\"),
              "bad filter \"(a=b\\\" at offset 5: a character is expected behind the backslash");
    EXPECT_EQ(errorOf("(a=(b)"),
              "bad filter \"(a=(b)\" at offset 3: '(' must be escaped by a backslash in a value");
    EXPECT_EQ(errorOf("(a=b))"), "bad filter \"(a=b))\" at offset 5: the text goes on behind the filter");
    EXPECT_EQ(errorOf("(&)"), "bad filter \"(&)\" at offset 2: '(' is expected");
    EXPECT_EQ(errorOf("(!(a=b)(c=d))"), "bad filter \"(!(a=b)(c=d))\" at offset 7: ')' is expected");
    EXPECT_EQ(errorOf("(&(a=b)"), "bad filter \"(&(a=b)\" at offset 7: ')' is expected");
}

TEST(LDAPProp, MakesASingleEquality) {
    const LDAPFilter filter(LDAPProp("eventTag") == "ylutil::prompt::PromptEvent");
    EXPECT_EQ(filter.ToString(), "(eventTag=ylutil::prompt::PromptEvent)");
}

TEST(LDAPProp, EscapesTheValueSoThatItIsComparedAsItStands) {
    for (const std::string value : {"*", "(", ")", "\\", "a(b)*c\\d", "x)(y=*", " a ", ""}) {
        const LDAPFilter filter(LDAPProp("eventTag") == value);
        EXPECT_TRUE(filter.Match({{"eventTag", value}})) << value;
        EXPECT_FALSE(filter.Match({{"eventTag", "anything"}})) << value;
        EXPECT_FALSE(filter.Match({})) << value;
    }
    EXPECT_EQ(std::string(LDAPProp("p") == "a(b)*c\\d"), "(p=a\\(b\\)\\*c\\\\d)");
}
