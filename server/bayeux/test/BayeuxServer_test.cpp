#include "server/bayeux/BayeuxServer.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "server/bayeux/test/BayeuxFixture.hpp"
#include "testing/FakeThreadPool.hpp"

#include <gmock/gmock.h>

#include <future>

namespace server::bayeux::testing {
namespace {

using connector::common::DataBuffer;
using ::testing::MatchesRegex;

constexpr const char* kAdvice = R"("advice":{"reconnect":"retry","interval":0,"timeout":30000})";

class BayeuxServerTest : public BayeuxFixture {
  protected:
    /// Attaches `identifier` and waits for the module's answer.
    void attach(const std::string& clientId, const std::string& identifier) {
        publish(
            connection, clientId, "/yvm/attach/request",
            R"({"requestID":")" + identifier + R"(","yvmID":"user-yvm","supportedApiVersions":["r24a0"]})");
    }

    void deliver(const std::string& channel, const std::string& text) {
        broker->publish(channel, DataBuffer(text), "test");
    }

    std::shared_ptr<FakeConnection> connection = std::make_shared<FakeConnection>();
};

TEST_F(BayeuxServerTest, AnswersAHandshakeWithAllFields) {
    const std::string reply = exchange(
        connection,
        R"([{"channel":"/meta/handshake","id":"1","version":"1.0","supportedConnectionTypes":["websocket","long-polling"]}])");
    const std::string expected(
        R"re(\[\{"channel":"/meta/handshake","id":"1","successful":true,"version":"1.0","minimumVersion":"1.0",)re"
        R"re("clientId":"[0-9a-f]{40}","supportedConnectionTypes":\["websocket","long-polling"\],)re"
        R"re("advice":\{"reconnect":"retry","interval":0,"timeout":30000\}\}\])re");
    EXPECT_THAT(reply, MatchesRegex(expected));
}

TEST_F(BayeuxServerTest, RefusesAHandshakeWithoutTheTokenForGood) {
    BayeuxServer::Options options;
    options.acceptsToken = [](std::string_view token) { return token == "s3cret"; };
    makeServer(std::move(options));
    const auto stranger = std::make_shared<FakeConnection>(true, false);
    const std::string start =
        R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"])";
    const std::string refusal =
        R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
        R"("error":"401::the token is missing or wrong","advice":{"reconnect":"none"}}])";
    EXPECT_EQ(exchange(stranger, start + "}]"), refusal);
    EXPECT_EQ(exchange(stranger, start + R"(,"ext":{"token":"wrong"}}])"), refusal);
    EXPECT_EQ(exchange(stranger, start + R"(,"ext":{"token":["s3cret"]}}])"), refusal);
    EXPECT_NE(exchange(stranger, start + R"(,"ext":{"token":"s3cret"}}])").find(R"("successful":true)"),
              std::string::npos);
    EXPECT_NE(exchange(connection, start + "}]").find(R"("successful":true)"), std::string::npos);
    EXPECT_EQ(server->metrics()->refusals[metrics::RefusalReason::Unauthorized], 3U);
}

TEST_F(BayeuxServerTest, RefusesAHandshakeOfAnotherVersionOrTransport) {
    EXPECT_EQ(exchange(connection, R"([{"channel":"/meta/handshake","id":"1","minimumVersion":"1.1"}])"),
              R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
              R"("error":"300::the server speaks version 1.0","advice":{"reconnect":"none"}}])");
    EXPECT_EQ(
        exchange(
            connection,
            R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["callback-polling"]}])"),
        R"([{"channel":"/meta/handshake","id":"1","successful":false,"error":"301::no common connection type",)"
        R"("supportedConnectionTypes":["websocket","long-polling"],"advice":{"reconnect":"none"}}])");
}

TEST_F(BayeuxServerTest, AFailedHandshakeThatMayPassLaterCarriesNoAdvice) {
    server->stopAccepting();
    EXPECT_EQ(
        exchange(connection,
                 R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"]}])"),
        R"([{"channel":"/meta/handshake","id":"1","successful":false,"error":"503::the server is shutting down"}])");
}

TEST_F(BayeuxServerTest, CompanionsOfAHandshakeAreUnknown) {
    const std::string clientId = openSession(connection);
    const std::string reply = exchange(
        connection, R"([{"channel":"/meta/handshake","id":1,"supportedConnectionTypes":["websocket"]},)"
                    R"({"channel":"/meta/subscribe","id":2,"clientId":")" +
                        clientId + R"(","subscription":"/service/x"}])");
    EXPECT_NE(
        reply.find(R"({"channel":"/meta/subscribe","id":2,"successful":false,"error":"402::Unknown client",)"
                   R"("subscription":"/service/x"}])"),
        std::string::npos)
        << reply;
}

TEST_F(BayeuxServerTest, OfSeveralHandshakesInAFrameTheFirstCounts) {
    const std::string handshake =
        R"({"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"]})";
    EXPECT_THAT(exchange(connection, "[" + handshake + "," + handshake + "]"),
                ::testing::EndsWith(R"({"channel":"/meta/handshake","id":"1","successful":false,)"
                                    R"("error":"402::Unknown client","advice":{"reconnect":"none"}}])"));
    EXPECT_EQ(server->sessionCount(), 1U);
}

TEST_F(BayeuxServerTest, AConnectElsewhereLeavesASocketToTheOtherSessionsOnIt) {
    const std::string one = openSession(connection);
    const std::string two = openSession(connection);
    exchange(connection, request(one, "/meta/connect", ""));
    exchange(connection, request(two, "/meta/connect", ""));
    const auto other = std::make_shared<FakeConnection>();
    exchange(other, request(one, "/meta/connect", ""));
    EXPECT_FALSE(connection->superseded);
    exchange(other, request(two, "/meta/connect", ""));
    EXPECT_TRUE(connection->superseded);
}

