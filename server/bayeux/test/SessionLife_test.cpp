#include "server/bayeux/test/BayeuxFixture.hpp"

#include <gmock/gmock.h>

#include <algorithm>

namespace server::bayeux::testing {
namespace {

using connector::common::DataBuffer;
using metrics::Direction;
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

// --- the sinks of who leaves -------------------------------------------------------------------------------

/// With what the module is asked beside attaches, in order, as "<verb> <client>".
class SinksOfWhoLeavesTest : public SessionLifeTest {
  protected:
    SinksOfWhoLeavesTest() {
        for (const char* client : {"one", "two", "three"}) {
            record("/yvm/" + std::string(client) + "/yvmSinks/request", [client](const auto& request) {
                simdjson::dom::element traits;
                const bool isRevert = !request["outSinkTraits"].get(traits) && traits.is_null() &&
                                      !request["errSinkTraits"].get(traits) && traits.is_null();
                return std::string(isRevert ? "revert " : "install ") + client;
            });
        }
        record("/yvm/detach/request", [](const auto& request) {
            return "detach " + std::string(std::string_view(request["requestIDtoDetach"]));
        });
    }

    ~SinksOfWhoLeavesTest() override { recordings_.clear(); }

    void install(const std::string& clientId, const std::string& client) {
        EXPECT_THAT(
            publish(connection, clientId, "/yvm/" + client + "/yvmSinks/request", R"({"requestID":"s"})"),
            HasSubstr(R"("successful":true)"));
    }

    void revert(const std::string& clientId, const std::string& client) {
        EXPECT_THAT(publish(connection, clientId, "/yvm/" + client + "/yvmSinks/request",
                            R"({"requestID":"s","outSinkTraits":null,"errSinkTraits":null})"),
                    HasSubstr(R"("successful":true)"));
    }

    /// Waits until `count` clients are left.
    void awaitClients(std::size_t count) {
        EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == count; }));
    }

    std::vector<std::string> asked() {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

  private:
    using Describe = std::function<std::string(const simdjson::dom::element&)>;

    void record(const std::string& channel, const Describe& describe) {
        recordings_.push_back(broker->subscribeInline(
            channel, [this, describe](const connector::message_service::JsonMessage& message) {
                simdjson::dom::parser parser;
                const std::string text(message.payload().view());
                const std::lock_guard lock(mutex_);
                asked_.push_back(describe(parser.parse(text)));
            }));
    }

    std::mutex mutex_;
    std::vector<std::string> asked_;
    std::vector<std::shared_ptr<connector::message_service::Subscription>> recordings_;
};

