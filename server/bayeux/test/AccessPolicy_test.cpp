#include "server/bayeux/AccessPolicy.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

/// Session 1 has the clients "own" and "leaving", which is being detached; session 2 has "other".
class AccessPolicyTest : public ::testing::Test {
  protected:
    AccessPolicyTest() {
        clients.reserve("own", 1);
        clients.reserve("leaving", 1);
        clients.startDetach("leaving", 1);
        clients.reserve("other", 2);
    }

    static std::string verdict(const std::optional<Refusal>& refusal) {
        return refusal ? errorField(*refusal) : "allowed";
    }

    ClientTable clients;
    AccessPolicy policy{clients};
};

constexpr const char* kNotOwn = "403::the channel belongs to no client of this session";
constexpr const char* kNoRequest = "403::clients publish on request channels only";

TEST_F(AccessPolicyTest, DecidesWhereASessionMayPublish) {
    const std::pair<const char*, const char*> table[] = {
        {"/yvm/attach/request", "allowed"},
        {"/yvm/detach/request", "allowed"},
        {"/yvm/own/eval/request", "allowed"},
        {"/yvm/own/a/b/request", "allowed"},
        {"/yvm/own/request", kNotOwn},
        {"/yvm/own/eval/response", kNoRequest},
        {"/yvm/own/text/output", kNoRequest},
        {"/yvm/leaving/eval/request", "403::the client is being detached"},
        {"/yvm/other/eval/request", kNotOwn},
        {"/yvm/nobody/eval/request", kNotOwn},
        {"/yvm/attach/response", kNoRequest},
        {"/yvm/sinks/set", kNoRequest},
        {"/yvm/attach/x/request", kNotOwn},
        {"/yvm/request", kNotOwn},
        {"/other/own/request", kNotOwn},
        {"/service/request", kNotOwn},
        {"/yvm/own/eval/*", "405::no valid channel name - /yvm/own/eval/*"},
        {"/yvm/own/ev.al/request", "405::no valid channel name - /yvm/own/ev.al/request"},
        {"no:channel", "405::no valid channel name - no_channel"},
    };
    for (const auto& [channel, expected] : table) {
        EXPECT_EQ(verdict(policy.mayPublish(1, channel)), expected) << channel;
    }
}

TEST_F(AccessPolicyTest, DecidesWhatASessionMaySubscribeTo) {
    const std::pair<const char*, const char*> table[] = {
        {"/yvm/attach/response", "allowed"},
        {"/yvm/detach/response", "allowed"},
        {"/yvm/own/**", "allowed"},
        {"/yvm/own/*", "allowed"},
        {"/yvm/own/eval/response", "allowed"},
        {"/yvm/own/text/*", "allowed"},
        {"/yvm/own/connection/stillAlive", "allowed"},
        {"/yvm/leaving/**", "allowed"},
        {"/service/anything", "allowed"},
        {"/yvm/other/**", kNotOwn},
        {"/yvm/other/eval/response", kNotOwn},
        {"/yvm/nobody/**", kNotOwn},
        {"/yvm/own", kNotOwn},
        {"/yvm/*", kNotOwn},
        {"/yvm/**", kNotOwn},
        {"/*", kNotOwn},
        {"/**", kNotOwn},
        {"/meta/**", kNotOwn},
        {"/meta/connect", kNotOwn},
        {"/yvm/attach/request", kNotOwn},
        {"/yvm/attach/*", kNotOwn},
        {"/yvm/detach/marker", kNotOwn},
        {"/yvm/sinks/response", kNotOwn},
        {"/yvm/*/eval", "405::no valid channel name - /yvm/*/eval"},
        {"", "405::no valid channel name - "},
    };
    for (const auto& [channel, expected] : table) {
        EXPECT_EQ(verdict(policy.maySubscribe(1, channel)), expected) << channel;
    }
}

TEST_F(AccessPolicyTest, DecidesWhichIdentifierAnAttachMayTake) {
    EXPECT_EQ(verdict(policy.mayAttach(1, "fresh")), "allowed");
    EXPECT_EQ(verdict(policy.mayAttach(1, "own")), "allowed");
    EXPECT_EQ(verdict(policy.mayAttach(1, "leaving")), "allowed");
    EXPECT_EQ(verdict(policy.mayAttach(1, "other")), "403::the requestID is in use by another session");
    const std::string form =
        "400::the requestID of an attach needs 1 to 64 letters and digits and - or _ and is not attach or "
        "detach or "
        "sinks";
    for (const char* identifier : {"", "a b", "a/b", "sinks"}) {
        EXPECT_EQ(verdict(policy.mayAttach(1, identifier)), form) << identifier;
    }
}

TEST_F(AccessPolicyTest, DecidesWhichClientADetachMayName) {
    EXPECT_EQ(verdict(policy.mayDetach(1, "own")), "allowed");
    EXPECT_EQ(verdict(policy.mayDetach(1, "nobody")), "allowed");
    EXPECT_EQ(verdict(policy.mayDetach(1, "")), "allowed");
    EXPECT_EQ(verdict(policy.mayDetach(1, "other")), "403::the client belongs to another session");
}

TEST_F(AccessPolicyTest, AnIdentifierIsFreeAfterARefusedAttach) {
    clients.reserve("fresh", 1);
    EXPECT_TRUE(clients.attachAnswered("fresh", false));
    EXPECT_EQ(verdict(policy.mayAttach(2, "fresh")), "allowed");
}

TEST_F(AccessPolicyTest, ARefusedSecondAttachLeavesTheFirstInPlace) {
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.attachAnswered("fresh", true));
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.attachAnswered("fresh", false));
    EXPECT_EQ(clients.ownerOf("fresh"), 1U);
}

TEST_F(AccessPolicyTest, TheEndOfAnOldDetachLeavesANewAttachInPlace) {
    const auto detach = clients.startDetach("own", 1);
    clients.reserve("own", 1);
    EXPECT_FALSE(clients.finishDetach("own", detach));
    EXPECT_FALSE(clients.isDetaching("own"));
    const auto second = clients.startDetach("own", 1);
    EXPECT_TRUE(clients.finishDetach("own", second));
    EXPECT_EQ(clients.ownerOf("own"), std::nullopt);
}

TEST_F(AccessPolicyTest, AnAnswerToAnAttachBeforeTheDetachFreesNoNewAttach) {
    clients.reserve("fresh", 1);
    clients.startDetach("fresh", 1);
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.attachAnswered("fresh", false));
    EXPECT_EQ(clients.ownerOf("fresh"), 1U);
    EXPECT_TRUE(clients.attachAnswered("fresh", false));
}

TEST_F(AccessPolicyTest, AnAttachThatADetachEndedIsNotWaitedFor) {
    clients.reserve("fresh", 1);
    const auto detach = clients.startDetach("fresh", 1);
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.finishDetach("fresh", detach));
    EXPECT_TRUE(clients.attachAnswered("fresh", false));
}

}  // namespace
}  // namespace server::bayeux
