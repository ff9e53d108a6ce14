#include "server/bayeux/test/BayeuxFixture.hpp"

#include <gmock/gmock.h>

namespace server::bayeux::testing {
namespace {

using connector::common::DataBuffer;
using ::testing::HasSubstr;
using ::testing::Not;

/// A session that acknowledges, with the client "one", over a WebSocket and over long-polling.
class AcknowledgementTest : public BayeuxFixture, public ::testing::WithParamInterface<bool> {
  protected:
    void start(BayeuxServer::Options options = {}) {
        makeServer(std::move(options));
        fakeModule = std::make_unique<FakeModule>(broker);
        connection = makeConnection();
        clientId = handshake(R"(,"ext":{"ack":true})");
        publish(makeConnection(), clientId, "/yvm/attach/request", R"({"requestID":"one"})");
        subscribe(makeConnection(), clientId, R"("/yvm/one/**")");
    }

    static std::shared_ptr<FakeConnection> makeConnection() {
        return std::make_shared<FakeConnection>(GetParam());
    }

    std::string handshake(const std::string& fields) {
        handshakeReply = exchange(
            makeConnection(),
            R"([{"channel":"/meta/handshake","supportedConnectionTypes":["websocket"])" + fields + "}]");
        simdjson::dom::parser parser;
        return std::string(std::string_view(parser.parse(handshakeReply).at(0)["clientId"]));
    }

    std::string connect(const std::string& fields) {
        return exchange(connection, request(clientId, "/meta/connect", fields));
    }

    /// As a client that lost its connection does: what it was sent is forgotten, by a new connection.
    void reconnect() {
        server->closed(*connection);
        connection = makeConnection();
    }

    void deliver(const std::string& text) {
        broker->publish("/yvm/one/a", DataBuffer(text), "test");
        workQueue.runAll();
    }

    static std::string acknowledging(int number) {
        return R"(,"ext":{"ack":)" + std::to_string(number) + "}";
    }

    static std::string reply(int number, const std::string& events = "") {
        return R"([{"channel":"/meta/connect","id":"7","successful":true,)"
               R"("advice":{"reconnect":"retry","interval":0,"timeout":30000},"ext":{"ack":)" +
               std::to_string(number) + "}}" + events + "]";
    }

    static std::string event(const std::string& data) {
        return R"(,{"channel":"/yvm/one/a","data":)" + data + "}";
    }

    const std::string atOnce = R"(,"advice":{"timeout":0})";
    std::unique_ptr<FakeModule> fakeModule;
    std::shared_ptr<FakeConnection> connection;
    std::string handshakeReply;
    std::string clientId;
};

INSTANTIATE_TEST_SUITE_P(BothTransports, AcknowledgementTest, ::testing::Bool(),
                         [](const auto& transport) { return transport.param ? "WebSocket" : "LongPolling"; });

TEST_P(AcknowledgementTest, IsGrantedToAHandshakeThatAsksForIt) {
    for (const char* ack :
         {"true", R"({"enabled":true})", R"({"enabled":1,"batch":0})", R"({"enabled":"yes"})"}) {
        handshake(R"(,"ext":{"ack":)" + std::string(ack) + "}");
        EXPECT_THAT(handshakeReply, HasSubstr(R"(,"ext":{"ack":true}}])")) << ack;
    }
    for (const char* ack : {"false", "null", "0", "\"true\"", "[]", "{}", R"({"enabled":false})",
                            R"({"enabled":null})", R"({"enabled":0})", R"({"enabled":""})"}) {
        handshake(R"(,"ext":{"ack":)" + std::string(ack) + "}");
        EXPECT_THAT(handshakeReply, HasSubstr(R"("successful":true)")) << ack;
        EXPECT_THAT(handshakeReply, Not(HasSubstr("ext"))) << ack;
    }
}

TEST_P(AcknowledgementTest, EventsTravelInOneFrameWithTheReplyToAConnect) {
    start();
    deliver("1");
    deliver("2");
    EXPECT_EQ(connection->take(), "");
    connection->frames.clear();
    std::string frame = request(clientId, "/meta/connect", acknowledging(0) + atOnce);
    server->receive(connection, frame);
    EXPECT_EQ(connection->frames, std::vector<std::string>{reply(1, event("1") + event("2"))});
}

TEST_P(AcknowledgementTest, AHeldConnectIsAnsweredTogetherWithTheFirstEvent) {
    start();
    EXPECT_EQ(connect(acknowledging(0)), "");
    deliver("1");
    EXPECT_EQ(connection->frames, std::vector<std::string>{reply(1, event("1"))});
    connection->frames.clear();
    deliver("2");
    EXPECT_EQ(connection->take(), "") << "no connect is held";
    EXPECT_EQ(connect(acknowledging(1)), reply(2, event("2")));
    EXPECT_EQ(connect(acknowledging(2)), "");
    now += std::chrono::seconds(30);
    server->advance();
    EXPECT_EQ(connection->take(), reply(3));
}

TEST_P(AcknowledgementTest, ALostBatchComesAgainAtOnceAndWhatCameSinceBehindIt) {
    start();
    connect(acknowledging(0));
    deliver("1");
    EXPECT_EQ(connection->take(), reply(1, event("1")));
    reconnect();
    deliver("2");
    EXPECT_EQ(connect(acknowledging(0)), reply(2, event("1")));
    EXPECT_EQ(connect(acknowledging(2)), reply(3, event("2")));
    EXPECT_EQ(connect(acknowledging(3)), "");
}

TEST_P(AcknowledgementTest, AConnectWithoutANumberForgetsNothing) {
    start();
    deliver("1");
    EXPECT_EQ(connect(""), reply(1, event("1")));
    EXPECT_EQ(connect(""), reply(2, event("1")));
    EXPECT_EQ(connect(R"(,"ext":{"ack":"2"})"), reply(3, event("1")));
    EXPECT_EQ(connect(acknowledging(3) + atOnce), reply(4));
}

TEST_P(AcknowledgementTest, ANumberAboveTheLastIsTheLast) {
    start();
    deliver("1");
    EXPECT_EQ(connect(acknowledging(0)), reply(1, event("1")));
    EXPECT_EQ(connect(acknowledging(1000) + atOnce), reply(2));
}

TEST_P(AcknowledgementTest, APageThatIsLoadedAgainStartsOverWithItsNumbers) {
    start();
    deliver("1");
    EXPECT_EQ(connect(acknowledging(0)), reply(1, event("1")));
    EXPECT_EQ(connect(acknowledging(1)), "");
    reconnect();
    deliver("2");
    // Ids and numbers as after the handshake; the subscription is still there.
    EXPECT_EQ(connect(acknowledging(0) + atOnce), reply(2, event("2")));
    EXPECT_EQ(connect(acknowledging(2) + atOnce), reply(3));
}

TEST_P(AcknowledgementTest, ABatchIsBoundedAndTheNextConnectBringsTheRest) {
    BayeuxServer::Options options;
    options.maxFrameBytes = 10;
    start(std::move(options));
    for (const char* text : {"1234", "5678", "123456789012", "1"}) {
        deliver(text);
    }
    EXPECT_EQ(connect(acknowledging(0)), reply(1, event("1234") + event("5678")));
    EXPECT_EQ(connect(acknowledging(1)), reply(2, event("123456789012")));
    EXPECT_EQ(connect(acknowledging(2)), reply(3, event("1")));
    EXPECT_EQ(connect(acknowledging(3)), "");
}

TEST_P(AcknowledgementTest, WhatIsNotAcknowledgedCountsAgainstTheSessionsBound) {
    BayeuxServer::Options options;
    options.limits.maxQueueBytes = 40;
    start(std::move(options));
    deliver("123456789012345");
    EXPECT_EQ(connect(acknowledging(0)), reply(1, event("123456789012345")));
    deliver("123456789012345");
    EXPECT_EQ(server->sessionCount(), 0U);
    EXPECT_EQ(server->metrics()->refusals[metrics::RefusalReason::QueueBytes], 1U);
}

TEST_P(AcknowledgementTest, ABatchThatWasLostThreeTimesEndsTheSession) {
    start();
    deliver("1");
    for (int number = 1; number <= 3; ++number) {
        EXPECT_EQ(connect(acknowledging(0)), reply(number, event("1")));
        reconnect();
    }
    EXPECT_EQ(connect(acknowledging(0)),
              R"([{"channel":"/meta/connect","id":"7","successful":false,)"
              R"("error":"413::the same events were sent 3 times and never acknowledged",)"
              R"("advice":{"reconnect":"none"}}])");
    EXPECT_EQ(server->sessionCount(), 0U);
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
    now += std::chrono::seconds(1);
    server->advance();
    EXPECT_EQ(connection->closeCode, GetParam() ? std::optional(CloseCode::Normal) : std::nullopt);
}

TEST_P(AcknowledgementTest, InABatchTheEventsFollowAllReplies) {
    start();
    deliver("1");
    const std::string reply = R"({"channel":"/meta/connect","id":"8","successful":true,)"
                              R"("advice":{"reconnect":"retry","interval":0,"timeout":30000},"ext":{"ack":)";
    EXPECT_EQ(
        exchange(connection, R"([{"channel":"/meta/connect","id":"8","clientId":")" + clientId +
                                 R"("},{"channel":"/meta/connect","id":"8","clientId":")" + clientId +
                                 R"("},{"channel":"/meta/unsubscribe","id":"9","clientId":")" + clientId +
                                 R"(","subscription":"/yvm/one/a"}])"),
        "[" + reply + "1}}," + reply + "2}}," +
            R"({"channel":"/meta/unsubscribe","id":"9","successful":true,"subscription":"/yvm/one/a"})" +
            event("1") + "]");
    EXPECT_EQ(connect(acknowledging(1)), AcknowledgementTest::reply(3, event("1")))
        << "they came with reply 2";
    EXPECT_EQ(connect(acknowledging(3)), "");
}

TEST_P(AcknowledgementTest, ADisconnectForgetsWhatWasNotAcknowledged) {
    start();
    deliver("1");
    EXPECT_EQ(exchange(connection, R"([{"channel":"/meta/connect","id":"1","clientId":")" + clientId +
                                       R"("},{"channel":"/meta/disconnect","id":"2","clientId":")" +
                                       clientId + R"("}])"),
              R"([{"channel":"/meta/connect","id":"1","successful":true,)"
              R"("advice":{"reconnect":"retry","interval":0,"timeout":30000},"ext":{"ack":1}},)"
              R"({"channel":"/meta/disconnect","id":"2","successful":true}])");
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_P(AcknowledgementTest, SurvivesAChangeOfTransport) {
    start();
    deliver("1");
    EXPECT_EQ(connect(acknowledging(0)), reply(1, event("1")));
    connection = std::make_shared<FakeConnection>(!GetParam());
    deliver("2");
    EXPECT_EQ(connect(acknowledging(0)), reply(2, event("1")));
    EXPECT_EQ(connect(acknowledging(2)), reply(3, event("2")));
}

}  // namespace
}  // namespace server::bayeux::testing