TEST_F(SinksOfWhoLeavesTest, AreRevertedBeforeTheDetachOfADisconnect) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    install(clientId, "one");
    disconnect(clientId);
    EXPECT_THAT(asked(), ElementsAre("install one", "revert one", "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, AreRevertedBeforeTheDetachOfAnExpiry) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    install(clientId, "one");
    expire();
    EXPECT_THAT(asked(), ElementsAre("install one", "revert one", "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, AreRevertedBeforeADetachOnceOnly) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    install(clientId, "one");
    detach(clientId, "d", "one");
    detach(clientId, "e", "one");
    disconnect(clientId);
    EXPECT_THAT(asked(), ElementsAre("install one", "revert one", "detach one", "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, AreLeftAloneWhereNothingIsInstalled) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    attach(clientId, "two");
    install(clientId, "one");
    revert(clientId, "one");
    disconnect(clientId);
    EXPECT_THAT(asked(), ElementsAre("install one", "revert one", "detach one", "detach two"));
}

TEST_F(SinksOfWhoLeavesTest, AreLeftAloneWhereAnotherInstalledSince) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    attach(second, "two");
    install(first, "one");
    install(second, "two");
    disconnect(first);
    disconnect(second);
    EXPECT_THAT(asked(), ElementsAre("install one", "install two", "detach one", "revert two", "detach two"));
}

TEST_F(SinksOfWhoLeavesTest, GoToTheClientBeforeThatIsRevertedInItsTurn) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    attach(second, "two");
    install(first, "one");
    install(second, "two");
    disconnect(second);
    disconnect(first);
    EXPECT_THAT(asked(), ElementsAre("install one", "install two", "revert two", "detach two", "revert one",
                                     "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, OfAWholeSessionAreRevertedTheLatestFirstBeforeAnyDetach) {
    const std::string clientId = openSession(connection);
    for (const char* client : {"one", "two", "three"}) {
        attach(clientId, client);
    }
    install(clientId, "two");
    install(clientId, "one");
    install(clientId, "three");
    disconnect(clientId);
    EXPECT_THAT(asked(), ElementsAre("install two", "install one", "install three", "revert three",
                                     "revert one", "revert two", "detach one", "detach three", "detach two"));
}

TEST_F(SinksOfWhoLeavesTest, OfAClientAttachedAnewAreNotThoseOfTheOldOne) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    install(clientId, "one");
    detach(clientId, "d", "one");
    attach(clientId, "one");
    disconnect(clientId);
    EXPECT_THAT(asked(), ElementsAre("install one", "revert one", "detach one", "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, OfAClientWhoseAttachWasRefusedAreNone) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    install(first, "one");
    ASSERT_TRUE(module->waitForRequests(1));
    workQueue.runAll();
    module->refuseAttaches();
    attach(second, "two");
    install(second, "two");
    awaitClients(1);
    disconnect(first);
    EXPECT_THAT(asked(), ElementsAre("install one", "install two", "revert one", "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, AreLeftAloneWhereThoseOfR22a0WereInstalledSince) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    install(first, "one");
    ASSERT_TRUE(module->waitForRequests(1));
    module->agreeOn("r22a0");
    attach(second, "two");
    ASSERT_TRUE(workQueue.runUntil([&] {
        return publish(connection, second, "/yvm/sinks/set", "{}").find(R"("successful":true)") !=
               std::string::npos;
    }));
    disconnect(second);
    disconnect(first);
    EXPECT_THAT(asked(), ElementsAre("install one", "detach two", "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, AreNotThoseOfAClientOfR22a0) {
    const std::string first = openSession(connection);
    const std::string second = openSession(connection);
    attach(first, "one");
    install(first, "one");
    ASSERT_TRUE(module->waitForRequests(1));
    module->agreeOn("r22a0");
    attach(second, "two");
    install(second, "two");  // before it can know what was agreed on
    ASSERT_TRUE(workQueue.runUntil([&] {
        return subscribe(connection, second, R"("/yvm/sinks/response")").find(R"("successful":true)") !=
               std::string::npos;
    }));
    install(second, "two");
    disconnect(second);
    disconnect(first);
    EXPECT_THAT(asked(), ElementsAre("install one", "install two", "install two", "detach two", "revert one",
                                     "detach one"));
}

TEST_F(SinksOfWhoLeavesTest, AreRevertedInTheLaneOfTheSessionByARequestOfTheServer) {
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    std::mutex mutex;
    std::vector<std::string> delivered;
    const auto service = broker->createService("recorder");
    std::vector<std::shared_ptr<connector::message_service::Subscription>> recordings;
    for (const char* channel : {"/yvm/one/yvmSinks/request", "/yvm/detach/request"}) {
        recordings.push_back(service
                                 ->subscribe(channel,
                                             [&](const connector::message_service::JsonMessage& message) {
                                                 const std::lock_guard lock(mutex);
                                                 delivered.emplace_back(message.payload().view());
                                             })
                                 .get());
    }
    install(clientId, "one");
    const auto counted = server->metrics()->messages[Direction::In];
    detach(clientId, "d", "one");
    EXPECT_EQ(server->metrics()->messages[Direction::In], counted + 1) << "the detach alone";
    EXPECT_EQ(server->requestsInFlight().count(), 0U);
    awaitClients(0);
    recordings.clear();
    ASSERT_EQ(delivered.size(), 3U);
    EXPECT_THAT(delivered[1],
                ::testing::MatchesRegex(
                    R"(\{"requestID":"server-[0-9a-f]+","outSinkTraits":null,"errSinkTraits":null\})"));
    EXPECT_THAT(delivered[2], HasSubstr(R"("requestIDtoDetach":"one")"));
}

}  // namespace
}  // namespace server::bayeux::testing
