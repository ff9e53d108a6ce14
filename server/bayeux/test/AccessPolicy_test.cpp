#include "server/bayeux/AccessPolicy.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace server::bayeux {
namespace {

constexpr const char* kAllowed = "allowed";
constexpr const char* kNotOwn = "403::the channel belongs to no client of this session";
constexpr const char* kNoRequest = "403::clients publish on request channels only";
constexpr const char* kDetaching = "403::the client is being detached";
constexpr const char* kInUse = "403::the requestID is in use by another session";
constexpr const char* kForeign = "403::the client belongs to another session";
constexpr const char* kNoSinks =
    "403::the channel takes a client of this session that is attached with r22a0";
constexpr const char* kForm =
    "400::the requestID of an attach needs 1 to 64 letters and digits and - or _ and is not attach or detach "
    "or "
    "sinks";

/// What session 1 asks for, and what it is told.
struct Row {
    std::string asked;
    std::string verdict;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.asked << " -> " << row.verdict;
}

/// Session 1 has the clients "own" and "leaving", which is being detached; session 2 has "other".
class AccessPolicyTest : public ::testing::TestWithParam<Row> {
  protected:
    AccessPolicyTest() {
        clients.reserve("own", 1);
        clients.reserve("leaving", 1);
        clients.startDetach("leaving", 1);
        clients.reserve("other", 2);
    }

    static std::string verdict(const std::optional<Refusal>& refusal) {
        return refusal ? errorField(*refusal) : kAllowed;
    }