TEST_F(BayeuxServerTest, HoldsAConnectUntilItsTimeIsOver) {
    const std::string clientId = openSession(connection);
    EXPECT_EQ(exchange(connection, request(clientId, "/meta/connect", "")), "");
    now += std::chrono::seconds(29);
    server->advance();
    EXPECT_EQ(connection->take(), "");
    now += std::chrono::seconds(1);
    server->advance();
    EXPECT_EQ(connection->take(),
              std::string(R"([{"channel":"/meta/connect","id":"7","successful":true,)") + kAdvice + "}]");
    server->advance();
    EXPECT_EQ(connection->take(), "");
}

TEST_F(BayeuxServerTest, TellsWhenTheNextConnectIsDue) {
    EXPECT_EQ(server->advance(), Clock::time_point::max());
    const auto other = std::make_shared<FakeConnection>();
    const std::string first = openSession(connection);
    const std::string second = openSession(other);
    exchange(connection, request(first, "/meta/connect", ""));
    exchange(other, request(second, "/meta/connect", R"(,"advice":{"timeout":1000})"));
    EXPECT_EQ(server->advance(), now + std::chrono::seconds(1));
    now += std::chrono::seconds(1);
    EXPECT_EQ(server->advance(), now + std::chrono::seconds(29));
}

TEST_F(BayeuxServerTest, HoldsAConnectNoLongerThanItAsks) {
    const std::string clientId = openSession(connection);
    const std::string reply =
        std::string(R"([{"channel":"/meta/connect","id":"7","successful":true,)") + kAdvice + "}]";
    EXPECT_EQ(exchange(connection, request(clientId, "/meta/connect", R"(,"advice":{"timeout":0})")), reply);
    EXPECT_EQ(exchange(connection, request(clientId, "/meta/connect", R"(,"advice":{"timeout":1000})")), "");
    now += std::chrono::seconds(1);
    server->advance();
    EXPECT_EQ(connection->take(), reply);
}

TEST_F(BayeuxServerTest, DoesNotHoldAConnectThatSharesItsFrame) {
    const std::string clientId = openSession(connection);
    const std::string reply =
        exchange(connection,
                 R"([{"channel":"/meta/connect","id":"1","clientId":")" + clientId +
                     R"("},{"channel":"/meta/subscribe","id":"2","subscription":"/service/a","clientId":")" +
                     clientId + R"("}])");
    EXPECT_EQ(
        reply,
        std::string(R"([{"channel":"/meta/connect","id":"1","successful":true,)") + kAdvice +
            R"(},{"channel":"/meta/subscribe","id":"2","successful":true,"subscription":"/service/a"}])");
}

TEST_F(BayeuxServerTest, AHeldConnectDelaysNoOtherMessage) {
    const std::string clientId = openSession(connection);
    exchange(connection, request(clientId, "/meta/connect", ""));
    EXPECT_EQ(subscribe(connection, clientId, R"("/service/a")"),
              R"([{"channel":"/meta/subscribe","id":"7","successful":true,"subscription":"/service/a"}])");
}

TEST_F(BayeuxServerTest, AnUnknownClientIsToldToHandshakeOnConnectOnly) {
    EXPECT_EQ(exchange(connection, request("nobody", "/meta/connect", "")),
              R"([{"channel":"/meta/connect","id":"7","successful":false,"error":"402::Unknown client",)"
              R"("advice":{"reconnect":"handshake","interval":0}}])");
    EXPECT_EQ(
        publish(connection, "nobody", "/yvm/attach/request", R"({"requestID":"a"})"),
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"402::Unknown client"}])");
    EXPECT_EQ(
        subscribe(connection, "nobody", R"("/a")"),
        R"([{"channel":"/meta/subscribe","id":"7","successful":false,"error":"402::Unknown client","subscription":"/a"}])");
    EXPECT_EQ(
        exchange(connection, request("nobody", "/meta/disconnect", "")),
        R"([{"channel":"/meta/disconnect","id":"7","successful":false,"error":"402::Unknown client"}])");
}

