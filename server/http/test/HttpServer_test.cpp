#include "server/http/HttpServer.hpp"

#include "server/bayeux/test/BayeuxFixture.hpp"
#include "server/http/test/TemporaryFolder.hpp"
#include "server/http/test/WebSocketClient.hpp"
#include "server/metrics/test/PrometheusReader.hpp"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace server::http {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using bayeux::testing::FakeModule;
using server::testing::WebSocketClient;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::testing::ThrowsMessage;
using tcp = asio::ip::tcp;

constexpr std::size_t kMaxMessageBytes = 100'000;

class HttpServerTest : public ::testing::Test {
  protected:
    HttpServerTest() {
        broker->start();
        HttpServer::Options options;
        options.guard.token = "s3cret";
        options.guard.allowedOrigins = {"https://friend.example"};
        options.limits.maxMessageBytes = kMaxMessageBytes;
        options.isReady = [this] { return ready.load(); };
        folder.write("index.html", "<p>hello");
        options.files = StaticFiles(folder.path());
        start(std::move(options));
    }

    ~HttpServerTest() override {
        server.reset();
        broker->stop();
    }

    void start(HttpServer::Options options) {
        options.port = 0;
        server.reset();
        server = std::make_unique<HttpServer>(broker, std::move(options));
        server->start();
    }

    beast::http::response<beast::http::string_body> request(
        beast::http::verb verb, const std::string& target,
        const std::map<std::string, std::string>& headers = {}, std::string body = "") {
        beast::http::request<beast::http::string_body> message(verb, target, 11);
        message.set(beast::http::field::host, "127.0.0.1:" + std::to_string(server->port()));
        for (const auto& [name, value] : headers) {
            message.set(name, value);
        }
        message.body() = std::move(body);
        message.prepare_payload();
        return sendRaw(message);
    }

    template <typename Message>
    beast::http::response<beast::http::string_body> sendRaw(const Message& message) {
        asio::io_context context;
        beast::tcp_stream stream(context);
        beast::flat_buffer buffer;
        beast::http::response_parser<beast::http::string_body> parser;
        parser.skip(message.method() == beast::http::verb::head);
        beast::error_code error;
        stream.expires_after(std::chrono::seconds(60));
        stream.async_connect(tcp::endpoint(asio::ip::address_v4::loopback(), server->port()),
                             [&](beast::error_code e) { error = e; });
        context.run();
        context.restart();
        beast::http::async_write(stream, message, [&](beast::error_code e, std::size_t) { error = e; });
        beast::http::async_read(stream, buffer, parser, [&](beast::error_code e, std::size_t) { error = e; });
        context.run();
        EXPECT_FALSE(error) << error.message();
        return parser.release();
    }

    /// An open session.
    WebSocketClient openClient() { return WebSocketClient(server->port(), "/bayeux?token=s3cret"); }

    /// Returns when the server has dealt with what was sent to it before. Its one thread takes a few turns
    /// for a request, whichever connection it comes over, so some that are sent later are answered later.
    void settle() {
        for (int i = 0; i < 5; ++i) {
            request(beast::http::verb::get, "/healthz");
        }
    }

    server::testing::TemporaryFolder folder;
    std::atomic<bool> ready{true};
    std::shared_ptr<connector::message_service::Broker> broker = connector::message_service::Broker::create();
    std::unique_ptr<HttpServer> server;
};

TEST_F(HttpServerTest, ServesThePageWithItsPolicy) {
    const auto response = request(beast::http::verb::get, "/?token=x");
    EXPECT_EQ(response.result_int(), 200U);
    EXPECT_EQ(response.body(), "<p>hello");
    EXPECT_EQ(response["Content-Type"], "text/html; charset=utf-8");
    EXPECT_EQ(response["X-Content-Type-Options"], "nosniff");
    EXPECT_EQ(response["Referrer-Policy"], "no-referrer");
    EXPECT_EQ(response["Cache-Control"], "no-cache");
    EXPECT_THAT(std::string(response["Content-Security-Policy"]), HasSubstr("default-src 'self'; "));
    EXPECT_THAT(std::string(response["Content-Security-Policy"]), HasSubstr("worker-src 'self' blob:; "));
    const auto known =
        request(beast::http::verb::get, "/", {{"If-None-Match", std::string(response["ETag"])}});
    EXPECT_EQ(known.result_int(), 304U);
    EXPECT_EQ(known.body(), "");
    const auto head = request(beast::http::verb::head, "/");
    EXPECT_EQ(head.result_int(), 200U);
    EXPECT_EQ(head["Content-Length"], "8");
}

TEST_F(HttpServerTest, TellsHealthAndReadiness) {
    EXPECT_EQ(request(beast::http::verb::get, "/healthz").body(), "ok\n");
    EXPECT_EQ(request(beast::http::verb::get, "/readyz").body(), "ready\n");
    ready = false;
    EXPECT_EQ(request(beast::http::verb::get, "/readyz").result_int(), 503U);
    EXPECT_EQ(request(beast::http::verb::get, "/healthz").result_int(), 200U);
}