    ClientTable clients;
    AccessPolicy policy{clients};
};

using ::testing::Values;

// --- publish on --------------------------------------------------------------------------------------------

class MayPublish : public AccessPolicyTest {};

TEST_P(MayPublish, Decides) {
    EXPECT_EQ(verdict(policy.mayPublish(1, GetParam().asked)), GetParam().verdict);
}

INSTANTIATE_TEST_SUITE_P(AttachAndDetach, MayPublish,
                         Values(Row{"/yvm/attach/request", kAllowed}, Row{"/yvm/detach/request", kAllowed}));

INSTANTIATE_TEST_SUITE_P(RequestsBelowOwnPrefixes, MayPublish,
                         Values(Row{"/yvm/own/eval/request", kAllowed},
                                Row{"/yvm/own/feval/request", kAllowed},
                                Row{"/yvm/own/a/b/request", kAllowed},
                                Row{"/yvm/own/request/request", kAllowed}));

INSTANTIATE_TEST_SUITE_P(RequestsOfAClientThatIsBeingDetached, MayPublish,
                         Values(Row{"/yvm/leaving/eval/request", kDetaching},
                                Row{"/yvm/leaving/a/b/request", kDetaching}));

INSTANTIATE_TEST_SUITE_P(SinksWithoutAClientOfR22a0, MayPublish,
                         Values(Row{"/yvm/sinks/set", kNoSinks}, Row{"/yvm/sinks/response", kNoRequest},
                                Row{"/yvm/sinks/set/request", kNotOwn}));

INSTANTIATE_TEST_SUITE_P(
    NowhereElse, MayPublish,
    Values(Row{"/yvm/other/eval/request", kNotOwn}, Row{"/yvm/nobody/eval/request", kNotOwn},
           Row{"/yvm/OWN/eval/request", kNotOwn}, Row{"/YVM/own/eval/request", kNotOwn},
           Row{"/yvm/own/request", kNotOwn}, Row{"/yvm/request", kNotOwn}, Row{"/request", kNotOwn},
           Row{"/yvm/attach/x/request", kNotOwn}, Row{"/yvm/detach/x/request", kNotOwn},
           Row{"/other/own/eval/request", kNotOwn}, Row{"/service/own/request", kNotOwn},
           Row{"/meta/request", kNotOwn}, Row{"/yvm/own", kNoRequest}, Row{"/yvm/own/eval", kNoRequest},
           Row{"/yvm/own/eval/response", kNoRequest}, Row{"/yvm/own/eval/Request", kNoRequest},
           Row{"/yvm/own/eval/xrequest", kNoRequest}, Row{"/yvm/own/text/output", kNoRequest},
           Row{"/yvm/attach/response", kNoRequest}, Row{"/yvm/detach/response", kNoRequest},
           Row{"/yvm/detach/marker", kNoRequest}, Row{"/service/x", kNoRequest}));

INSTANTIATE_TEST_SUITE_P(
    NoChannelNames, MayPublish,
    Values(Row{"/yvm/own/*", "405::no valid channel name - /yvm/own/*"},
           Row{"/yvm/own/**", "405::no valid channel name - /yvm/own/**"},
           Row{"/yvm/own//request", "405::no valid channel name - /yvm/own//request"},
           Row{"/yvm/own/eval/request/", "405::no valid channel name - /yvm/own/eval/request/"},
           Row{"/yvm/other/../own/eval/request",
               "405::no valid channel name - /yvm/other/../own/eval/request"},
           Row{"yvm/own/eval/request", "405::no valid channel name - yvm/own/eval/request"},
           Row{"/yvm/own/ev al/request", "405::no valid channel name - /yvm/own/ev al/request"},
           Row{"no:channel", "405::no valid channel name - no_channel"},
           Row{"", "405::no valid channel name - "}));

// --- subscribe to ------------------------------------------------------------------------------------------

class MaySubscribe : public AccessPolicyTest {};

TEST_P(MaySubscribe, Decides) {
    EXPECT_EQ(verdict(policy.maySubscribe(1, GetParam().asked)), GetParam().verdict);
}

INSTANTIATE_TEST_SUITE_P(AttachAndDetach, MaySubscribe,
                         Values(Row{"/yvm/attach/response", kAllowed},
                                Row{"/yvm/detach/response", kAllowed}));

INSTANTIATE_TEST_SUITE_P(BelowOwnPrefixes, MaySubscribe,
                         Values(Row{"/yvm/own/**", kAllowed}, Row{"/yvm/own/*", kAllowed},
                                Row{"/yvm/own/text/*", kAllowed}, Row{"/yvm/own/text/**", kAllowed},
                                Row{"/yvm/own/eval/response", kAllowed},
                                // Allowed, and never delivered.
                                Row{"/yvm/own/eval/request", kAllowed},
                                Row{"/yvm/own/connection/stillAlive", kAllowed},
                                Row{"/yvm/leaving/**", kAllowed}));

INSTANTIATE_TEST_SUITE_P(SinksWithoutAClientOfR22a0, MaySubscribe,
                         Values(Row{"/yvm/sinks/response", kNoSinks}, Row{"/yvm/sinks/*", kNotOwn},
                                Row{"/yvm/sinks/**", kNotOwn}, Row{"/yvm/sinks/set", kNotOwn}));

INSTANTIATE_TEST_SUITE_P(ServiceChannels, MaySubscribe,
                         Values(Row{"/service/anything", kAllowed}, Row{"/service/**", kAllowed}));

INSTANTIATE_TEST_SUITE_P(NothingElse, MaySubscribe,
                         Values(Row{"/yvm/*", kNotOwn}, Row{"/yvm/**", kNotOwn}, Row{"/*", kNotOwn},
                                Row{"/**", kNotOwn}, Row{"/meta/**", kNotOwn}, Row{"/meta/*", kNotOwn},
                                Row{"/meta/connect", kNotOwn}, Row{"/yvm/own", kNotOwn},
                                Row{"/yvm/other/**", kNotOwn}, Row{"/yvm/other/eval/response", kNotOwn},
                                Row{"/yvm/nobody/**", kNotOwn}, Row{"/yvm/attach/request", kNotOwn},
                                Row{"/yvm/detach/request", kNotOwn}, Row{"/yvm/attach/*", kNotOwn},
                                Row{"/yvm/attach/**", kNotOwn}, Row{"/yvm/detach/*", kNotOwn},
                                Row{"/yvm/detach/marker", kNotOwn}, Row{"/other/own/**", kNotOwn}));

INSTANTIATE_TEST_SUITE_P(NoChannelNames, MaySubscribe,
                         Values(Row{"/yvm/*/eval", "405::no valid channel name - /yvm/*/eval"},
                                Row{"/yvm/**/own", "405::no valid channel name - /yvm/**/own"},
                                Row{"/yvm/own/***", "405::no valid channel name - /yvm/own/***"},
                                Row{"/yvm/own*", "405::no valid channel name - /yvm/own*"},
                                Row{"/yvm/own/", "405::no valid channel name - /yvm/own/"},
                                Row{"**", "405::no valid channel name - **"},
                                Row{"", "405::no valid channel name - "}));

// --- the sinks of r22a0 ------------------------------------------------------------------------------------

/// What happened to the clients of session 1, and whether it may then use the sinks.
struct SinksRow {
    const char* name;
    std::function<void(ClientTable&)> happened;
    bool isAllowed;
};

void PrintTo(const SinksRow& row, std::ostream* out) {
    *out << row.name;
}

class SharedSinks : public ::testing::TestWithParam<SinksRow> {};

TEST_P(SharedSinks, TakeAClientThatIsAttachedWithR22a0) {
    ClientTable clients;
    const AccessPolicy policy(clients);
    GetParam().happened(clients);
    const auto verdict = [](const std::optional<Refusal>& refusal) {
        return refusal ? errorField(*refusal) : kAllowed;
    };
    const char* const expected = GetParam().isAllowed ? kAllowed : kNoSinks;
    EXPECT_EQ(verdict(policy.mayPublish(1, "/yvm/sinks/set")), expected);
    EXPECT_EQ(verdict(policy.maySubscribe(1, "/yvm/sinks/response")), expected);
    // No pattern reaches them, and requests are nobody's to read.
    EXPECT_EQ(verdict(policy.maySubscribe(1, "/yvm/sinks/*")), kNotOwn);
    EXPECT_EQ(verdict(policy.maySubscribe(1, "/yvm/sinks/**")), kNotOwn);
    EXPECT_EQ(verdict(policy.maySubscribe(1, "/yvm/sinks/set")), kNotOwn);
    EXPECT_EQ(verdict(policy.mayPublish(1, "/yvm/sinks/response")), kNoRequest);
}

void attachWith(ClientTable& clients, const char* identifier, const char* apiVersion,
                SessionNumber session = 1) {
    clients.reserve(identifier, session);
    clients.attachAnswered(identifier, true, apiVersion);
}

INSTANTIATE_TEST_SUITE_P(
    WithAClientThat, SharedSinks,
    Values(SinksRow{"IsNotThere", [](ClientTable&) {}, false},
           SinksRow{"IsToBeAttached", [](ClientTable& clients) { clients.reserve("a", 1); }, false},
           SinksRow{"IsAttached", [](ClientTable& clients) { attachWith(clients, "a", "r22a0"); }, true},
           SinksRow{"SpeaksR24a0", [](ClientTable& clients) { attachWith(clients, "a", "r24a0"); }, false},
           SinksRow{"IsOneOfSeveral",
                    [](ClientTable& clients) {
                        attachWith(clients, "a", "r24a0");
                        attachWith(clients, "b", "r22a0");
                        clients.reserve("c", 1);
                    },
                    true},
           SinksRow{"BelongsToAnotherSession",
                    [](ClientTable& clients) {
                        attachWith(clients, "a", "r24a0");
                        attachWith(clients, "b", "r22a0", 2);
                    },
                    false},
           SinksRow{"IsBeingDetached",
                    [](ClientTable& clients) {
                        attachWith(clients, "a", "r22a0");
                        clients.startDetach("a", 1);
                    },
                    false},
           SinksRow{"IsAttachedAgainWithAnotherVersion",
                    [](ClientTable& clients) {
                        attachWith(clients, "a", "r22a0");
                        attachWith(clients, "a", "r24a0");
                    },
                    true},
           SinksRow{"WasDetachedAndIsToBeAttachedAnew",
                    [](ClientTable& clients) {
                        attachWith(clients, "a", "r22a0");
                        clients.startDetach("a", 1);
                        clients.reserve("a", 1);
                    },
                    false},
           SinksRow{"WasDetachedAndAttachedAnewWithAnotherVersion",
                    [](ClientTable& clients) {
                        attachWith(clients, "a", "r22a0");
                        clients.startDetach("a", 1);
                        attachWith(clients, "a", "r24a0");
                    },
                    false}),
    [](const auto& row) { return row.param.name; });

// --- identifiers -------------------------------------------------------------------------------------------

class MayAttach : public AccessPolicyTest {};

TEST_P(MayAttach, Decides) {
    EXPECT_EQ(verdict(policy.mayAttach(1, GetParam().asked)), GetParam().verdict);
}

INSTANTIATE_TEST_SUITE_P(FreeOrOwn, MayAttach,
                         Values(Row{"fresh", kAllowed}, Row{"own", kAllowed}, Row{"leaving", kAllowed},
                                Row{"A-z_09", kAllowed}, Row{"x", kAllowed}, Row{"-", kAllowed},
                                Row{std::string(64, 'x'), kAllowed}, Row{"Attach", kAllowed},
                                Row{"attach1", kAllowed}));

INSTANTIATE_TEST_SUITE_P(OfAnotherSession, MayAttach, Values(Row{"other", kInUse}));

INSTANTIATE_TEST_SUITE_P(ReservedNames, MayAttach,
                         Values(Row{"attach", kForm}, Row{"detach", kForm}, Row{"sinks", kForm}));

INSTANTIATE_TEST_SUITE_P(NotInDueForm, MayAttach,
                         Values(Row{"", kForm}, Row{std::string(65, 'x'), kForm}, Row{"a b", kForm},
                                Row{"a/b", kForm}, Row{"*", kForm}, Row{"a.b", kForm}, Row{"a~", kForm},
                                Row{"\xc3\xa4", kForm}, Row{std::string("a\0", 2), kForm}));

class MayDetach : public AccessPolicyTest {};

TEST_P(MayDetach, Decides) {
    EXPECT_EQ(verdict(policy.mayDetach(1, GetParam().asked)), GetParam().verdict);
}

INSTANTIATE_TEST_SUITE_P(Own, MayDetach, Values(Row{"own", kAllowed}, Row{"leaving", kAllowed}));

INSTANTIATE_TEST_SUITE_P(ThatNobodyHas, MayDetach,
                         Values(Row{"nobody", kAllowed}, Row{"", kAllowed}, Row{"sinks", kAllowed},
                                Row{"a b", kAllowed}));

INSTANTIATE_TEST_SUITE_P(OfAnotherSession, MayDetach, Values(Row{"other", kForeign}));

/// What happened to an identifier of session 1, and whether session 2 may then attach and detach it.
struct LifeRow {
    const char* name;
    std::function<void(ClientTable&)> happened;
    bool isFree;
};

void PrintTo(const LifeRow& row, std::ostream* out) {
    *out << row.name;
}

class IdentifierLife : public ::testing::TestWithParam<LifeRow> {};

TEST_P(IdentifierLife, IsTakenFromTheAttachToItsEnd) {
    ClientTable clients;
    const AccessPolicy policy(clients);
    GetParam().happened(clients);
    const auto verdict = [](const std::optional<Refusal>& refusal) {
        return refusal ? errorField(*refusal) : kAllowed;
    };
    EXPECT_EQ(verdict(policy.mayAttach(1, "fresh")), kAllowed);
    EXPECT_EQ(verdict(policy.mayDetach(1, "fresh")), kAllowed);
    EXPECT_EQ(verdict(policy.mayAttach(2, "fresh")), GetParam().isFree ? kAllowed : kInUse);
    EXPECT_EQ(verdict(policy.mayDetach(2, "fresh")), GetParam().isFree ? kAllowed : kForeign);
}

void reserve(ClientTable& clients) {
    clients.reserve("fresh", 1);
}

void attach(ClientTable& clients) {
    reserve(clients);
    clients.attachAnswered("fresh", true);
}

INSTANTIATE_TEST_SUITE_P(AfterIt, IdentifierLife,
                         Values(LifeRow{"HasNotBeenHeardOf", [](ClientTable&) {}, true},
                                LifeRow{"IsToBeAttached", reserve, false},
                                LifeRow{"IsAttached", attach, false},
                                LifeRow{"WasRefused",
                                        [](ClientTable& clients) {
                                            reserve(clients);
                                            clients.attachAnswered("fresh", false);
                                        },
                                        true},
                                LifeRow{"IsAttachedAndASecondAttachWasRefused",
                                        [](ClientTable& clients) {
                                            attach(clients);
                                            reserve(clients);
                                            clients.attachAnswered("fresh", false);
                                        },
                                        false},
                                LifeRow{"IsBeingDetached",
                                        [](ClientTable& clients) {
                                            attach(clients);
                                            clients.startDetach("fresh", 1);
                                        },
                                        false},
                                LifeRow{"WasDetached",
                                        [](ClientTable& clients) {
                                            attach(clients);
                                            clients.finishDetach("fresh", clients.startDetach("fresh", 1));
                                        },
                                        true},
                                LifeRow{"WasDetachedBeforeTheAnswerToItsAttach",
                                        [](ClientTable& clients) {
                                            reserve(clients);
                                            clients.finishDetach("fresh", clients.startDetach("fresh", 1));
                                        },
                                        true},
                                LifeRow{"WasAttachedAnewBehindADetach",
                                        [](ClientTable& clients) {
                                            attach(clients);
                                            const auto detach = clients.startDetach("fresh", 1);
                                            reserve(clients);
                                            clients.finishDetach("fresh", detach);
                                        },
                                        false},
                                LifeRow{"WasNamedByADetachWithoutBeingAttached",
                                        [](ClientTable& clients) { clients.startDetach("fresh", 1); },
                                        false}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace server::bayeux
