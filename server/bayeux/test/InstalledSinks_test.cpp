#include "server/bayeux/InstalledSinks.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace server::bayeux {
namespace {

using ::testing::TestWithParam;
using ::testing::Values;

struct HistoryRow {
    /// By client: "a+" installs, "a-" reverts, "a!" is forgotten. "*+" asks for those of r22a0.
    const char* history;
    /// The client whose sinks are in force then; "" when none's are.
    const char* inForce;
};

void PrintTo(const HistoryRow& row, std::ostream* out) {
    *out << row.history;
}

class SinksInForce : public TestWithParam<HistoryRow> {};

TEST_P(SinksInForce, FollowTheRequests) {
    InstalledSinks sinks;
    std::istringstream history(GetParam().history);
    for (std::string step; history >> step;) {
        const std::string client = step.substr(0, 1);
        switch (step[1]) {
            case '+':
                if (client == "*") {
                    sinks.requestedShared();
                    break;
                }
                sinks.requested(client, R"({"requestID":"s"})");
                break;
            case '-':
                sinks.requested(client, InstalledSinks::revertRequest("s"));
                break;
            default:
                sinks.forget(client);
        }
    }
    EXPECT_EQ(sinks.inForce().value_or(""), GetParam().inForce);
}

INSTANTIATE_TEST_SUITE_P(OneClient, SinksInForce,
                         Values(HistoryRow{"", ""}, HistoryRow{"a+", "a"}, HistoryRow{"a+ a-", ""},
                                HistoryRow{"a+ a+ a-", ""}, HistoryRow{"a+ a- a+", "a"},
                                // A revert of nothing installs.
                                HistoryRow{"a-", "a"}, HistoryRow{"a- a-", ""}, HistoryRow{"a+ a- a-", "a"}));

INSTANTIATE_TEST_SUITE_P(SeveralClients, SinksInForce,
                         Values(HistoryRow{"a+ b+", "b"}, HistoryRow{"a+ b+ a+", "a"},
                                HistoryRow{"a+ b+ b-", "a"}, HistoryRow{"a+ b+ b- a-", ""},
                                // A revert undoes also what another installed since.
                                HistoryRow{"a+ b+ a-", ""}, HistoryRow{"a+ b+ c+ b-", "a"},
                                HistoryRow{"a+ b+ a- b+", "b"},
                                // Back to sinks of one that has reverted since.
                                HistoryRow{"a+ b+ a- b-", ""}, HistoryRow{"a+ b+ a- a+ a-", ""}));

INSTANTIATE_TEST_SUITE_P(ClientsThatAreGone, SinksInForce,
                         Values(HistoryRow{"a!", ""}, HistoryRow{"a+ a!", ""}, HistoryRow{"a+ a! a-", "a"},
                                HistoryRow{"a+ b+ a!", "b"}, HistoryRow{"a+ b+ b!", "a"},
                                HistoryRow{"a+ b+ a! b-", ""}, HistoryRow{"a+ b+ c+ b! c-", "a"},
                                HistoryRow{"a+ b+ a- b+ a+ b! a-", ""}));

INSTANTIATE_TEST_SUITE_P(SharedOnes, SinksInForce,
                         Values(HistoryRow{"*+", ""}, HistoryRow{"a+ *+", ""}, HistoryRow{"a+ *+ a+", "a"},
                                HistoryRow{"*+ a+", "a"}, HistoryRow{"*+ a+ a-", ""},
                                HistoryRow{"a+ *+ b+ b-", ""}, HistoryRow{"a+ *+ a!", ""},
                                // What was there before the first install.
                                HistoryRow{"a+ b+ *+ b-", "a"}));

struct ShapeRow {
    const char* request;
    bool isRevert;
};

void PrintTo(const ShapeRow& row, std::ostream* out) {
    *out << row.request;
}

class SinksRequest : public TestWithParam<ShapeRow> {};

TEST_P(SinksRequest, RevertsOrInstalls) {
    InstalledSinks sinks;
    sinks.requested("a", "{}");
    sinks.requested("a", GetParam().request);
    EXPECT_EQ(sinks.inForce().has_value(), !GetParam().isRevert);
}

INSTANTIATE_TEST_SUITE_P(
    WithBothTraitsNull, SinksRequest,
    Values(ShapeRow{R"({"outSinkTraits":null,"errSinkTraits":null})", true},
           ShapeRow{R"({ "errSinkTraits" : null , "x" : 1e999, "outSinkTraits" : null })", true},
           ShapeRow{R"({"\u006futSinkTraits":null,"errSinkTraits":null})", true},
           ShapeRow{R"({"outSinkTraits":null,"outSinkTraits":{},"errSinkTraits":null})", true}));

INSTANTIATE_TEST_SUITE_P(
    WithOtherTraits, SinksRequest,
    Values(ShapeRow{R"({"requestID":"s"})", false}, ShapeRow{R"({"outSinkTraits":null})", false},
           ShapeRow{R"({"errSinkTraits":null})", false},
           ShapeRow{R"({"outSinkTraits":{},"errSinkTraits":null})", false},
           ShapeRow{R"({"outSinkTraits":null,"errSinkTraits":{}})", false},
           ShapeRow{R"({"outSinkTraits":"null","errSinkTraits":null})", false},
           ShapeRow{R"({"outSinkTraits":null,"errSinkTraits":[null]})", false},
           ShapeRow{R"({"outSinkTraits":{},"outSinkTraits":null,"errSinkTraits":null})", false},
           ShapeRow{R"({"x":{"outSinkTraits":null,"errSinkTraits":null}})", false}));

}  // namespace
}  // namespace server::bayeux