TEST_F(HttpServerTest, AnswersWhatItDoesNotServeWithAReason) {
    EXPECT_EQ(request(beast::http::verb::get, "/nothing").result_int(), 404U);
    EXPECT_EQ(request(beast::http::verb::get, "/../etc/passwd").result_int(), 404U);
    EXPECT_EQ(request(beast::http::verb::post, "/").result_int(), 405U);
    EXPECT_EQ(request(beast::http::verb::get, "/bayeux?jsonp=f&message=[]").result_int(), 400U);
    EXPECT_EQ(request(beast::http::verb::get, "/x", {{"X-Long", std::string(20'000, 'x')}}).result_int(),
              431U);
}

TEST_F(HttpServerTest, KeepsAConnectionForTheNextRequest) {
    asio::io_context context;
    beast::tcp_stream stream(context);
    stream.connect(tcp::endpoint(asio::ip::address_v4::loopback(), server->port()));
    beast::flat_buffer buffer;
    // Both at once: the second waits its turn.
    const std::string two = "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\nGET /readyz HTTP/1.1\r\nHost: x\r\n\r\n";
    asio::write(stream, asio::buffer(two));
    for (const char* body : {"ok\n", "ready\n"}) {
        beast::http::response<beast::http::string_body> response;
        beast::http::read(stream, buffer, response);
        EXPECT_EQ(response.body(), body);
    }
}

TEST_F(HttpServerTest, IsNotReadyOnceItAcceptsNoMore) {
    asio::io_context context;
    beast::tcp_stream stream(context);
    stream.connect(tcp::endpoint(asio::ip::address_v4::loopback(), server->port()));
    beast::flat_buffer buffer;
    const auto readiness = [&] {
        asio::write(stream, asio::buffer(std::string("GET /readyz HTTP/1.1\r\nHost: x\r\n\r\n")));
        beast::http::response<beast::http::string_body> response;
        beast::http::read(stream, buffer, response);
        return response.result_int();
    };
    EXPECT_EQ(readiness(), 200U);
    server->stopAccepting();
    EXPECT_EQ(readiness(), 503U);
}

TEST_F(HttpServerTest, RefusesByTheHeaderBeforeABodyHasCome) {
    const auto statusOf = [&](const std::string& header) {
        asio::io_context context;
        beast::tcp_stream stream(context);
        stream.connect(tcp::endpoint(asio::ip::address_v4::loopback(), server->port()));
        asio::write(stream, asio::buffer(header + "\r\nHost: x\r\n\r\n"));
        beast::flat_buffer buffer;
        beast::http::response<beast::http::string_body> response;
        beast::error_code error;
        stream.expires_after(std::chrono::seconds(60));
        beast::http::async_read(stream, buffer, response,
                                [&](beast::error_code e, std::size_t) { error = e; });
        context.run();
        EXPECT_FALSE(error) << error.message();
        EXPECT_FALSE(response.keep_alive());
        return response.result_int();
    };
    const std::string json = "\r\nContent-Type: application/json";
    const std::string body = "\r\nContent-Length: 100000";
    EXPECT_EQ(statusOf("POST /bayeux HTTP/1.1\r\nContent-Type: text/plain" + body), 415U);
    EXPECT_EQ(statusOf("POST /bayeux HTTP/1.1\r\nOrigin: https://evil.example" + json + body), 403U);
    EXPECT_EQ(statusOf("POST /other HTTP/1.1" + json + body), 405U);
    EXPECT_EQ(statusOf("PUT /bayeux HTTP/1.1" + json + body), 405U);
    EXPECT_EQ(statusOf("GET /nothing HTTP/1.1" + body), 404U);
    EXPECT_EQ(statusOf("POST /other HTTP/1.1\r\nTransfer-Encoding: chunked" + json), 405U);
    EXPECT_EQ(statusOf("POST /bayeux HTTP/1.1" + json + "\r\nContent-Length: 9999999999"), 413U);
}

TEST_F(HttpServerTest, AnUpgradeWithAWrongTokenIs401) {
    const WebSocketClient inQuery(server->port(), "/bayeux?token=wrong");
    EXPECT_FALSE(inQuery.isOpen);
    EXPECT_EQ(inQuery.response.result_int(), 401U);
    const WebSocketClient inHeader(server->port(), "/bayeux", {{"Authorization", "Bearer wrong"}});
    EXPECT_EQ(inHeader.response.result_int(), 401U);
}

TEST_F(HttpServerTest, AnUpgradeIsNoWayToGuessATokenWithoutBeingCounted) {
    HttpServer::Options options;
    options.guard.token = "s3cret";
    options.limits.maxFailedHandshakesPerMinute = 2;
    start(std::move(options));
    WebSocketClient bystander = openClient();
    bystander.handshake();
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux?token=wrong").response.result_int(), 401U);
    WebSocketClient(server->port()).handshake(R"(,"ext":{"token":"wrong"})");
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux?token=wrong").response.result_int(), 429U);
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux?token=s3cret").response.result_int(), 429U);
    // What needs no token goes on: a session that exists may come over a new socket.
    WebSocketClient next(server->port());
    next.clientId = bystander.clientId;
    EXPECT_THAT(next.exchange(next.message("/meta/connect", R"(,"advice":{"timeout":0})")),
                HasSubstr(R"("successful":true)"));
}

TEST_F(HttpServerTest, AHandshakeMayBringTheTokenInEachOfThreeWays) {
    EXPECT_THAT(WebSocketClient(server->port(), "/bayeux?token=s3cret").handshake(),
                HasSubstr(R"("successful":true)"));
    EXPECT_THAT(WebSocketClient(server->port(), "/bayeux/", {{"Authorization", "Bearer s3cret"}}).handshake(),
                HasSubstr(R"("successful":true)"));
    EXPECT_THAT(WebSocketClient(server->port()).handshake(R"(,"ext":{"token":"s3cret"})"),
                HasSubstr(R"("successful":true)"));
    EXPECT_EQ(WebSocketClient(server->port()).handshake(),
              R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
              R"("error":"401::the token is missing or wrong","advice":{"reconnect":"none"}}])");
}

TEST_F(HttpServerTest, AnUpgradeFromAForeignPageIs403) {
    const std::string own = "http://127.0.0.1:" + std::to_string(server->port());
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux", {{"Origin", "https://evil.example"}})
                  .response.result_int(),
              403U);
    EXPECT_TRUE(WebSocketClient(server->port(), "/bayeux", {{"Origin", "https://friend.example"}}).isOpen);
    EXPECT_TRUE(WebSocketClient(server->port(), "/bayeux", {{"Origin", own}}).isOpen);
}

TEST_F(HttpServerTest, WithoutATokenAForeignHostNameIsNoSameOrigin) {
    HttpServer::Options options;
    start(std::move(options));
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux",
                              {{"Origin", "http://evil.example"}, {"Host", "evil.example"}})
                  .response.result_int(),
              403U);
    EXPECT_THAT(WebSocketClient(server->port()).handshake(), HasSubstr(R"("successful":true)"));
}

TEST_F(HttpServerTest, UpgradesAtBayeuxOnly) {
    EXPECT_EQ(WebSocketClient(server->port(), "/other").response.result_int(), 404U);
}

TEST_F(HttpServerTest, EchoesTheFirstSubprotocolThatIsOffered) {
    EXPECT_EQ(WebSocketClient(server->port()).response["Sec-WebSocket-Protocol"], "");
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux", {{"Sec-WebSocket-Protocol", "a, b"}})
                  .response["Sec-WebSocket-Protocol"],
              "a");
}

