#include "common/repairCommand.hpp"

#include "cmddistributor/RuntimeException.hpp"

#include <gtest/gtest.h>

namespace yvm::JSClient {
namespace {

using foundation::json::ParseResult;

std::string repair(int code, const std::string& text, std::size_t offset) {
    return repairCommand(
        foundation::json::ParserException(static_cast<ParseResult>(code), "description", text, offset), text);
}

TEST(RepairCommand, ABrokenUnicodeEscapeLosesItsByte) {
    EXPECT_EQ(repair(5, R"("\u")", 1), R"("u")");
}

TEST(RepairCommand, AMissingStringGainsAQuote) {
    EXPECT_EQ(repair(8, "{a", 1), "{\"a");
}

TEST(RepairCommand, AMissingColonIsInserted) {
    EXPECT_EQ(repair(18, R"({"a" 1)", 5), R"({"a" :1)");
}

TEST(RepairCommand, AnEarlyEndLosesItsByte) {
    EXPECT_EQ(repair(19, "abc", 1), "ac");
}

TEST(RepairCommand, DeletingAtTheEndDeletesNothing) {
    EXPECT_EQ(repair(19, "{", 1), "{");
    EXPECT_EQ(repair(5, "{", 1), "{");
    EXPECT_EQ(repair(19, "", 0), "");
}

TEST(RepairCommand, EveryOtherCodeIsRefused) {
    for (int code = 0; code <= 20; ++code) {
        if (code == 5 || code == 8 || code == 18 || code == 19) {
            continue;
        }
        try {
            repair(code, "{}", 1);
            ADD_FAILURE() << "code " << code << " was repaired";
        } catch (const cmddistributor::RuntimeException& exception) {
            EXPECT_EQ(exception.GetUnicodeMessageTxt(), u"Invalid Command. Unable to parse command.");
            EXPECT_EQ(static_cast<int>(exception.getExecutionStatus()), 5);
            EXPECT_EQ(exception.GetID(), "");
            EXPECT_TRUE(exception.getStackFrames().empty());
            EXPECT_TRUE(exception.getCauses().empty());
        }
    }
}

}  // namespace
}  // namespace yvm::JSClient
