#include "server/bayeux/test/BayeuxFixture.hpp"

#include <gmock/gmock.h>

#include <algorithm>

namespace server::bayeux::testing {
namespace {

using connector::common::DataBuffer;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// When sessions end, and that each of their clients is detached once then, in whatever order things happen.
/// What the module answers reaches the server only when a test runs the work queue: until then a detach is on
/// its way.
class SessionLifeTest : public BayeuxFixture {
  protected:
    ~SessionLifeTest() override {
        // It answers on delivery threads.
        module.reset();
    }

    std::string send(const std::shared_ptr<FakeConnection>& from, const std::string& clientId,
                     const std::string& channel, const std::string& fields = "") {
        return exchange(from, request(clientId, channel, fields));
    }

    void attach(const std::string& clientId, const std::string& identifier) {
        publish(connection, clientId, "/yvm/attach/request", R"({"requestID":")" + identifier + "\"}");
    }

    void detach(const std::string& clientId, const std::string& requestID, const std::string& identifier) {
        publish(connection, clientId, "/yvm/detach/request",
                R"({"requestID":")" + requestID + R"(","requestIDtoDetach":")" + identifier + "\"}");
    }

    void disconnect(const std::string& clientId) { send(connection, clientId, "/meta/disconnect"); }

    void pass(milliseconds time) {
        now += time;
        server->advance();
    }