TEST_F(BayeuxServerTest, OnlyAcknowledgementsOfRequestsMayWaitForSomethingToTravelWith) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    EXPECT_TRUE(connection->lastMayWait);
    subscribe(connection, clientId, R"("/yvm/one/**")");
    EXPECT_FALSE(connection->lastMayWait);
    publish(connection, clientId, "/yvm/one/eval/request", R"({"requestID":"r"})");
    EXPECT_TRUE(connection->lastMayWait);
    publish(connection, clientId, "/yvm/two/eval/request", R"({"requestID":"r"})");
    EXPECT_FALSE(connection->lastMayWait);
    const auto inOneFrame = [&](const std::string& channel) {
        exchange(connection, R"([{"channel":"/yvm/one/eval/request","clientId":")" + clientId +
                                 R"(","data":{"requestID":"s"}},{"channel":")" + channel +
                                 R"(","clientId":")" + clientId + R"(","data":{"requestID":"t"}}])");
        return connection->lastMayWait;
    };
    EXPECT_TRUE(inOneFrame("/yvm/one/feval/request"));
    EXPECT_FALSE(inOneFrame("/meta/connect"));
    EXPECT_FALSE(inOneFrame("/yvm/two/feval/request"));
}

TEST_F(BayeuxServerTest, AMalformedConnectIsNotRepeated) {
    EXPECT_EQ(
        exchange(connection, R"([{"channel":"/meta/connect","id":"1","clientId":5}])"),
        R"([{"channel":"/meta/connect","id":"1","successful":false,"error":"400::clientId must be a string",)"
        R"("advice":{"reconnect":"none"}}])");
}

TEST_F(BayeuxServerTest, AnswersWhatCannotBeReadAndGoesOn) {
    const std::pair<const char*, const char*> cases[] = {
        {"[]", R"([{"channel":"/meta/error","successful":false,"error":"400::the array holds no message"}])"},
        {"7",
         R"([{"channel":"/meta/error","successful":false,"error":"400::an array of messages is expected"}])"},
        {"[7]",
         R"([{"channel":"/meta/error","successful":false,"error":"400::a message must be an object"}])"},
        {R"([{"id":"1"}])",
         R"([{"channel":"/meta/error","id":"1","successful":false,"error":"400::a message needs a channel"}])"},
    };
    for (const auto& [frame, reply] : cases) {
        EXPECT_EQ(exchange(connection, frame), reply) << frame;
    }
    EXPECT_EQ(exchange(connection, "hello").substr(0, 70),
              R"([{"channel":"/meta/error","successful":false,"error":"400::not JSON - )");
    EXPECT_EQ(server->metrics()->refusals[metrics::RefusalReason::BadRequest], 5U);
    openSession(connection);
}

TEST_F(BayeuxServerTest, RefusesUnknownMetaChannels) {
    const std::string clientId = openSession(connection);
    EXPECT_EQ(
        exchange(connection, request(clientId, "/meta/other", "")),
        R"([{"channel":"/meta/other","id":"7","successful":false,"error":"404::unknown channel /meta/other"}])");
}

TEST_F(BayeuxServerTest, EveryErrorIsWithinTheGrammarThatAStockClientParses) {
    const std::string clientId = openSession(connection);
    const std::string channel = "/it's a \\\"bad\\\" one: ä;,";
    const std::string reply = publish(connection, clientId, channel, "{}");
    EXPECT_EQ(
        reply,
        R"([{"channel":")" + channel +
            R"(","id":"7","successful":false,"error":"405::no valid channel name - /it_s a _bad_ one_ ____"}])");
    EXPECT_EQ(errorField({ErrorCode::Forbidden, "a:b,c'd\"e\xc3\xa4-_!~()$@/*."}),
              "403::a_b_c_d_e__-_!~()$@/*.");
}

TEST_F(BayeuxServerTest, SubscribesToAllChannelsOfAnArrayOrToNone) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    EXPECT_EQ(subscribe(connection, clientId, R"(["/yvm/one/text/output","/yvm/two/**"])"),
              R"([{"channel":"/meta/subscribe","id":"7","successful":false,)"
              R"("error":"403::the channel belongs to no client of this session",)"
              R"("subscription":["/yvm/one/text/output","/yvm/two/**"]}])");
    deliver("/yvm/one/text/output", "1");
    EXPECT_EQ(subscribe(connection, clientId, R"(["/yvm/one/text/output","/yvm/one/eval/response"])"),
              R"([{"channel":"/meta/subscribe","id":"7","successful":true,)"
              R"("subscription":["/yvm/one/text/output","/yvm/one/eval/response"]}])");
    deliver("/yvm/one/text/output", "2");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/one/text/output","data":2}])");
}

TEST_F(BayeuxServerTest, RefusesASubscribeWithoutSubscription) {
    const std::string clientId = openSession(connection);
    EXPECT_EQ(
        exchange(connection, request(clientId, "/meta/subscribe", "")),
        R"([{"channel":"/meta/subscribe","id":"7","successful":false,"error":"400::a subscribe needs a subscription"}])");
    EXPECT_EQ(subscribe(connection, clientId, "[]"),
              R"([{"channel":"/meta/subscribe","id":"7","successful":false,)"
              R"("error":"400::a subscribe needs a subscription","subscription":[]}])");
}

TEST_F(BayeuxServerTest, DeliversAMessageOnceHoweverManyPatternsMatch) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"(["/yvm/one/a","/yvm/one/*","/yvm/one/**"])");
    subscribe(connection, clientId, R"("/yvm/one/a")");
    deliver("/yvm/one/a", R"({"n":1})");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/one/a","data":{"n":1}}])");
    exchange(connection, request(clientId, "/meta/unsubscribe", R"(,"subscription":"/yvm/one/a")"));
    deliver("/yvm/one/a", R"({"n":2})");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/one/a","data":{"n":2}}])");
    exchange(connection,
             request(clientId, "/meta/unsubscribe", R"(,"subscription":["/yvm/one/*","/yvm/one/**"])"));
    deliver("/yvm/one/a", R"({"n":3})");
    workQueue.runAll();
    EXPECT_EQ(connection->take(), "");
}

TEST_F(BayeuxServerTest, ManyMessagesLeaveInOneFrame) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    deliver("/yvm/one/a", "1");
    deliver("/yvm/one/b", "{ \"x\" : [1,2] }");
    deliver("/yvm/one/c", "\"\xc3\xa4\"");
    EXPECT_EQ(await(*connection),
              R"([{"channel":"/yvm/one/a","data":1},{"channel":"/yvm/one/b","data":{ "x" : [1,2] }},)"
              "{\"channel\":\"/yvm/one/c\",\"data\":\"\xc3\xa4\"}]");
}

TEST_F(BayeuxServerTest, AFrameIsBoundedButTakesOneMessageOfAnySize) {
    BayeuxServer::Options options;
    options.maxFrameBytes = 10;
    makeServer(std::move(options));
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    deliver("/yvm/one/a", "123456");
    deliver("/yvm/one/a", "789012");
    deliver("/yvm/one/a", "34567890123456");
    ASSERT_TRUE(workQueue.runUntil([&] { return !connection->frames.empty(); }));
    EXPECT_EQ(connection->frames,
              (std::vector<std::string>{R"([{"channel":"/yvm/one/a","data":123456}])",
                                        R"([{"channel":"/yvm/one/a","data":789012}])",
                                        R"([{"channel":"/yvm/one/a","data":34567890123456}])"}));
}

TEST_F(BayeuxServerTest, MessagesWaitWhileTheConnectionIsBusy) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    connection->writable = false;
    deliver("/yvm/one/a", "1");
    workQueue.runAll();
    deliver("/yvm/one/a", "2");
    workQueue.runAll();
    EXPECT_EQ(connection->take(), "");
    connection->writable = true;
    server->writable(*connection);
    EXPECT_EQ(connection->take(), R"([{"channel":"/yvm/one/a","data":1},{"channel":"/yvm/one/a","data":2}])");
}

TEST_F(BayeuxServerTest, AMessageWithoutPayloadIsNull) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    deliver("/yvm/one/a", "");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/one/a","data":null}])");
}

TEST_F(BayeuxServerTest, RequestsAreNeverEchoed) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"(["/yvm/one/**","/yvm/one/eval/request"])");
    publish(connection, clientId, "/yvm/one/eval/request", R"({"requestID":"r"})");
    deliver("/yvm/one/eval/response", "1");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/one/eval/response","data":1}])");
}

TEST_F(BayeuxServerTest, HandsTheTextOfARequestOnAsItStands) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    std::promise<std::string> received;
    const auto service = broker->createService("test");
    const auto subscription = service
                                  ->subscribe("/yvm/one/eval/request",
                                              [&](const connector::message_service::JsonMessage& message) {
                                                  received.set_value(std::string(message.payload().view()));
                                              })
                                  .get();
    EXPECT_EQ(publish(connection, clientId, "/yvm/one/eval/request",
                      "  { \"requestID\" : \"\\u0041\" , \"n\":1e999 }  \n"),
              R"([{"channel":"/yvm/one/eval/request","id":"7","successful":true}])");
    auto future = received.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(future.get(), "{ \"requestID\" : \"\\u0041\" , \"n\":1e999 }");
}

TEST_F(BayeuxServerTest, RefusesPayloadsThatMayNotReachTheModule) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    EXPECT_EQ(
        publish(connection, clientId, "/yvm/attach/request", "{ }"),
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"400::the data must not be an empty object"}])");
    EXPECT_EQ(
        exchange(connection, request(clientId, "/yvm/attach/request", "")),
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"400::a publish needs data"}])");
    EXPECT_EQ(
        publish(connection, clientId, "/yvm/attach/request", "[1]"),
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"400::the data must be an object"}])");
    EXPECT_TRUE(fakeModule.requests().empty());
}

TEST_F(BayeuxServerTest, RefusesAnAttachWithoutIdentifier) {
    const std::string clientId = openSession(connection);
    EXPECT_EQ(
        publish(connection, clientId, "/yvm/attach/request", R"({"yvmID":"user-yvm"})"),
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"400::the request needs a requestID - a string"}])");
    EXPECT_EQ(server->clientCount(), 0U);
}

TEST_F(BayeuxServerTest, AnAttachThatOffersNothingKnownIsLeftToTheModule) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"a","supportedApiVersions":["x"]})");
    publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"b","supportedApiVersions":5})");
    EXPECT_TRUE(fakeModule.waitForRequests(2));
}

constexpr const char* kNoSinks =
    "403::the channel takes a client of this session that is attached with r22a0";

class SharedSinksTest : public BayeuxServerTest {
  protected:
    SharedSinksTest() : clientId(openSession(connection)) { fakeModule.agreeOn("r22a0"); }

    void attachAndWait(const std::string& identifier) {
        subscribe(connection, clientId, R"("/yvm/attach/response")");
        attach(clientId, identifier);
        EXPECT_THAT(await(*connection), ::testing::HasSubstr(R"("requestID":")" + identifier));
    }
    void detach(const std::string& identifier) {
        publish(connection, clientId, "/yvm/detach/request",
                R"({"requestID":"d","requestIDtoDetach":")" + identifier + "\"}");
        EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
    }
    std::string subscribeToText() { return subscribe(connection, clientId, R"("/yvm/sinks/response")"); }

    /// What the session is sent of a text on the shared channel.
    std::string heard() {
        deliver("/yvm/sinks/response", R"({"stream":0,"text":"t"})");
        workQueue.runAll();
        return connection->take();
    }

    FakeModule fakeModule{broker};
    const std::string clientId;
    const std::string subscribed =
        R"([{"channel":"/meta/subscribe","id":"7","successful":true,"subscription":"/yvm/sinks/response"}])";
    const std::string text = R"([{"channel":"/yvm/sinks/response","data":{"stream":0,"text":"t"}}])";
};

TEST_F(SharedSinksTest, AreForSessionsOfWhichAClientIsAttachedWithThatVersion) {
    const auto other = std::make_shared<FakeConnection>();
    const std::string otherId = openSession(other);
    attachAndWait("one");
    EXPECT_EQ(publish(connection, clientId, "/yvm/sinks/set", "{}"),
              R"([{"channel":"/yvm/sinks/set","id":"7","successful":true}])");
    EXPECT_EQ(subscribeToText(), subscribed);
    EXPECT_EQ(publish(other, otherId, "/yvm/sinks/set", "{}"),
              R"([{"channel":"/yvm/sinks/set","id":"7","successful":false,"error":")" +
                  std::string(kNoSinks) + R"("}])");
    EXPECT_EQ(subscribe(other, otherId, R"("/yvm/sinks/response")"),
              R"([{"channel":"/meta/subscribe","id":"7","successful":false,"error":")" +
                  std::string(kNoSinks) + R"(","subscription":"/yvm/sinks/response"}])");
    EXPECT_EQ(heard(), text);
    EXPECT_EQ(other->take(), "");
}

TEST_F(SharedSinksTest, AreSetByTheTextOfTheRequestAsItStands) {
    attachAndWait("one");
    std::string set;
    const auto recording = broker->subscribeInline(
        "/yvm/sinks/set", [&](const auto& message) { set = std::string(message.payload().view()); });
    publish(connection, clientId, "/yvm/sinks/set", R"( {"outSinkTraits": {}} )");
    EXPECT_EQ(set, R"({"outSinkTraits": {}})");
    EXPECT_EQ(publish(connection, clientId, "/yvm/sinks/set", R"({"outSinkTraits":null})"),
              R"([{"channel":"/yvm/sinks/set","id":"7","successful":false,)"
              R"("error":"400::outSinkTraits and errSinkTraits must be objects"}])");
    EXPECT_EQ(set, R"({"outSinkTraits": {}})");
}

TEST_F(SharedSinksTest, AreReadUntilTheLastSuchClientIsDetached) {
    attachAndWait("one");
    attachAndWait("two");
    subscribeToText();
    publish(connection, clientId, "/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":"one"})");
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 1; }));
    EXPECT_EQ(heard(), text);
    detach("two");
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(server->gauges().subscriptions, 1U) << "that to the answers of attaches";
}

TEST_F(SharedSinksTest, AreReadNoMoreOnceTheClientIsAttachedAnewWithTheNewerVersion) {
    attachAndWait("one");
    subscribeToText();
    publish(connection, clientId, "/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":"one"})");
    fakeModule.agreeOn("r24a0");
    attachAndWait("one");
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(server->clientCount(), 1U);
}

TEST_F(BayeuxServerTest, AnAttachResponseReachesOnlyTheSessionThatAsked) {
    FakeModule fakeModule(broker);
    const auto other = std::make_shared<FakeConnection>();
    const std::string clientId = openSession(connection);
    const std::string otherId = openSession(other);
    subscribe(connection, clientId, R"("/yvm/attach/response")");
    subscribe(other, otherId, R"("/yvm/attach/response")");
    other->take();
    attach(clientId, "one");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/attach/response","data":{"requestID":"one"}}])");
    workQueue.runAll();
    EXPECT_EQ(other->take(), "");
}

TEST_F(BayeuxServerTest, ARefusedAttachFreesItsIdentifier) {
    FakeModule fakeModule(broker);
    fakeModule.refuseAttaches();
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    EXPECT_EQ(server->clientCount(), 1U);
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
}

TEST_F(BayeuxServerTest, ADetachFreesTheIdentifierAndEndsItsSubscriptions) {
    FakeModule fakeModule(broker);
    const auto other = std::make_shared<FakeConnection>();
    const std::string clientId = openSession(connection);
    const std::string otherId = openSession(other);
    attach(clientId, "one");
    subscribe(connection, clientId, R"(["/yvm/one/**","/yvm/detach/response"])");
    const std::string refused =
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"403::the requestID is in use by another session"}])";
    const std::string attachRequest = R"({"requestID":"one"})";
    EXPECT_EQ(publish(other, otherId, "/yvm/attach/request", attachRequest), refused);
    publish(connection, clientId, "/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":"one"})");
    EXPECT_EQ(
        publish(connection, clientId, "/yvm/one/eval/request", R"({"requestID":"e"})"),
        R"([{"channel":"/yvm/one/eval/request","id":"7","successful":false,"error":"403::the client is being detached"}])");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/detach/response","data":{"requestID":"d"}}])");
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
    EXPECT_EQ(publish(other, otherId, "/yvm/attach/request", attachRequest),
              R"([{"channel":"/yvm/attach/request","id":"7","successful":true}])");
    deliver("/yvm/one/text/output", R"({"secret":1})");
    workQueue.runAll();
    EXPECT_EQ(connection->take(), "");
}

TEST_F(BayeuxServerTest, ADetachOfAnotherSessionsClientIsRefused) {
    FakeModule fakeModule(broker);
    const auto other = std::make_shared<FakeConnection>();
    const std::string clientId = openSession(connection);
    const std::string otherId = openSession(other);
    attach(clientId, "one");
    EXPECT_EQ(
        publish(other, otherId, "/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":"one"})"),
        R"([{"channel":"/yvm/detach/request","id":"7","successful":false,"error":"403::the client belongs to another session"}])");
}

TEST_F(BayeuxServerTest, DetachesOfOneRequestIdAreAnsweredToWhoeverAsked) {
    FakeModule fakeModule(broker);
    const auto other = std::make_shared<FakeConnection>();
    const std::string clientId = openSession(connection);
    const std::string otherId = openSession(other);
    subscribe(connection, clientId, R"("/yvm/detach/response")");
    subscribe(other, otherId, R"("/yvm/detach/response")");
    connection->take();
    other->take();
    std::string first =
        request(clientId, "/yvm/detach/request", R"(,"data":{"requestID":"d","requestIDtoDetach":"x"})");
    std::string second =
        request(otherId, "/yvm/detach/request", R"(,"data":{"requestID":"d","requestIDtoDetach":"y"})");
    server->receive(connection, first);
    server->receive(other, second);
    connection->take();
    other->take();
    const std::string response = R"([{"channel":"/yvm/detach/response","data":{"requestID":"d"}}])";
    EXPECT_EQ(await(*connection), response);
    EXPECT_EQ(await(*other), response);
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
    EXPECT_EQ(fakeModule.requests().size(), 2U);
}

/// What the server answers in the module's stead.
std::string unanswered(const std::string& why) {
    return R"([{"channel":"/yvm/detach/response","data":{"error":{"arguments":[],"causes":[],)"
           R"("exceptionJson":null,"functionName":"","identifier":"","message":")" +
           why + R"(","shutdown":false,"stackFrames":[],"status":5},"requestID":"d"}}])";
}

TEST_F(BayeuxServerTest, ADetachThatTheModuleDoesNotAnswerIsAnswered) {
    FakeModule fakeModule(broker);
    fakeModule.fallSilent();
    const std::string clientId = openSession(connection);
    subscribe(connection, clientId, R"("/yvm/detach/response")");
    for (const char* identifier : {"x", "no identifier"}) {
        publish(connection, clientId, "/yvm/detach/request",
                R"({"requestID":"d","requestIDtoDetach":")" + std::string(identifier) + "\"}");
        EXPECT_EQ(await(*connection), unanswered("the request was not answered"));
    }
}

TEST_F(BayeuxServerTest, ADetachWhoseClientWasTakenWhileItWaitedIsAnsweredWithAnError) {
    FakeModule fakeModule(broker);
    const auto other = std::make_shared<FakeConnection>();
    const std::string clientId = openSession(connection);
    const std::string otherId = openSession(other);
    subscribe(other, otherId, R"("/yvm/detach/response")");
    publish(connection, clientId, "/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":"x"})");
    publish(other, otherId, "/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":"y"})");
    attach(clientId, "y");
    EXPECT_EQ(await(*other), unanswered("the client belongs to another session"));
}

TEST_F(BayeuxServerTest, QuotesNoMoreThanTheBeginningOfALongChannel) {
    const std::string clientId = openSession(connection);
    const std::string error = R"("error":"404::unknown channel /meta/)" + std::string(94, 'x') + R"(...")";
    EXPECT_THAT(exchange(connection, request(clientId, "/meta/" + std::string(5000, 'x'), "")),
                ::testing::HasSubstr(error));
}

TEST_F(BayeuxServerTest, ASessionHasAThousandSubscriptionsAtMost) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    const auto channels = [](int first, int count) {
        std::string text = "[";
        for (int i = first; i < first + count; ++i) {
            text += (i == first ? "\"/yvm/one/" : ",\"/yvm/one/") + std::to_string(i) + '"';
        }
        return text + "]";
    };
    const std::string refusal = R"("error":"413::a session may have 1000 subscriptions at most")";
    EXPECT_THAT(subscribe(connection, clientId, channels(0, 1001)), ::testing::HasSubstr(refusal));
    EXPECT_THAT(subscribe(connection, clientId, channels(0, 1000)),
                ::testing::HasSubstr(R"("successful":true)"));
    EXPECT_THAT(subscribe(connection, clientId, channels(999, 2)), ::testing::HasSubstr(refusal));
    EXPECT_THAT(subscribe(connection, clientId, R"(["/service/a","/service/**","/yvm/one/5"])"),
                ::testing::HasSubstr(R"("successful":true)"));
}

TEST_F(BayeuxServerTest, OnlyEvalsAndFevalsOfAClientAreInFlight) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    for (const char* rest :
         {"eval/sub/eval/request", "eval/x/request", "sub/eval/request", "xeval/request"}) {
        publish(connection, clientId, "/yvm/one/" + std::string(rest), R"({"requestID":"e"})");
    }
    EXPECT_EQ(server->requestsInFlight().count(), 0U);
    publish(connection, clientId, "/yvm/one/eval/request", R"({"requestID":"e"})");
    publish(connection, clientId, "/yvm/one/feval/request", R"({"requestID":"f"})");
    EXPECT_EQ(server->requestsInFlight().count(), 2U);
}

TEST_F(BayeuxServerTest, ADisconnectAnswersTheConnectFirstAndDetachesTheClients) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    attach(clientId, "two");
    ASSERT_TRUE(fakeModule.waitForRequests(2));
    exchange(connection, request(clientId, "/meta/connect", ""));
    EXPECT_EQ(
        exchange(connection, R"([{"channel":"/meta/disconnect","id":"9","clientId":")" + clientId + R"("}])"),
        R"([{"channel":"/meta/connect","id":"7","successful":true,"advice":{"reconnect":"none"}}])"
        R"([{"channel":"/meta/disconnect","id":"9","successful":true}])");
    EXPECT_EQ(server->sessionCount(), 0U);
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
    const auto requests = fakeModule.requests();
    ASSERT_EQ(requests.size(), 4U);
    EXPECT_THAT(requests[2],
                MatchesRegex(R"re(\{"requestID":"server-[0-9a-f]{32}","requestIDtoDetach":"one"\})re"));
    EXPECT_TRUE(requests[3].ends_with(R"("requestIDtoDetach":"two"})")) << requests[3];
    EXPECT_FALSE(connection->closeCode);
    now += std::chrono::seconds(1);
    server->advance();
    EXPECT_EQ(connection->closeCode, CloseCode::Normal);
}

TEST_F(BayeuxServerTest, ASessionOutlivesItsConnectionForItsGraceTime) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    exchange(connection, request(clientId, "/meta/connect", ""));
    server->closed(*connection);
    deliver("/yvm/one/a", "1");
    workQueue.runAll();
    now += std::chrono::seconds(60);
    server->advance();
    const auto next = std::make_shared<FakeConnection>();
    EXPECT_EQ(exchange(next, request(clientId, "/meta/connect", R"(,"advice":{"timeout":0})")),
              std::string(R"([{"channel":"/meta/connect","id":"7","successful":true,)") + kAdvice +
                  R"(}][{"channel":"/yvm/one/a","data":1}])");
    EXPECT_EQ(connection->take(), "");
}

TEST_F(BayeuxServerTest, ASessionThatDoesNotComeBackIsEndedAndItsClientsDetached) {
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    ASSERT_TRUE(fakeModule.waitForRequests(1));
    server->closed(*connection);
    now += std::chrono::milliseconds(60'001);
    server->advance();
    EXPECT_EQ(server->sessionCount(), 0U);
    EXPECT_TRUE(workQueue.runUntil([&] { return server->clientCount() == 0; }));
    EXPECT_EQ(fakeModule.requests().size(), 2U);
}

TEST_F(BayeuxServerTest, TheGraceTimeCountsFromTheAnswerToAConnect) {
    const std::string clientId = openSession(connection);
    exchange(connection, request(clientId, "/meta/connect", ""));
    now += std::chrono::seconds(30);
    server->advance();
    now += std::chrono::seconds(60);
    server->advance();
    EXPECT_EQ(server->sessionCount(), 1U);
}

TEST_F(BayeuxServerTest, AHeldConnectKeepsTheSession) {
    BayeuxServer::Options options;
    options.connectTimeout = std::chrono::hours(1);
    makeServer(std::move(options));
    const std::string clientId = openSession(connection);
    exchange(connection, request(clientId, "/meta/connect", ""));
    now += std::chrono::minutes(59);
    server->advance();
    EXPECT_EQ(server->sessionCount(), 1U);
}

TEST_F(BayeuxServerTest, OfTwoConnectsOverTwoConnectionsTheNewerWins) {
    const std::string clientId = openSession(connection);
    exchange(connection, request(clientId, "/meta/connect", ""));
    const auto newer = std::make_shared<FakeConnection>();
    EXPECT_EQ(exchange(newer, request(clientId, "/meta/connect", "")), "");
    EXPECT_TRUE(connection->superseded);
    EXPECT_EQ(connection->take(), "");
    now += std::chrono::seconds(30);
    server->advance();
    EXPECT_NE(newer->take(), "");
    EXPECT_EQ(connection->take(), "");
}

TEST_F(BayeuxServerTest, OfTwoConnectsOverOneConnectionTheOlderIsAnswered) {
    const std::string clientId = openSession(connection);
    exchange(connection, request(clientId, "/meta/connect", ""));
    EXPECT_EQ(
        exchange(connection, R"([{"channel":"/meta/connect","id":"8","clientId":")" + clientId + R"("}])"),
        std::string(R"([{"channel":"/meta/connect","id":"7","successful":true,)") + kAdvice + "}]");
}

TEST_F(BayeuxServerTest, ASlowReaderIsToldWhyItsSessionEnds) {
    BayeuxServer::Options options;
    options.limits.maxQueueBytes = 100;
    makeServer(std::move(options));
    FakeModule fakeModule(broker);
    const std::string clientId = openSession(connection);
    attach(clientId, "one");
    subscribe(connection, clientId, R"("/yvm/one/**")");
    exchange(connection, request(clientId, "/meta/connect", ""));
    connection->writable = false;
    deliver("/yvm/one/a", '"' + std::string(500, 'x') + '"');
    workQueue.runAll();
    EXPECT_EQ(server->sessionCount(), 1U) << "an empty queue takes one message of any size";
    deliver("/yvm/one/a", "1");
    EXPECT_EQ(await(*connection),
              R"([{"channel":"/meta/connect","id":"7","successful":false,)"
              R"("error":"413::more than 100 bytes wait for this session","advice":{"reconnect":"none"}}])");
    EXPECT_EQ(connection->closeCode, CloseCode::PolicyViolation);
    EXPECT_EQ(connection->closeReason, "413::more than 100 bytes wait for this session");
    EXPECT_EQ(server->sessionCount(), 0U);
}

/// A server whose gate has small bounds and whose time is the test's, and a session that reads nothing.
class SlowReaderTest : public BayeuxServerTest {
  protected:
    using Way = output::TextGate::Way;

    SlowReaderTest() {
        output::TextGate::Options bounds;
        bounds.highWater = 200;
        bounds.lowWater = 100;
        bounds.maxUnpublished = 50;
        gate = std::make_shared<output::TextGate>(bounds, pool);
        BayeuxServer::Options options;
        options.textGate = gate;
        makeServer(std::move(options));
        clientId = openSession(connection);
        attach(clientId, "one");
        subscribe(connection, clientId, R"("/yvm/one/**")");
        exchange(connection, request(clientId, "/meta/connect", ""));
        connection->writable = false;
    }

    /// Text that the command writes to its own stream, or client-wide.
    void write(const std::string& channel, std::size_t size) {
        const cmddistributor::RequestIdScope scope(command);
        deliver("/yvm/one" + channel, '"' + std::string(size, 'x') + '"');
        workQueue.runAll();
    }
    bool mayWrite(Way way = Way::OwnStreams) const { return gate->mayWrite(way, command); }

    FakeModule fakeModule{broker};
    const std::shared_ptr<platform_testing::FakeThreadPool> pool =
        std::make_shared<platform_testing::FakeThreadPool>();
    std::shared_ptr<output::TextGate> gate;
    std::string clientId;
    const output::TextGate::IDType command;
};

TEST_F(SlowReaderTest, TextAboveTheHighWaterHoldsItsCommandUntilItHasSunkToTheLow) {
    write("/text/output", 150);
    EXPECT_TRUE(mayWrite());
    write("/text/error", 150);
    EXPECT_FALSE(mayWrite());
    EXPECT_TRUE(mayWrite(Way::ClientWideSinks));
    connection->writable = true;
    server->writable(*connection);
    EXPECT_TRUE(mayWrite());
    EXPECT_EQ(server->sessionCount(), 1U);
}

TEST_F(SlowReaderTest, AnEventAboveTheHighWaterHoldsTheCommandThatCausedIt) {
    write("/event/fireEvent", 300);
    EXPECT_FALSE(mayWrite());
    EXPECT_TRUE(mayWrite(Way::ClientWideSinks));
}

TEST_F(SlowReaderTest, WhatIsNeitherTextNorEventHoldsNobody) {
    write("/eval/response", 1'000);
    EXPECT_TRUE(mayWrite());
}

TEST_F(SlowReaderTest, ClientWideTextHoldsAllThatWriteIt) {
    write("/yvmSinks/output", 300);
    EXPECT_FALSE(mayWrite(Way::ClientWideSinks));
    EXPECT_TRUE(mayWrite());
}

TEST_F(SlowReaderTest, TextOfTheOlderVersionHoldsItsCommandToo) {
    write("/output", 300);
    EXPECT_FALSE(mayWrite());
    EXPECT_TRUE(mayWrite(Way::ClientWideSinks));
}

TEST_F(SlowReaderTest, PublishedTextOfTheSharedSinksNoLongerCounts) {
    gate->hasWritten(Way::ClientWideSinks, command, 60);
    EXPECT_FALSE(mayWrite(Way::ClientWideSinks));
    deliver("/yvm/sinks/response", "1");
    EXPECT_TRUE(mayWrite(Way::ClientWideSinks));
}

TEST_F(SlowReaderTest, PublishedTextNoLongerCounts) {
    gate->hasWritten(Way::ClientWideSinks, command, 60);
    EXPECT_FALSE(mayWrite(Way::ClientWideSinks));
    write("/yvmSinks/output", 60);
    EXPECT_TRUE(mayWrite(Way::ClientWideSinks));
}

TEST_F(SlowReaderTest, PublishedTextNoLongerCountsAlsoWhenNobodyListens) {
    exchange(connection, request(clientId, "/meta/unsubscribe", R"(,"subscription":"/yvm/one/**")"));
    gate->hasWritten(Way::ClientWideSinks, command, 60);
    EXPECT_FALSE(mayWrite(Way::ClientWideSinks));
    write("/yvmSinks/output", 60);
    EXPECT_TRUE(mayWrite(Way::ClientWideSinks));
}

TEST_F(SlowReaderTest, ASessionThatHoldsAWriterTooLongIsToldSoAndEnds) {
    write("/text/output", 300);
    EXPECT_FALSE(mayWrite());
    pool->advance(std::chrono::milliseconds(9'999));
    EXPECT_FALSE(mayWrite());
    pool->advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(mayWrite()) << "the writer does not wait for the end of the session";
    EXPECT_EQ(await(*connection),
              R"([{"channel":"/meta/connect","id":"7","successful":false,)"
              R"("error":"413::the engine waited 10 s for this session to read its text",)"
              R"("advice":{"reconnect":"none"}}])");
    EXPECT_EQ(connection->closeCode, CloseCode::PolicyViolation);
    EXPECT_EQ(server->sessionCount(), 0U);
    const auto& metrics = *server->metrics();
    EXPECT_EQ(metrics.refusals[metrics::RefusalReason::SlowReader], 1U);
    EXPECT_EQ(metrics.sessionsEnded[metrics::SessionEnd::SlowReader], 1U);
    EXPECT_EQ(server->gauges().outputWaits, 2U);
    write("/text/output", 300);
    EXPECT_TRUE(mayWrite());
}

TEST_F(SlowReaderTest, TheEndOfASessionLetsItsWritersGo) {
    write("/text/output", 300);
    EXPECT_FALSE(mayWrite());
    exchange(connection, request(clientId, "/meta/disconnect", ""));
    EXPECT_TRUE(mayWrite());
}

TEST_F(SlowReaderTest, TheEndOfTheServerLetsWritersGo) {
    write("/text/output", 300);
    EXPECT_FALSE(mayWrite());
    server.reset();
    EXPECT_TRUE(mayWrite());
    pool->advance(std::chrono::seconds(60));
}

TEST_F(BayeuxServerTest, WithoutAHeldConnectTheEndIsADisconnect) {
    openSession(connection);
    now += std::chrono::minutes(2);
    server->advance();
    EXPECT_EQ(connection->take(),
              R"([{"channel":"/meta/disconnect","successful":true,"error":"402::the session has expired"}])");
    EXPECT_EQ(connection->closeCode, CloseCode::PolicyViolation);
}

TEST_F(BayeuxServerTest, ARequestAfterTheStopIsRefused) {
    const std::string clientId = openSession(connection);
    server->stopAccepting();
    EXPECT_EQ(
        publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"a"})"),
        R"([{"channel":"/yvm/attach/request","id":"7","successful":false,"error":"503::the server is shutting down"}])");
}

TEST_F(BayeuxServerTest, OnAConnectionThatDoesNotStreamEventsTravelWithTheConnect) {
    FakeModule fakeModule(broker);
    const auto polling = std::make_shared<FakeConnection>(false);
    const std::string clientId = openSession(polling);
    attach(clientId, "one");
    subscribe(polling, clientId, R"("/yvm/one/**")");
    deliver("/yvm/one/a", "1");
    workQueue.runAll();
    EXPECT_EQ(polling->take(), "");
    const std::string reply =
        std::string(R"([{"channel":"/meta/connect","id":"7","successful":true,)") + kAdvice + "}";
    EXPECT_EQ(exchange(polling, request(clientId, "/meta/connect", "")),
              reply + R"(,{"channel":"/yvm/one/a","data":1}])");
    EXPECT_EQ(exchange(polling, request(clientId, "/meta/connect", "")), "");
    deliver("/yvm/one/a", "2");
    EXPECT_EQ(await(*polling), reply + R"(,{"channel":"/yvm/one/a","data":2}])");
}

}  // namespace
}  // namespace server::bayeux::testing
