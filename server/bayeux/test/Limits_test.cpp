#include "server/bayeux/Limits.hpp"

#include "server/bayeux/test/BayeuxFixture.hpp"

#include <gmock/gmock.h>

namespace server::bayeux::testing {
namespace {

using metrics::RefusalReason;
using ::testing::HasSubstr;

constexpr const char* kHandshake =
    R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"]}])";

/// Each limit: what it refuses, with which words, what it lets pass beside, and that it counts.
class LimitsTest : public BayeuxFixture {
  protected:
    void limit(const std::function<void(Limits&)>& set) {
        BayeuxServer::Options options;
        set(options.limits);
        options.acceptsToken = [this](std::string_view token) {
            ++tokensCompared;
            return token == "s3cret";
        };
        makeServer(std::move(options));
    }

    static std::shared_ptr<FakeConnection> from(const std::string& address, bool authenticated = true) {
        return std::make_shared<FakeConnection>(true, authenticated, address);
    }

    static std::string handshakeWith(const std::string& token) {
        return R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"],)"
               R"("ext":{"token":")" +
               token + R"("}}])";
    }

    static std::string refusedForNow(const std::string& error) {
        return R"([{"channel":"/meta/handshake","id":"1","successful":false,"error":"503::)" + error +
               R"("}])";
    }

    std::string attach(const std::string& clientId, const std::string& identifier) {
        return publish(
            connection, clientId, "/yvm/attach/request",
            R"({"requestID":")" + identifier + R"(","yvmID":"user-yvm","supportedApiVersions":["r24a0"]})");
    }

    std::string refusalOf(const std::string& channel, const std::string& error) {
        return R"([{"channel":")" + channel + R"(","id":"7","successful":false,"error":")" + error + R"("}])";
    }

    std::uint64_t refused(RefusalReason reason) const { return server->metrics()->refusals[reason]; }

    std::shared_ptr<FakeConnection> connection = std::make_shared<FakeConnection>();
    int tokensCompared = 0;
};

TEST_F(LimitsTest, MessageBytes) {
    limit([](Limits& limits) { limits.maxMessageBytes = 20; });
    const std::string clientId = openSession(connection);
    EXPECT_EQ(publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"12345"})"),
              refusalOf("/yvm/attach/request", "413::the data has 21 bytes - at most 20 are accepted"));
    EXPECT_THAT(publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"1234"})"),
                HasSubstr(R"("successful":true)"));
    EXPECT_EQ(refused(RefusalReason::MessageBytes), 1U);
}

TEST_F(LimitsTest, Depth) {
    limit([](Limits& limits) { limits.maxDepth = 3; });
    const std::string clientId = openSession(connection);
    EXPECT_EQ(publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"a","x":[[[1]]]})"),
              refusalOf("/yvm/attach/request", "413::the data is nested more than 3 levels deep"));
    EXPECT_THAT(publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"a","x":[[1]]})"),
                HasSubstr(R"("successful":true)"));
    EXPECT_EQ(refused(RefusalReason::Depth), 1U);
}

TEST_F(LimitsTest, BatchMessages) {
    limit([](Limits& limits) { limits.maxBatchMessages = 2; });
    EXPECT_EQ(
        exchange(connection, R"([{"channel":"/a"},{"channel":"/a"},{"channel":"/a"}])"),
        R"([{"channel":"/meta/error","successful":false,"error":"413::more than 2 messages in one frame"}])");
    EXPECT_EQ(refused(RefusalReason::BatchMessages), 1U);
    EXPECT_THAT(exchange(connection, R"([{"channel":"/a"},{"channel":"/a"}])"),
                HasSubstr("402::Unknown client"));
}

TEST_F(LimitsTest, SessionsEndAndMakeRoom) {
    limit([](Limits& limits) { limits.maxSessions = 2; });
    const std::string first = openSession(connection);
    openSession(connection);
    EXPECT_EQ(exchange(connection, kHandshake),
              refusedForNow("the server is full - it may have 2 sessions at most"));
    EXPECT_EQ(refused(RefusalReason::Sessions), 1U);
    exchange(connection, request(first, "/meta/disconnect", ""));
    EXPECT_THAT(exchange(connection, kHandshake), HasSubstr(R"("successful":true)"));
}

TEST_F(LimitsTest, StrangersAreNotToldThatTheServerIsFull) {
    limit([](Limits& limits) { limits.maxSessions = 1; });
    openSession(connection);
    EXPECT_THAT(exchange(from("192.0.2.1", false), kHandshake), HasSubstr("401::"));
}

TEST_F(LimitsTest, SessionsPerAddress) {
    limit([](Limits& limits) { limits.maxSessionsPerAddress = 1; });
    const auto here = from("192.0.2.1");
    const auto there = from("192.0.2.2");
    const std::string first = openSession(here);
    EXPECT_EQ(exchange(here, kHandshake), refusedForNow("one address may have 1 sessions at most"));
    EXPECT_EQ(refused(RefusalReason::SessionsPerAddress), 1U);
    openSession(there);
    // Counted as long as the session lives, wherever it is by now.
    server->closed(*here);
    exchange(there, request(first, "/meta/connect", R"(,"advice":{"timeout":0})"));
    EXPECT_THAT(exchange(here, kHandshake), HasSubstr("503::"));
    exchange(there, request(first, "/meta/disconnect", ""));
    EXPECT_THAT(exchange(here, kHandshake), HasSubstr(R"("successful":true)"));
    EXPECT_THAT(exchange(there, kHandshake), HasSubstr("503::"));
}