    void expire() { pass(milliseconds(60'001)); }

    /// Waits until no client is left, and gives the identifiers of all detaches that the module was asked
    /// for, in order.
    std::vector<std::string> detached() {
        EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
        std::vector<std::string> identifiers;
        for (const std::string& request : module->requests()) {
            simdjson::dom::parser parser;
            if (std::string_view identifier; !parser.parse(request)["requestIDtoDetach"].get(identifier)) {
                identifiers.emplace_back(identifier);
            }
        }
        return identifiers;
    }

    std::unique_ptr<FakeModule> module = std::make_unique<FakeModule>(broker);
    std::shared_ptr<FakeConnection> connection = std::make_shared<FakeConnection>();
};

// --- the grace clock ---------------------------------------------------------------------------------------

TEST_F(SessionLifeTest, AHandshakeThatIsNeverFollowedExpires) {
    exchange(connection, R"([{"channel":"/meta/handshake","supportedConnectionTypes":["websocket"]}])");
    pass(seconds(60));
    EXPECT_EQ(server->sessionCount(), 1U);
    pass(milliseconds(1));
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(SessionLifeTest, APollThatIsAnsweredAndNeverFollowedExpiresFromItsAnswer) {
    auto poll = std::make_shared<FakeConnection>(false);
    const std::string clientId = openSession(poll);
    EXPECT_EQ(send(poll, clientId, "/meta/connect"), "");
    pass(seconds(30));
    EXPECT_THAT(poll->take(), HasSubstr(R"("successful":true)"));
    server->closed(*poll);
    poll.reset();
    pass(seconds(60));
    EXPECT_EQ(server->sessionCount(), 1U);
    pass(milliseconds(1));
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(SessionLifeTest, OtherMessagesExtendTheGraceTimeAndDoNotStopIt) {
    const std::string clientId = openSession(connection);
    for (int i = 0; i < 3; ++i) {
        pass(seconds(59));
        EXPECT_THAT(send(connection, clientId, "/meta/subscribe", R"(,"subscription":"/service/a")"),
                    HasSubstr(R"("successful":true)"));
    }
    pass(seconds(59));
    // A refused one is a sign of life, too.
    EXPECT_THAT(publish(connection, clientId, "/yvm/nobody/request", "{}"), HasSubstr("403::"));
    pass(seconds(60));
    EXPECT_EQ(server->sessionCount(), 1U);
    pass(milliseconds(1));
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(SessionLifeTest, TheGraceTimeCountsFromTheEndOfTheConnectionWithTheHeldConnect) {
    const std::string clientId = openSession(connection);
    send(connection, clientId, "/meta/connect");
    now += seconds(20);
    server->closed(*connection);
    pass(seconds(60));
    EXPECT_EQ(server->sessionCount(), 1U);
    pass(milliseconds(1));
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(SessionLifeTest, AConnectionThatEndsWithoutAHeldConnectChangesNothing) {
    openSession(connection);
    now += seconds(50);
    server->closed(*connection);
    pass(milliseconds(10'001));
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(SessionLifeTest, AHeldConnectWhoseConnectionVanishedWithoutAWordGivesTheWholeGraceTime) {
    BayeuxServer::Options options;
    options.connectTimeout = std::chrono::hours(1);
    makeServer(std::move(options));
    auto vanishing = std::make_shared<FakeConnection>(false);
    const std::string clientId = openSession(vanishing);
    send(vanishing, clientId, "/meta/connect");
    pass(std::chrono::minutes(10));
    vanishing.reset();
    server->advance();
    pass(seconds(60));
    EXPECT_EQ(server->sessionCount(), 1U);
    pass(milliseconds(1));
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(SessionLifeTest, ADeadSocketIsAnsweredAndThenTheGraceTimeRunsOnWhenItIsFoundDead) {
    const std::string clientId = openSession(connection);
    send(connection, clientId, "/meta/connect");
    // The network has gone in silence. The connect is answered into it, and a ping finds out later.
    pass(seconds(30));
    EXPECT_THAT(connection->take(), HasSubstr(R"("successful":true)"));
    now += seconds(30);
    server->closed(*connection);
    pass(seconds(30));
    EXPECT_EQ(server->sessionCount(), 1U);
    pass(milliseconds(1));
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(SessionLifeTest, AnExpiredSessionIsToldToHandshakeWhenItComesBack) {
    const std::string clientId = openSession(connection);
    server->closed(*connection);
    expire();
    const auto next = std::make_shared<FakeConnection>();
    EXPECT_EQ(send(next, clientId, "/meta/connect"),
              R"([{"channel":"/meta/connect","id":"7","successful":false,"error":"402::Unknown client",)"
              R"("advice":{"reconnect":"handshake","interval":0}}])");
}

// --- sessions and connections ------------------------------------------------------------------------------

TEST_F(SessionLifeTest, AnOldConnectionTakesNothingAlongWhenItEnds) {
    const std::string clientId = openSession(connection);
    const auto newer = std::make_shared<FakeConnection>();
    EXPECT_EQ(send(newer, clientId, "/meta/connect"), "");
    server->closed(*connection);
    pass(seconds(29));
    EXPECT_EQ(newer->take(), "");
    pass(seconds(1));
    EXPECT_THAT(newer->take(), HasSubstr(R"("successful":true)")) << "the connect is still held";
}

TEST_F(SessionLifeTest, EventsGoToTheConnectionOfTheLatestConnectOnly) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    const auto other = std::make_shared<FakeConnection>();
    const auto both = {other, connection, other, connection, other};
    for (const auto& current : both) {
        send(current, clientId, "/meta/connect", R"(,"advice":{"timeout":0})");
    }
    EXPECT_EQ(connection->boundSessions.size(), 0U);
    EXPECT_EQ(other->boundSessions.size(), 1U);
    // Messages of other kinds do not move them.
    EXPECT_THAT(subscribe(connection, clientId, R"("/service/a")"), HasSubstr(R"("successful":true)"));
    broker->publish("/yvm/one/a", DataBuffer("1"), "test");
    server->writable(*connection);
    EXPECT_EQ(await(*other), R"([{"channel":"/yvm/one/a","data":1}])");
    EXPECT_EQ(connection->take(), "");
}

TEST_F(SessionLifeTest, ASessionThatAPageLeftBehindEndsWithoutItsConnection) {
    openSession(connection);
    now += seconds(30);
    const std::string clientId = openSession(connection);
    send(connection, clientId, "/meta/connect", R"(,"advice":{"timeout":30000})");
    now += milliseconds(29'999);
    connection->take();
    server->advance();
    EXPECT_EQ(server->sessionCount(), 2U);
    pass(milliseconds(2));
    EXPECT_EQ(server->sessionCount(), 1U);
    EXPECT_THAT(connection->take(), HasSubstr(R"([{"channel":"/meta/connect","id":"7","successful":true)"))
        << "the connect of the other, in its time";
    EXPECT_FALSE(connection->closeCode);
}

TEST_F(SessionLifeTest, ADisconnectLeavesTheConnectionToASessionThatShallGoOn) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    disconnect(first);
    pass(seconds(1));
    EXPECT_FALSE(connection->closeCode);
    disconnect(second);
    pass(seconds(1));
    EXPECT_EQ(connection->closeCode, CloseCode::Normal);
}

TEST_F(SessionLifeTest, TheEndOfASlowReaderLeavesTheConnectionToTheOthers) {
    BayeuxServer::Options options;
    options.limits.maxQueueBytes = 10;
    makeServer(std::move(options));
    const std::string slow = openSession(connection);
    openSession(connection);
    attach(slow, "one");
    subscribe(connection, slow, R"("/yvm/one/**")");
    send(connection, slow, "/meta/connect");
    connection->writable = false;
    broker->publish("/yvm/one/a", DataBuffer("1"), "test");
    broker->publish("/yvm/one/a", DataBuffer("2"), "test");
    connection->writable = true;
    server->writable(*connection);
    EXPECT_EQ(connection->take(),
              R"([{"channel":"/meta/connect","id":"7","successful":false,)"
              R"("error":"413::more than 10 bytes wait for this session","advice":{"reconnect":"none"}}])");
    EXPECT_FALSE(connection->closeCode);
    EXPECT_EQ(server->sessionCount(), 1U);
    EXPECT_THAT(detached(), ElementsAre("one"));
}

// --- every client is detached once -------------------------------------------------------------------------

TEST_F(SessionLifeTest, ADisconnectDetachesEachClientOnce) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    attach(clientId, "two");
    disconnect(clientId);
    EXPECT_THAT(send(connection, clientId, "/meta/disconnect"), HasSubstr("402::Unknown client"));
    expire();
    EXPECT_THAT(detached(), ElementsAre("one", "two"));
}

TEST_F(SessionLifeTest, AnExpiryDetachesEachClientOnceAndALateDisconnectIsUnknown) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    expire();
    EXPECT_THAT(send(connection, clientId, "/meta/disconnect"), HasSubstr("402::Unknown client"));
    expire();
    EXPECT_THAT(detached(), ElementsAre("one"));
}

TEST_F(SessionLifeTest, ADisconnectLeavesADetachOnItsWayToItself) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    attach(clientId, "two");
    detach(clientId, "d", "one");
    disconnect(clientId);
    EXPECT_THAT(detached(), ElementsAre("one", "two"));
}

TEST_F(SessionLifeTest, AnExpiryLeavesADetachOnItsWayToItself) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    detach(clientId, "d", "one");
    expire();
    EXPECT_EQ(server->sessionCount(), 0U);
    EXPECT_THAT(detached(), ElementsAre("one"));
}

TEST_F(SessionLifeTest, ADetachThatHasBeenCarriedOutIsNotRepeatedAtTheEnd) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    detach(clientId, "d", "one");
    EXPECT_THAT(detached(), ElementsAre("one"));
    disconnect(clientId);
    EXPECT_THAT(detached(), ElementsAre("one"));
}

TEST_F(SessionLifeTest, DetachAndDisconnectInOneFrameDetachOnce) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    const std::string own = R"(,"clientId":")" + clientId + '"';
    EXPECT_EQ(
        exchange(connection, R"([{"channel":"/yvm/detach/request","id":"1")" + own +
                                 R"(,"data":{"requestID":"d","requestIDtoDetach":"one"}},)" +
                                 R"({"channel":"/meta/disconnect","id":"2")" + own +
                                 R"(},{"channel":"/yvm/one/eval/request","id":"3","data":{"a":1})" + own +
                                 "}]"),
        R"([{"channel":"/yvm/detach/request","id":"1","successful":true},)"
        R"({"channel":"/meta/disconnect","id":"2","successful":true},)"
        R"({"channel":"/yvm/one/eval/request","id":"3","successful":false,"error":"402::Unknown client"}])");
    EXPECT_THAT(detached(), ElementsAre("one"));
}

TEST_F(SessionLifeTest, AnAttachThatStillWaitsIsDetachedBehindIt) {
    module->fallSilent();
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    disconnect(clientId);
    EXPECT_THAT(detached(), ElementsAre("one"));
    EXPECT_EQ(module->requests().front(), R"({"requestID":"one"})");
}

TEST_F(SessionLifeTest, AnAttachRefusedWhileTheSessionEndsFreesNothingTwice) {
    module->refuseAttaches();
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    ASSERT_TRUE(module->waitForRequests(1));
    disconnect(clientId);
    EXPECT_THAT(detached(), ElementsAre("one"));
    // The identifier is free for anybody, and stays with whoever takes it.
    const std::string next = openSession(connection);
    attach(next, "one");
    workQueue.runAll();
    EXPECT_EQ(server->sessionCount(), 1U);
}

TEST_F(SessionLifeTest, AClientAttachedAnewBehindItsDetachIsDetachedAgainAtTheEnd) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    detach(clientId, "d", "one");
    attach(clientId, "one");
    disconnect(clientId);
    EXPECT_THAT(detached(), ElementsAre("one", "one"));
}

TEST_F(SessionLifeTest, ADetachThatWaitsForItsTurnIsDroppedWhenItsSessionEnds) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    attach(second, "two");
    detach(first, "d", "one");
    // Of one requestID: it waits until the other has been answered.
    detach(second, "d", "two");
    disconnect(second);
    EXPECT_THAT(detached(), ::testing::UnorderedElementsAre("one", "two"));
    // The end of the other's detach hands nothing on that would take the identifier for the dead.
    const std::string third = openSession(connection);
    attach(third, "two");
    workQueue.runAll();
    EXPECT_EQ(server->clientCount(), 1U);
}

TEST_F(SessionLifeTest, TheEndOfASessionLeavesTheClientsOfOthersAlone) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    attach(second, "two");
    disconnect(first);
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 1; }));
    EXPECT_EQ(publish(connection, second, "/yvm/two/eval/request", R"({"requestID":"e"})"),
              R"([{"channel":"/yvm/two/eval/request","id":"7","successful":true}])");
    disconnect(second);
    EXPECT_THAT(detached(), ElementsAre("one", "two"));
}

TEST_F(SessionLifeTest, ASlowReaderThatDisconnectsIsDetachedOnce) {
    BayeuxServer::Options options;
    options.limits.maxQueueBytes = 10;
    makeServer(std::move(options));
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    connection->writable = false;
    broker->publish("/yvm/one/a", DataBuffer("1"), "test");
    broker->publish("/yvm/one/a", DataBuffer("2"), "test");
    disconnect(clientId);
    EXPECT_THAT(detached(), ElementsAre("one"));
    EXPECT_EQ(server->metrics()->refusals[metrics::RefusalReason::QueueBytes], 0U)
        << "the disconnect came first";
}

TEST_F(SessionLifeTest, AnIdentifierIsTakenUntilItsDetachHasBeenCarriedOut) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    disconnect(first);
    EXPECT_EQ(
        publish(connection, second, "/yvm/attach/request", R"({"requestID":"one"})"),
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"403::the requestID is in use by another session"}])");
    EXPECT_THAT(detached(), ElementsAre("one"));
    EXPECT_EQ(publish(connection, second, "/yvm/attach/request", R"({"requestID":"one"})"),
              R"([{"channel":"/yvm/attach/request","id":"7","successful":true}])");
}

TEST_F(SessionLifeTest, AModuleThatAnswersNoDetachKeepsNoIdentifier) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    ASSERT_TRUE(module->waitForRequests(1));
    module->fallSilent();
    disconnect(clientId);
    EXPECT_THAT(detached(), ElementsAre("one"));
}

}  // namespace
}  // namespace server::bayeux::testing
