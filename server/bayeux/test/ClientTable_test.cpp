#include "server/bayeux/ClientTable.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

class ClientTableTest : public ::testing::Test {
  protected:
    ClientTable clients;
};

TEST_F(ClientTableTest, AnIdentifierHasOneOwner) {
    EXPECT_TRUE(clients.reserve("fresh", 1));
    EXPECT_TRUE(clients.reserve("fresh", 1));
    EXPECT_FALSE(clients.reserve("fresh", 2));
    EXPECT_EQ(clients.ownerOf("fresh"), 1U);
    EXPECT_EQ(clients.size(), 1U);
}

TEST_F(ClientTableTest, TheClientsOfASessionAreThoseWithoutADetachOnItsWay) {
    clients.reserve("attaching", 1);
    clients.reserve("attached", 1);
    clients.attachAnswered("attached", true);
    clients.reserve("leaving", 1);
    clients.startDetach("leaving", 1);
    clients.reserve("other", 2);
    EXPECT_EQ(clients.clientsOf(1), (std::vector<std::string>{"attached", "attaching"}));
    clients.reserve("leaving", 1);
    EXPECT_EQ(clients.clientsOf(1), (std::vector<std::string>{"attached", "attaching", "leaving"}));
}

TEST_F(ClientTableTest, ARefusedSecondAttachLeavesTheFirstInPlace) {
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.attachAnswered("fresh", true));
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.attachAnswered("fresh", false));
    EXPECT_EQ(clients.ownerOf("fresh"), 1U);
}

TEST_F(ClientTableTest, AVersionIsThatOfTheFirstAnswerSinceTheDetach) {
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.isAttached("fresh", ""));
    clients.attachAnswered("fresh", true, "r22a0");
    clients.reserve("fresh", 1);
    clients.attachAnswered("fresh", true, "r24a0");
    EXPECT_TRUE(clients.isAttached("fresh", "r22a0"));
    EXPECT_FALSE(clients.isAttached("fresh", "r24a0"));
    EXPECT_TRUE(clients.hasAttached(1, "r22a0"));
    EXPECT_FALSE(clients.hasAttached(2, "r22a0"));
    clients.startDetach("fresh", 1);
    EXPECT_FALSE(clients.isAttached("fresh", "r22a0"));
    EXPECT_FALSE(clients.hasAttached(1, "r22a0"));
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.isAttached("fresh", "r22a0"));
    clients.attachAnswered("fresh", true, "r24a0");
    EXPECT_TRUE(clients.isAttached("fresh", "r24a0"));
}

TEST_F(ClientTableTest, TheEndOfAnOldDetachLeavesANewAttachInPlace) {
    clients.reserve("fresh", 1);
    clients.attachAnswered("fresh", true);
    const auto detach = clients.startDetach("fresh", 1);
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.finishDetach("fresh", detach));
    EXPECT_FALSE(clients.isDetaching("fresh"));
    const auto second = clients.startDetach("fresh", 1);
    EXPECT_TRUE(clients.finishDetach("fresh", second));
    EXPECT_EQ(clients.ownerOf("fresh"), std::nullopt);
}

TEST_F(ClientTableTest, AnAnswerToAnAttachBeforeTheDetachFreesNoNewAttach) {
    clients.reserve("fresh", 1);
    clients.startDetach("fresh", 1);
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.attachAnswered("fresh", false));
    EXPECT_EQ(clients.ownerOf("fresh"), 1U);
    EXPECT_TRUE(clients.attachAnswered("fresh", false));
}

TEST_F(ClientTableTest, AnAttachThatADetachEndedIsNotWaitedFor) {
    clients.reserve("fresh", 1);
    const auto detach = clients.startDetach("fresh", 1);
    clients.reserve("fresh", 1);
    EXPECT_FALSE(clients.finishDetach("fresh", detach));
    EXPECT_TRUE(clients.attachAnswered("fresh", false));
}

}  // namespace
}  // namespace server::bayeux