TEST_F(HttpServerTest, CarriesRequestsAndMessagesOverAWebSocket) {
    FakeModule fakeModule(broker);
    WebSocketClient client = openClient();
    client.handshake();
    EXPECT_EQ(
        client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/attach/response")")),
        R"([{"channel":"/meta/subscribe","id":"7","successful":true,"subscription":"/yvm/attach/response"}])");
    client.exchange(client.message("/meta/connect", R"(,"advice":{"timeout":0})"));
    EXPECT_EQ(client.exchangeUntil(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"),
                                   "/yvm/attach/response"),
              R"([{"channel":"/yvm/attach/request","id":"7","successful":true},)"
              R"({"channel":"/yvm/attach/response","data":{"requestID":"a"}}])");
    EXPECT_THAT(client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/a/**")")),
                HasSubstr(R"("successful":true)"));
    const std::string large(3'000'000, 'x');
    broker->publish("/yvm/a/text/output", connector::common::DataBuffer('"' + large + '"'), "test");
    EXPECT_EQ(client.receive(), R"([{"channel":"/yvm/a/text/output","data":")" + large + R"("}])");
}

TEST_F(HttpServerTest, BadMessagesAreAnsweredAndTheServerGoesOn) {
    FakeModule fakeModule(broker);
    WebSocketClient client = openClient();
    WebSocketClient bystander = openClient();
    bystander.handshake();
    EXPECT_THAT(client.exchange("hello"),
                StartsWith(R"([{"channel":"/meta/error","successful":false,"error":"400::not JSON)"));
    EXPECT_THAT(client.exchange("[]"), HasSubstr("400::the array holds no message"));
    EXPECT_THAT(client.exchange("\xff\xfe"), StartsWith("closed 1007"));
    WebSocketClient next = openClient();
    next.handshake();
    const auto publish = [&](const std::string& data) {
        return next.exchange(next.message("/yvm/attach/request", R"(,"data":)" + data));
    };
    EXPECT_THAT(publish("{}"), HasSubstr(R"("error":"400::the data must not be an empty object")"));
    EXPECT_THAT(publish("[]"), HasSubstr(R"("error":"400::the data must be an object")"));
    EXPECT_THAT(publish(R"({"a":)" + std::string(600, '[') + std::string(600, ']') + "}"),
                HasSubstr(R"("error":"413::the data is nested more than 512 levels deep")"));
    EXPECT_THAT(publish(R"({"a":")" + std::string(kMaxMessageBytes, 'x') + R"("})"),
                HasSubstr(R"("error":"413::the data has 100008 bytes - at most 100000 are accepted")"));
    EXPECT_TRUE(fakeModule.requests().empty());
    EXPECT_THAT(publish(R"({"requestID":"a"})"), HasSubstr(R"("successful":true)"));
    EXPECT_THAT(bystander.exchange(bystander.message("/meta/connect", R"(,"advice":{"timeout":0})")),
                HasSubstr(R"("successful":true)"));
}

TEST_F(HttpServerTest, AFrameBeyondAllBoundsClosesTheSocketWith1009) {
    WebSocketClient client = openClient();
    // Far more than fits into the sockets' buffers: the whole of it must be taken, or the reason is lost.
    client.send(R"([{"channel":"/a","data":")" + std::string(8'000'000, 'x') + R"("}])");
    EXPECT_THAT(client.receive(), StartsWith("closed 1009"));
    EXPECT_THAT(openClient().handshake(), HasSubstr(R"("successful":true)"));
}

TEST_F(HttpServerTest, UntilItShowsATokenOrAClientIdASocketTakesShortFramesOnly) {
    const auto frameOf = [](std::size_t size) {
        const std::string begin = R"([{"channel":"/a","id":"1","data":")";
        const std::string end = R"("}])";
        return begin + std::string(size - begin.size() - end.size(), 'x') + end;
    };
    const std::string longer = frameOf(64UL * 1024 + 1);
    WebSocketClient stranger(server->port());
    EXPECT_THAT(stranger.exchange(frameOf(64UL * 1024)), HasSubstr("402::Unknown client"));
    EXPECT_EQ(stranger.exchange(longer), "closed 1009 the frame is too long");
    WebSocketClient guessing(server->port());
    guessing.handshake(R"(,"ext":{"token":"wrong"})");
    EXPECT_EQ(guessing.exchange(longer), "closed 1009 the frame is too long");

    EXPECT_THAT(openClient().exchange(longer), HasSubstr("402::Unknown client"));
    WebSocketClient client(server->port());
    client.handshake(R"(,"ext":{"token":"s3cret"})");
    EXPECT_THAT(client.exchange(longer), HasSubstr("402::Unknown client"));
    WebSocketClient resuming(server->port());
    resuming.clientId = client.clientId;
    resuming.exchange(resuming.message("/meta/connect", R"(,"advice":{"timeout":0})"));
    EXPECT_THAT(resuming.exchange(longer), HasSubstr("402::Unknown client"));
}

TEST_F(HttpServerTest, WithoutATokenASocketTakesLongFramesFromTheStart) {
    start({});
    EXPECT_THAT(WebSocketClient(server->port())
                    .exchange(R"([{"channel":"/a","data":")" + std::string(200'000, 'x') + R"("}])"),
                HasSubstr("402::Unknown client"));
}

TEST_F(HttpServerTest, ASocketThatServesNoSessionIsClosedAfterAWhile) {
    HttpServer::Options options;
    options.strangerTimeout = std::chrono::seconds(3);
    start(std::move(options));
    WebSocketClient serving(server->port());
    serving.handshake();
    serving.exchange(serving.message("/meta/connect", R"(,"advice":{"timeout":0})"));
    WebSocketClient stranger(server->port());
    EXPECT_THAT(stranger.exchange(R"([{"channel":"/meta/connect","clientId":"nobody"}])"),
                HasSubstr("402::Unknown client"));
    EXPECT_EQ(stranger.receive(), "closed 1008 no message of a session came for too long");
    // Another one, so that the time of the first is over for certain.
    EXPECT_THAT(WebSocketClient(server->port()).receive(), StartsWith("closed 1008"));
    EXPECT_THAT(serving.exchange(serving.message("/meta/connect", R"(,"advice":{"timeout":0})")),
                HasSubstr(R"("successful":true)"));
}

TEST_F(HttpServerTest, ASessionIsResumedOverANewSocket) {
    FakeModule fakeModule(broker);
    std::string clientId;
    {
        WebSocketClient client = openClient();
        client.handshake();
        clientId = client.clientId;
        client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
        client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/a/**")"));
    }
    broker->publish("/yvm/a/text/output", connector::common::DataBuffer("1"), "test");
    WebSocketClient next(server->port());
    next.clientId = clientId;
    EXPECT_THAT(next.exchange(next.message("/meta/connect", R"(,"advice":{"timeout":0})")),
                HasSubstr(R"("successful":true)"));
    EXPECT_EQ(next.receive(), R"([{"channel":"/yvm/a/text/output","data":1}])");
}

TEST_F(HttpServerTest, ASessionEndsWhoseSocketDiedWithoutAClose) {
    HttpServer::Options options;
    // Short enough to be waited for, and long enough for the client to attach.
    options.webSocketIdleTimeout = std::chrono::seconds(3);
    options.graceTime = std::chrono::seconds(3);
    start(std::move(options));
    FakeModule fakeModule(broker);
    WebSocketClient client(server->port());
    client.handshake();
    client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
    client.send(client.message("/meta/connect", ""));
    // From here on nobody reads, and so nobody answers pings. The held connect would last for half a minute.
    ASSERT_TRUE(fakeModule.waitForRequests(2));
    EXPECT_THAT(fakeModule.requests()[1], HasSubstr(R"("requestIDtoDetach":"a")"));
}

TEST_F(HttpServerTest, ClosesSocketsAsGoingAwayAtItsEnd) {
    WebSocketClient client = openClient();
    client.handshake();
    std::thread stopper([this] { server->stop(std::chrono::seconds(60)); });
    EXPECT_EQ(client.receive(), "closed 1001 the server is shutting down");
    stopper.join();
}

TEST_F(HttpServerTest, WritesWhatWaitsForItsClientsBeforeItsEnd) {
    FakeModule fakeModule(broker);
    WebSocketClient client = openClient();
    client.handshake();
    client.exchange(client.message("/meta/connect", R"(,"advice":{"timeout":0})"));
    client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
    client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/a/**")"));
    // More than the system keeps for a connection, and all of it before the client reads.
    constexpr int kEvents = 30;
    for (int i = 0; i < kEvents; ++i) {
        const std::string text = std::to_string(i) + std::string(1'000'000, 'x');
        broker->publish("/yvm/a/text/output", connector::common::DataBuffer('"' + text + '"'), "test");
    }
    std::thread stopper([this] { server->stop(std::chrono::seconds(60)); });
    for (int i = 0; i < kEvents; ++i) {
        EXPECT_THAT(client.receive(),
                    StartsWith(R"([{"channel":"/yvm/a/text/output","data":")" + std::to_string(i) + "xx"));
    }
    EXPECT_EQ(client.receive(), "closed 1001 the server is shutting down");
    stopper.join();
}

TEST_F(HttpServerTest, EventsThatFollowOneAnotherAllReachAClientThatSaysNothing) {
    FakeModule fakeModule(broker);
    WebSocketClient client = openClient();
    client.handshake();
    client.exchange(client.message("/meta/connect", R"(,"advice":{"timeout":0})"));
    client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
    client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/a/**")"));
    const auto publish = [this](int i) {
        broker->publish("/yvm/a/text/output", connector::common::DataBuffer('"' + std::to_string(i) + '"'),
                        "test");
    };
    const auto event = [](int i) {
        return R"({"channel":"/yvm/a/text/output","data":")" + std::to_string(i) + "\"}";
    };
    // Each published when the one before has come, and so in a frame of its own.
    constexpr int kFrames = 30;
    for (int i = 0; i < kFrames; ++i) {
        publish(i);
        EXPECT_EQ(client.receive(), '[' + event(i) + ']');
    }
    // By now the last frame holds the next ones up: they come together, or one by one, but in order.
    constexpr int kEvents = 1000;
    std::string expected = "[";
    for (int i = kFrames; i < kEvents; ++i) {
        publish(i);
        expected += event(i) + (i + 1 < kEvents ? ',' : ']');
    }
    std::string received = client.receive();
    while (received.size() < expected.size()) {
        const std::string next = client.receive();
        ASSERT_THAT(next, StartsWith("["));
        received.back() = ',';
        received += next.substr(1);
    }
    EXPECT_EQ(received, expected);
}

TEST_F(HttpServerTest, ReadsNoMoreFromAPeerThatDoesNotReadItsReplies) {
    namespace websocket = beast::websocket;
    asio::io_context context;
    websocket::stream<beast::tcp_stream> socket(context);
    beast::get_lowest_layer(socket).connect(tcp::endpoint(asio::ip::address_v4::loopback(), server->port()));
    socket.handshake("127.0.0.1", "/bayeux?token=s3cret");
    // Each message is answered with its id, so that requests and replies are of one size.
    const std::string message = R"([{"channel":"/a","id":")" + std::string(500'000, 'x') + R"("}])";
    constexpr int kMessages = 120;
    int written = 0;
    std::function<void()> write = [&] {
        socket.async_write(asio::buffer(message), [&](beast::error_code error, std::size_t) {
            ASSERT_FALSE(error) << error.message();
            if (++written < kMessages) {
                write();
            }
        });
    };
    write();
    // As long as nobody reads this can't end, however much time it has.
    context.run_for(std::chrono::seconds(1));
    EXPECT_LT(written, kMessages);
    int received = 0;
    beast::flat_buffer buffer;
    std::function<void()> read = [&] {
        socket.async_read(buffer, [&](beast::error_code error, std::size_t) {
            ASSERT_FALSE(error) << error.message();
            EXPECT_THAT(beast::buffers_to_string(buffer.data()).substr(0, 40),
                        StartsWith(R"([{"channel":"/a","id":"xxx)"));
            buffer.clear();
            if (++received < kMessages) {
                read();
            }
        });
    };
    read();
    context.restart();
    context.run_for(std::chrono::seconds(60));
    EXPECT_EQ(written, kMessages);
    EXPECT_EQ(received, kMessages);
}

TEST_F(HttpServerTest, WaitsForTheAnswersThatAreDue) {
    FakeModule fakeModule(broker);
    WebSocketClient client = openClient();
    client.handshake();
    client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
    EXPECT_TRUE(server->waitForAnswers(std::chrono::seconds(60)));
    client.exchange(client.message("/yvm/a/eval/request", R"(,"data":{"requestID":"e"})"));
    EXPECT_FALSE(server->waitForAnswers(std::chrono::milliseconds(0)));
    broker->publish("/yvm/a/eval/response", connector::common::DataBuffer("1"), "test");
    EXPECT_TRUE(server->waitForAnswers(std::chrono::seconds(60)));
    server->stopAccepting();
    EXPECT_THAT(client.exchange(client.message("/yvm/a/eval/request", R"(,"data":{"requestID":"e"})")),
                HasSubstr("503::the server is shutting down"));
}

/// The reply to a POST of Bayeux messages.
constexpr const char* kHandshake =
    R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["long-polling"]}])";

TEST_F(HttpServerTest, RefusesBodiesThatAreNoBayeux) {
    const auto post = [&](const std::string& contentType, std::string body) {
        return request(beast::http::verb::post, "/bayeux", {{"Content-Type", contentType}}, std::move(body));
    };
    EXPECT_EQ(post("text/plain", kHandshake).result_int(), 415U);
    EXPECT_EQ(post("application/x-www-form-urlencoded", "message=[]").result_int(), 415U);
    const auto unreadable = post("application/json", "hello");
    EXPECT_EQ(unreadable.result_int(), 400U);
    EXPECT_EQ(unreadable["Content-Type"], "text/plain; charset=utf-8");
    EXPECT_THAT(unreadable.body(), StartsWith("not JSON - "));
    EXPECT_EQ(post("application/json", std::string(1'300'000, ' ')).result_int(), 413U);
    std::string batch = "[5";
    for (int i = 0; i < 1000; ++i) {
        batch += ",5";
    }
    const auto tooMany = post("application/json", batch + "]");
    EXPECT_EQ(tooMany.result_int(), 413U);
    EXPECT_EQ(tooMany.body(), "more than 1000 messages in one frame\n");
    EXPECT_EQ(post("application/json;charset=UTF-8", kHandshake).result_int(), 200U);
    EXPECT_EQ(
        request(beast::http::verb::post, "/bayeux/other", {{"Content-Type", "application/json"}}, kHandshake)
            .result_int(),
        405U);
}

TEST_F(HttpServerTest, AWrongTokenOverLongPollingIsToldInTheReply) {
    const std::string refusal =
        R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
        R"("error":"401::the token is missing or wrong","advice":{"reconnect":"none"}}])";
    const auto post = [&](const std::string& target, const std::string& authorization) {
        return request(beast::http::verb::post, target,
                       {{"Content-Type", "application/json"}, {"Authorization", authorization}}, kHandshake)
            .body();
    };
    EXPECT_EQ(post("/bayeux?token=wrong", ""), refusal);
    EXPECT_EQ(post("/bayeux/handshake", "Bearer wrong"), refusal);
    EXPECT_EQ(post("/bayeux/handshake", ""), refusal);
    EXPECT_THAT(post("/bayeux/handshake?token=s3cret", ""), HasSubstr(R"("successful":true)"));
    EXPECT_THAT(post("/bayeux/handshake", "Bearer s3cret"), HasSubstr(R"("successful":true)"));
}

TEST_F(HttpServerTest, PagesOfAllowedOriginsMayPollAndOthersMayNot) {
    const std::map<std::string, std::string> friendly = {{"Content-Type", "application/json"},
                                                         {"Origin", "https://friend.example"}};
    const auto reply = request(beast::http::verb::post, "/bayeux?token=s3cret", friendly, kHandshake);
    EXPECT_EQ(reply["Access-Control-Allow-Origin"], "https://friend.example");
    EXPECT_EQ(reply["Access-Control-Allow-Credentials"], "true");
    EXPECT_EQ(reply["Vary"], "Origin");
    for (const char* target :
         {"/bayeux", "/bayeux/", "/bayeux/handshake", "/bayeux/connect", "/bayeux/disconnect?x"}) {
        const auto preflight = request(beast::http::verb::options, target, friendly);
        EXPECT_EQ(preflight.result_int(), 204U) << target;
        EXPECT_EQ(preflight["Access-Control-Allow-Origin"], "https://friend.example");
        EXPECT_THAT(std::string(preflight["Access-Control-Allow-Headers"]), HasSubstr("authorization"));
    }
    for (const auto verb : {beast::http::verb::post, beast::http::verb::options}) {
        const auto refused =
            request(verb, "/bayeux?token=s3cret",
                    {{"Content-Type", "application/json"}, {"Origin", "https://evil.example"}}, kHandshake);
        EXPECT_EQ(refused.result_int(), 403U);
        EXPECT_EQ(refused.count("Access-Control-Allow-Origin"), 0U);
    }
}

/// A long-polling client: one keep-alive connection.
class PollingClient {
  public:
    explicit PollingClient(std::uint16_t port) : stream_(context_) {
        stream_.connect(tcp::endpoint(asio::ip::address_v4::loopback(), port));
    }

    void post(const std::string& body, bool chunked = false) {
        beast::http::request<beast::http::string_body> request(beast::http::verb::post,
                                                               "/bayeux/?token=s3cret", 11);
        request.set(beast::http::field::host, "x");
        request.set(beast::http::field::content_type, "application/json;charset=UTF-8");
        request.body() = body;
        request.chunked(chunked);
        if (!chunked) {
            request.prepare_payload();
        }
        beast::http::write(stream_, request);
    }

    /// The next reply. Its body, or "<status> <body>" when it is not 200.
    std::string receive() {
        beast::http::response<beast::http::string_body> response;
        beast::error_code error;
        stream_.expires_after(std::chrono::seconds(60));
        beast::http::async_read(stream_, buffer_, response,
                                [&](beast::error_code e, std::size_t) { error = e; });
        context_.restart();
        context_.run();
        EXPECT_FALSE(error) << error.message();
        return response.result_int() == 200 ? response.body()
                                            : std::to_string(response.result_int()) + " " + response.body();
    }

    std::string exchange(const std::string& body) {
        post(body);
        return receive();
    }

    std::string handshake() {
        const std::string reply = exchange(kHandshake);
        simdjson::dom::parser parser;
        return std::string(std::string_view(parser.parse(reply).at(0)["clientId"]));
    }

    void close() { stream_.close(); }

    /// Raw text of one request or several.
    void write(const std::string& text) { asio::write(stream_, asio::buffer(text)); }

    static std::string requestText(const std::string& body) {
        return "POST /bayeux HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body;
    }

  private:
    asio::io_context context_;
    beast::tcp_stream stream_;
    beast::flat_buffer buffer_;
};

std::string message(const std::string& clientId, const std::string& channel, const std::string& fields = "") {
    return R"([{"channel":")" + channel + R"(","clientId":")" + clientId + R"(","id":"7")" + fields + "}]";
}

TEST_F(HttpServerTest, CarriesRequestsAndMessagesOverLongPolling) {
    FakeModule fakeModule(broker);
    PollingClient polling(server->port());
    PollingClient sending(server->port());
    const std::string clientId = polling.handshake();
    EXPECT_THAT(sending.exchange(message(clientId, "/meta/connect", R"(,"advice":{"timeout":0})")),
                HasSubstr(R"("successful":true)"));
    polling.post(message(clientId, "/meta/connect"));
    settle();
    sending.exchange(message(clientId, "/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
    sending.post(message(clientId, "/meta/subscribe", R"(,"subscription":"/yvm/a/**")"), true);
    EXPECT_EQ(sending.receive(),
              R"([{"channel":"/meta/subscribe","id":"7","successful":true,"subscription":"/yvm/a/**"}])");
    broker->publish("/yvm/a/text/output", connector::common::DataBuffer("\"\xc3\xa4\xf0\x9f\x98\x80\""),
                    "test");
    const std::string advice = R"("advice":{"reconnect":"retry","interval":0,"timeout":30000})";
    EXPECT_EQ(polling.receive(), R"([{"channel":"/meta/connect","id":"7","successful":true,)" + advice +
                                     R"(},{"channel":"/yvm/a/text/output","data":"\u00e4\ud83d\ude00"}])");
    // What comes between two connects waits for the next.
    broker->publish("/yvm/a/text/output", connector::common::DataBuffer("2"), "test");
    EXPECT_EQ(polling.exchange(message(clientId, "/meta/connect")),
              R"([{"channel":"/meta/connect","id":"7","successful":true,)" + advice +
                  R"(},{"channel":"/yvm/a/text/output","data":2}])");
}

TEST_F(HttpServerTest, ADisconnectReleasesTheHeldRequest) {
    PollingClient polling(server->port());
    PollingClient sending(server->port());
    const std::string clientId = polling.handshake();
    polling.post(message(clientId, "/meta/connect"));
    settle();
    EXPECT_EQ(sending.exchange(message(clientId, "/meta/disconnect")),
              R"([{"channel":"/meta/disconnect","id":"7","successful":true}])");
    EXPECT_EQ(polling.receive(),
              R"([{"channel":"/meta/connect","id":"7","successful":true,"advice":{"reconnect":"none"}}])");
}

TEST_F(HttpServerTest, TheNewerOfTwoHeldRequestsWins) {
    PollingClient older(server->port());
    PollingClient newer(server->port());
    const std::string clientId = older.handshake();
    older.post(message(clientId, "/meta/connect"));
    settle();
    newer.post(message(clientId, "/meta/connect"));
    EXPECT_EQ(older.receive(), "408 another request has taken over\n");
    EXPECT_EQ(older.exchange(message(clientId, "/meta/disconnect")),
              R"([{"channel":"/meta/disconnect","id":"7","successful":true}])");
    EXPECT_THAT(newer.receive(), HasSubstr(R"("advice":{"reconnect":"none"})"));
}

TEST_F(HttpServerTest, ARequestBehindAHeldOneWaitsItsTurn) {
    PollingClient polling(server->port());
    PollingClient sending(server->port());
    const std::string clientId = polling.handshake();
    polling.post(message(clientId, "/meta/connect"));
    settle();
    polling.post(message(clientId, "/meta/subscribe", R"(,"subscription":"/service/a")"));
    settle();
    sending.exchange(message(clientId, "/meta/disconnect"));
    EXPECT_THAT(polling.receive(), HasSubstr(R"("channel":"/meta/connect")"));
    EXPECT_THAT(polling.receive(), HasSubstr("402::Unknown client"));
}

TEST_F(HttpServerTest, AnEventIsNotWrittenIntoARequestThatHasGone) {
    FakeModule fakeModule(broker);
    PollingClient sending(server->port());
    const std::string clientId = sending.handshake();
    sending.exchange(message(clientId, "/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
    sending.exchange(message(clientId, "/meta/subscribe", R"(,"subscription":"/yvm/a/**")"));
    PollingClient gone(server->port());
    gone.post(message(clientId, "/meta/connect"));
    settle();
    gone.close();
    settle();
    broker->publish("/yvm/a/text/output", connector::common::DataBuffer("1"), "test");
    EXPECT_THAT(sending.exchange(message(clientId, "/meta/connect")),
                HasSubstr(R"({"channel":"/yvm/a/text/output","data":1})"));
}

TEST_F(HttpServerTest, ASessionMayMoveFromLongPollingToAWebSocket) {
    FakeModule fakeModule(broker);
    PollingClient polling(server->port());
    const std::string clientId = polling.handshake();
    WebSocketClient client(server->port());
    client.clientId = clientId;
    EXPECT_THAT(client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})")),
                HasSubstr(R"("successful":true)"));
    client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/a/**")"));
    client.exchange(client.message("/meta/connect", R"(,"advice":{"timeout":0})"));
    broker->publish("/yvm/a/text/output", connector::common::DataBuffer("1"), "test");
    EXPECT_EQ(client.receive(), R"([{"channel":"/yvm/a/text/output","data":1}])");
}

TEST_F(HttpServerTest, MetricsAskForTheToken) {
    const auto ask = [&](const std::string& target, const std::map<std::string, std::string>& headers = {}) {
        return request(beast::http::verb::get, target, headers);
    };
    for (const auto& refused : {ask("/metrics"), ask("/metrics?token=wrong"),
                                ask("/metrics", {{"Authorization", "Bearer wrong"}})}) {
        EXPECT_EQ(refused.result_int(), 401U);
        EXPECT_EQ(refused.body(), "the token is missing or wrong\n");
        EXPECT_EQ(refused["WWW-Authenticate"], "Bearer");
    }
    for (const auto& told :
         {ask("/metrics?token=s3cret"), ask("/metrics", {{"Authorization", "Bearer s3cret"}})}) {
        EXPECT_EQ(told.result_int(), 200U);
        EXPECT_EQ(told["Content-Type"], "text/plain; version=0.0.4; charset=utf-8");
        EXPECT_EQ(metrics::testing::readPrometheus(told.body())
                      .at("yvm_connector_refusals_total{reason=\"unauthorized\"}"),
                  "3");
    }
    start({});
    EXPECT_EQ(ask("/metrics").result_int(), 200U) << "where no token is asked for";
}

TEST_F(HttpServerTest, MetricsAreNoWayToGuessATokenWithoutBeingCounted) {
    HttpServer::Options options;
    options.guard.token = "s3cret";
    options.limits.maxFailedHandshakesPerMinute = 1;
    start(std::move(options));
    EXPECT_EQ(request(beast::http::verb::get, "/metrics?token=wrong").result_int(), 401U);
    EXPECT_EQ(request(beast::http::verb::get, "/metrics?token=s3cret").result_int(), 429U);
    EXPECT_EQ(request(beast::http::verb::get, "/metrics").result_int(), 401U);
}

TEST_F(HttpServerTest, CountsWhatComesInAndGoesOut) {
    FakeModule fakeModule(broker);
    const auto scrape = [&] {
        return metrics::testing::readPrometheus(
            request(beast::http::verb::get, "/metrics?token=s3cret").body());
    };
    std::size_t bytesIn = 0;
    std::size_t bytesOut = 0;
    {
        WebSocketClient client = openClient();
        bytesOut += client.handshake().size();
        bytesIn += std::string(
                       R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"]}])")
                       .size();
        const auto exchange = [&](const std::string& frame) {
            bytesIn += frame.size();
            bytesOut += client.exchange(frame).size();
        };
        exchange(client.message("/meta/connect", R"(,"advice":{"timeout":0})"));
        exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
        exchange(client.message("/meta/subscribe", R"(,"subscription":["/yvm/a/x","/yvm/a/y"])"));
        exchange(client.message("/yvm/a/eval/request", R"(,"data":{"requestID":"e"})"));
        exchange(client.message("/yvm/a/feval/request", R"(,"data":{"requestID":"f"})"));
        exchange(client.message("/yvm/a/feval/request", R"(,"data":{"requestID":"g"})"));
        exchange(client.message("/yvm/b/eval/request", R"(,"data":{"requestID":"e"})"));
        broker->publish("/yvm/a/x", connector::common::DataBuffer("1"), "test");
        bytesOut += client.receive().size();

        const auto samples = scrape();
        EXPECT_EQ(samples.at("yvm_connector_sessions"), "1");
        EXPECT_EQ(samples.at("yvm_connector_clients"), "1");
        EXPECT_EQ(samples.at("yvm_connector_subscriptions"), "2");
        EXPECT_EQ(samples.at("yvm_connector_connections{transport=\"websocket\"}"), "1");
        EXPECT_EQ(samples.at("yvm_connector_messages_total{direction=\"in\"}"), "8");
        EXPECT_EQ(samples.at("yvm_connector_messages_total{direction=\"out\"}"), "9");
        EXPECT_EQ(samples.at("yvm_connector_message_bytes_total{direction=\"in\"}"), std::to_string(bytesIn));
        EXPECT_EQ(samples.at("yvm_connector_message_bytes_total{direction=\"out\"}"),
                  std::to_string(bytesOut));
        EXPECT_EQ(samples.at("yvm_connector_refusals_total{reason=\"forbidden\"}"), "1");
        EXPECT_EQ(samples.at("yvm_connector_commands_in_flight{kind=\"eval\"}"), "1");
        EXPECT_EQ(samples.at("yvm_connector_commands_in_flight{kind=\"feval\"}"), "2");
        client.exchange(client.message("/meta/disconnect", ""));
    }
    settle();
    const auto samples = scrape();
    EXPECT_EQ(samples.at("yvm_connector_sessions"), "0");
    EXPECT_EQ(samples.at("yvm_connector_subscriptions"), "0");
    EXPECT_EQ(samples.at("yvm_connector_connections{transport=\"websocket\"}"), "0");
    EXPECT_EQ(samples.at("yvm_connector_sessions_ended_total{cause=\"disconnect\"}"), "1");
}

/// What comes over the network and is wrong, with a session beside it that must not notice.
class BadNetworkTest : public HttpServerTest {
  protected:
    /// Short enough to be waited for, and long enough for what is sent in time.
    static constexpr std::chrono::seconds kRequestTimeout{3};

    BadNetworkTest() { begin({}); }

    ~BadNetworkTest() override {
        EXPECT_THAT(bystander->exchange(bystander->message("/meta/connect", R"(,"advice":{"timeout":0})")),
                    HasSubstr(R"("successful":true)"));
        bystander.reset();
    }

    void begin(HttpServer::Options options) {
        options.guard.token = "s3cret";
        options.metrics = metrics;
        bystander.reset();
        start(std::move(options));
        bystander.emplace(server->port(), "/bayeux?token=s3cret");
        bystander->handshake();
    }

    /// Reads until the server closes. What it sent, or "still open" at the deadline.
    static std::string readToEnd(beast::tcp_stream& stream, asio::io_context& context) {
        std::string text;
        beast::error_code error;
        stream.expires_after(std::chrono::seconds(60));
        asio::async_read(stream, asio::dynamic_buffer(text),
                         [&](beast::error_code e, std::size_t) { error = e; });
        context.restart();
        context.run();
        return error == beast::error::timeout ? "still open" : text;
    }

    beast::tcp_stream connect(asio::io_context& context) {
        beast::tcp_stream stream(context);
        stream.connect(tcp::endpoint(asio::ip::address_v4::loopback(), server->port()));
        return stream;
    }

    static bool waitFor(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    bool waitForSockets(std::uint64_t count) {
        return waitFor([&] { return metrics->connections[metrics::Transport::WebSocket] == count; });
    }

    std::shared_ptr<metrics::Metrics> metrics = std::make_shared<metrics::Metrics>();
    std::optional<WebSocketClient> bystander;
};

TEST_F(BadNetworkTest, AHeaderThatDripsIsCutHoweverLongItGoesOn) {
    HttpServer::Options options;
    options.requestTimeout = kRequestTimeout;
    begin(std::move(options));
    asio::io_context context;
    beast::tcp_stream stream = connect(context);
    std::string dripped = "GET /healthz HTTP/1.1\r\nX-Slow: ";
    beast::error_code error;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!error && std::chrono::steady_clock::now() < deadline) {
        asio::write(stream, asio::buffer(dripped), error);
        dripped = "x";
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(error) << "still open";
    EXPECT_TRUE(waitFor([&] { return metrics->refusals[metrics::RefusalReason::SlowRequest] == 1; }));
}

TEST_F(BadNetworkTest, ABodyThatDoesNotComeIsCut) {
    HttpServer::Options options;
    options.requestTimeout = kRequestTimeout;
    begin(std::move(options));
    asio::io_context context;
    beast::tcp_stream stream = connect(context);
    const std::string whole = PollingClient::requestText(kHandshake);
    asio::write(stream, asio::buffer(whole.substr(0, whole.size() - 1)));
    EXPECT_EQ(readToEnd(stream, context), "");
    EXPECT_TRUE(waitFor([&] { return metrics->refusals[metrics::RefusalReason::SlowRequest] == 1; }));
}

TEST_F(BadNetworkTest, ABodyHasItsOwnTimeHoweverLongTheConnectionRestedBefore) {
    HttpServer::Options options;
    options.requestTimeout = kRequestTimeout;
    begin(std::move(options));
    asio::io_context context;
    beast::tcp_stream stream = connect(context);
    // The clock does run: nothing less tells the time of the body from that of the rest.
    const auto begun = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    const std::string whole = PollingClient::requestText(kHandshake);
    asio::write(stream, asio::buffer(whole.substr(0, whole.size() - 1)));
    EXPECT_EQ(readToEnd(stream, context), "");
    EXPECT_GT(std::chrono::steady_clock::now() - begun, kRequestTimeout + std::chrono::milliseconds(1000));
    EXPECT_TRUE(waitFor([&] { return metrics->refusals[metrics::RefusalReason::SlowRequest] == 1; }));
}

TEST_F(BadNetworkTest, AConnectionThatNeverSaysAnythingIsCut) {
    HttpServer::Options options;
    options.requestTimeout = kRequestTimeout;
    begin(std::move(options));
    asio::io_context context;
    beast::tcp_stream stream = connect(context);
    EXPECT_EQ(readToEnd(stream, context), "");
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::SlowRequest], 0U) << "a rest is no request";
}

TEST_F(BadNetworkTest, AGiantHeaderIs431) {
    asio::io_context context;
    beast::tcp_stream stream = connect(context);
    asio::write(stream, asio::buffer("GET / HTTP/1.1\r\nHost: x\r\nX-Long: " + std::string(100'000, 'x')));
    EXPECT_THAT(readToEnd(stream, context), StartsWith("HTTP/1.1 431 "));
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::HeaderBytes], 1U);
}

TEST_F(BadNetworkTest, WhatIsNoHttpIs400) {
    asio::io_context context;
    beast::tcp_stream stream = connect(context);
    asio::write(stream, asio::buffer(std::string("\x16\x03\x01 hello\r\n\r\n")));
    EXPECT_THAT(readToEnd(stream, context), HasSubstr("400 Bad Request"));
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::BadHttp], 1U);
}

TEST_F(BadNetworkTest, ABrokenChunkIs400) {
    asio::io_context context;
    beast::tcp_stream stream = connect(context);
    asio::write(stream, asio::buffer(std::string("POST /bayeux HTTP/1.1\r\nHost: x\r\nContent-Type: "
                                                 "application/json\r\nTransfer-Encoding: chunked\r\n\r\n"
                                                 "2\r\n[{\r\nzz\r\n")));
    const std::string answer = readToEnd(stream, context);
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 400 "));
    EXPECT_THAT(answer, HasSubstr("Connection: close"));
    EXPECT_THAT(answer, HasSubstr("no HTTP request: bad chunk"));
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::BadHttp], 1U);
}

TEST_F(BadNetworkTest, ASocketCutInTheMiddleOfAFrameLosesNothingButItself) {
    std::string clientId;
    {
        PollingClient polling(server->port());
        clientId = polling.handshake();
    }
    ASSERT_TRUE(waitForSockets(1));
    {
        asio::io_context context;
        beast::websocket::stream<beast::tcp_stream> socket(context);
        beast::get_lowest_layer(socket).connect(
            tcp::endpoint(asio::ip::address_v4::loopback(), server->port()));
        socket.handshake("127.0.0.1", "/bayeux");
        ASSERT_TRUE(waitForSockets(2));
        // A masked text frame of 4096 bytes, of which a few come.
        const std::string begun("\x81\xfe\x10\x00\x01\x02\x03\x04[{", 10);
        asio::write(beast::get_lowest_layer(socket), asio::buffer(begun));
        settle();
    }
    EXPECT_TRUE(waitForSockets(1));
    WebSocketClient next(server->port());
    next.clientId = clientId;
    EXPECT_THAT(next.exchange(next.message("/meta/connect", R"(,"advice":{"timeout":0})")),
                HasSubstr(R"("successful":true)"));
}

TEST_F(BadNetworkTest, RequestsInOnePieceAreAnsweredInOrderBehindAHeldOneToo) {
    PollingClient polling(server->port());
    PollingClient sending(server->port());
    const std::string clientId = polling.handshake();
    polling.write(
        PollingClient::requestText(message(clientId, "/meta/subscribe", R"(,"subscription":"/service/a")")) +
        PollingClient::requestText(message(clientId, "/meta/connect")) +
        PollingClient::requestText(message(clientId, "/meta/subscribe", R"(,"subscription":"/service/b")")) +
        "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_THAT(polling.receive(), HasSubstr("/service/a"));
    settle();
    EXPECT_THAT(sending.exchange(message(clientId, "/meta/disconnect")), HasSubstr(R"("successful":true)"));
    EXPECT_THAT(polling.receive(), HasSubstr(R"("channel":"/meta/connect")"));
    EXPECT_THAT(polling.receive(), HasSubstr("402::Unknown client"));
    EXPECT_EQ(polling.receive(), "ok\n");
}

TEST_F(BadNetworkTest, AFloodOfHandshakesIsRefusedUnseen) {
    WebSocketClient flooding(server->port());
    std::string answer;
    for (int i = 0; i < 500; ++i) {
        answer = flooding.exchange(
            R"([{"channel":"/meta/handshake","supportedConnectionTypes":["websocket"],"ext":{"token":"guess"}}])");
    }
    EXPECT_THAT(answer, HasSubstr("503::too many failed handshakes"));
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::Unauthorized], 60U);
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::FailedHandshakes], 440U);
}

TEST_F(BadNetworkTest, OtherOriginsGetNeitherThroughThisDoorNorThat) {
    const std::map<std::string, std::string> evil = {{"Origin", "https://evil.example"},
                                                     {"Content-Type", "application/json"}};
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux?token=s3cret", evil).response.result_int(), 403U);
    EXPECT_EQ(request(beast::http::verb::post, "/bayeux?token=s3cret", evil, kHandshake).result_int(), 403U);
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::Origin], 2U);
}

TEST_F(BadNetworkTest, WhatAFormOrAQueryCouldSendIsNotExecuted) {
    FakeModule fakeModule(broker);
    const std::string publish =
        message(bystander->clientId, "/yvm/attach/request", R"(,"data":{"requestID":"a"})");
    const auto post = [&](const std::string& contentType, const std::string& body) {
        return request(beast::http::verb::post, "/bayeux?token=s3cret", {{"Content-Type", contentType}}, body)
            .result_int();
    };
    EXPECT_EQ(post("text/plain", publish), 415U);
    EXPECT_EQ(post("application/x-www-form-urlencoded", "message=" + publish), 415U);
    EXPECT_EQ(post("multipart/form-data; boundary=x", publish), 415U);
    EXPECT_EQ(request(beast::http::verb::get, "/bayeux?token=s3cret&jsonp=f&message=[]").result_int(), 400U);
    settle();
    EXPECT_TRUE(fakeModule.requests().empty());
    EXPECT_EQ(post("application/json", publish), 200U);
    EXPECT_TRUE(fakeModule.waitForRequests(1));
}

TEST_F(BadNetworkTest, ConnectionsThatAreClosedWithoutAWordAreCountedToo) {
    HttpServer::Options options;
    options.maxConnections = 1;
    begin(std::move(options));
    asio::io_context context;
    std::vector<beast::tcp_stream> refused;
    for (int i = 0; i < 150; ++i) {
        refused.push_back(connect(context));
    }
    EXPECT_TRUE(waitFor([&] { return metrics->refusals[metrics::RefusalReason::Connections] == 150; }))
        << metrics->refusals[metrics::RefusalReason::Connections];
}

TEST_F(BadNetworkTest, ConnectionsBeyondTheLimitAreToldSo) {
    HttpServer::Options options;
    options.maxConnections = 2;
    begin(std::move(options));
    std::optional<PollingClient> second(server->port());
    second->handshake();
    asio::io_context context;
    beast::tcp_stream third = connect(context);
    const std::string refusal = readToEnd(third, context);
    EXPECT_THAT(refusal, StartsWith("HTTP/1.1 503 "));
    EXPECT_THAT(refusal, HasSubstr("too many connections - the server takes 2\n"));
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::Connections], 1U);
    third.close();
    second.reset();
    // The server learns of the end in its own time.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::string answer;
    while (!answer.starts_with("HTTP/1.1 200 ") && std::chrono::steady_clock::now() < deadline) {
        beast::tcp_stream next = connect(context);
        beast::error_code error;
        asio::write(
            next, asio::buffer(std::string("GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")),
            error);
        answer = readToEnd(next, context);
    }
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 "));
}

TEST_F(HttpServerTest, WithoutATokenTheServerAnswersToLoopbackNamesOnly) {
    HttpServer::Options options;
    options.metrics = std::make_shared<metrics::Metrics>();
    const auto metrics = options.metrics;
    start(std::move(options));
    const std::map<std::string, std::string> rebound = {
        {"Origin", "http://evil.example"}, {"Host", "evil.example"}, {"Content-Type", "application/json"}};
    EXPECT_EQ(request(beast::http::verb::post, "/bayeux", rebound, kHandshake).result_int(), 403U);
    EXPECT_EQ(WebSocketClient(server->port(), "/bayeux", rebound).response.result_int(), 403U);
    const auto page = request(beast::http::verb::get, "/metrics", {{"Host", "evil.example:8888"}});
    EXPECT_EQ(page.result_int(), 403U);
    EXPECT_EQ(page.body(), "without a token the server is called by a loopback name only\n");
    EXPECT_EQ(metrics->refusals[metrics::RefusalReason::Host], 3U);
    EXPECT_EQ(request(beast::http::verb::get, "/healthz", {{"Host", "localhost"}}).result_int(), 200U);
}

TEST_F(HttpServerTest, APortThatIsTakenIsRefused) {
    HttpServer::Options options;
    options.port = server->port();
    const std::string expected =
        "cannot listen on 127.0.0.1:" + std::to_string(server->port()) + ": Address already in use";
    EXPECT_THAT([&] { HttpServer second(broker, std::move(options)); },
                ThrowsMessage<std::runtime_error>(HasSubstr(expected)));
}

}  // namespace
}  // namespace server::http