TEST_F(LimitsTest, AnExpiredSessionMakesRoomForItsAddress) {
    limit([](Limits& limits) { limits.maxSessionsPerAddress = 1; });
    openSession(connection);
    now += std::chrono::minutes(2);
    server->advance();
    EXPECT_THAT(exchange(connection, kHandshake), HasSubstr(R"("successful":true)"));
}

TEST_F(LimitsTest, ClientsPerSession) {
    limit([](Limits& limits) { limits.maxClientsPerSession = 2; });
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    attach(clientId, "two");
    EXPECT_EQ(attach(clientId, "three"),
              refusalOf("/yvm/attach/request", "413::a session may have 2 clients at most"));
    EXPECT_EQ(refused(RefusalReason::ClientsPerSession), 1U);
    EXPECT_THAT(attach(clientId, "two"), HasSubstr(R"("successful":true)")) << "it is there already";
    const auto other = std::make_shared<FakeConnection>();
    EXPECT_THAT(publish(other, openSession(other), "/yvm/attach/request", R"({"requestID":"three"})"),
                HasSubstr(R"("successful":true)"));
    // What was refused has not reached the module.
    ASSERT_TRUE(fakeModule.waitForRequests(4));
    EXPECT_EQ(fakeModule.requests().size(), 4U);
}

TEST_F(LimitsTest, AClientThatIsBeingDetachedMakesRoom) {
    limit([](Limits& limits) { limits.maxClientsPerSession = 1; });
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    publish(connection, clientId, "/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":"one"})");
    EXPECT_THAT(attach(clientId, "two"), HasSubstr(R"("successful":true)"));
    EXPECT_THAT(attach(clientId, "one"), HasSubstr("413::a session may have 1 clients at most"))
        << "the one that is being detached would be a client anew";
}

TEST_F(LimitsTest, SubscriptionsPerSession) {
    limit([](Limits& limits) { limits.maxSubscriptionsPerSession = 2; });
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    EXPECT_THAT(subscribe(connection, clientId, R"(["/yvm/one/a","/yvm/one/b"])"),
                HasSubstr(R"("successful":true)"));
    EXPECT_THAT(subscribe(connection, clientId, R"("/yvm/one/c")"),
                HasSubstr(R"("error":"413::a session may have 2 subscriptions at most")"));
    EXPECT_EQ(refused(RefusalReason::SubscriptionsPerSession), 1U);
    exchange(connection, request(clientId, "/meta/unsubscribe", R"(,"subscription":"/yvm/one/a")"));
    EXPECT_THAT(subscribe(connection, clientId, R"("/yvm/one/c")"), HasSubstr(R"("successful":true)"));
}

TEST_F(LimitsTest, FailedHandshakesBlockTheirAddressForTheMinuteAndUnseen) {
    limit([](Limits& limits) { limits.maxFailedHandshakesPerMinute = 2; });
    const auto guesser = from("192.0.2.1", false);
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(exchange(guesser, handshakeWith("guess")), HasSubstr(R"("advice":{"reconnect":"none"})"));
    }
    EXPECT_EQ(tokensCompared, 2);
    const std::string blocked =
        refusedForNow("too many failed handshakes - one address may have 2 a minute at most");
    EXPECT_EQ(exchange(guesser, handshakeWith("s3cret")), blocked);
    EXPECT_EQ(exchange(from("192.0.2.1", true), kHandshake), blocked) << "whichever way the token comes";
    EXPECT_EQ(tokensCompared, 2);
    EXPECT_EQ(refused(RefusalReason::FailedHandshakes), 2U);
    EXPECT_THAT(exchange(from("192.0.2.2", false), handshakeWith("s3cret")),
                HasSubstr(R"("successful":true)"));
    now += std::chrono::minutes(1);
    EXPECT_THAT(exchange(guesser, handshakeWith("s3cret")), HasSubstr(R"("successful":true)"));
}

TEST_F(LimitsTest, ASessionThatExistsIsNotBlocked) {
    limit([](Limits& limits) { limits.maxFailedHandshakesPerMinute = 1; });
    const auto here = from("192.0.2.1");
    const std::string clientId = openSession(here);
    exchange(from("192.0.2.1", false), kHandshake);
    EXPECT_THAT(exchange(here, kHandshake), HasSubstr("503::too many failed handshakes"));
    EXPECT_THAT(exchange(here, request(clientId, "/meta/connect", R"(,"advice":{"timeout":0})")),
                HasSubstr(R"("successful":true)"));
}

TEST_F(LimitsTest, ARefusalThatPassesIsNoFailedHandshake) {
    limit([](Limits& limits) {
        limits.maxSessions = 1;
        limits.maxFailedHandshakesPerMinute = 1;
    });
    const std::string clientId = openSession(connection);
    exchange(connection, kHandshake);
    exchange(connection, request(clientId, "/meta/disconnect", ""));
    EXPECT_THAT(exchange(connection, kHandshake), HasSubstr(R"("successful":true)"));
}

}  // namespace
}  // namespace server::bayeux::testing
