#include "server/http/HttpServer.hpp"

#include "server/bayeux/test/BayeuxFixture.hpp"
#include "server/http/test/TemporaryFolder.hpp"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace server::http {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using bayeux::testing::FakeModule;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::ThrowsMessage;
using tcp = asio::ip::tcp;

constexpr std::size_t kMaxMessageBytes = 100'000;

/// A plain WebSocket client. Every wait is bounded: a test fails rather than hang.
class WebSocketClient {
  public:
    explicit WebSocketClient(std::uint16_t port, const std::string& target = "/bayeux",
                             std::map<std::string, std::string> headers = {})
        : socket_(context_) {
        beast::get_lowest_layer(socket_).expires_after(std::chrono::seconds(10));
        beast::error_code error;
        beast::get_lowest_layer(socket_).async_connect(tcp::endpoint(asio::ip::address_v4::loopback(), port),
                                                       [&](beast::error_code e) { error = e; });
        run();
        socket_.set_option(websocket::stream_base::decorator([headers](websocket::request_type& request) {
            for (const auto& [name, value] : headers) {
                request.set(name, value);
            }
        }));
        const std::string host =
            headers.count("Host") != 0 ? headers.at("Host") : "127.0.0.1:" + std::to_string(port);
        socket_.async_handshake(response, host, target, [&](beast::error_code e) { error = e; });
        run();
        isOpen = !error;
    }

    void send(const std::string& frame) {
        beast::error_code error;
        socket_.async_write(asio::buffer(frame), [&](beast::error_code e, std::size_t) { error = e; });
        run();
        EXPECT_FALSE(error) << error.message();
    }

    /// The next frame, or "closed <code> <reason>".
    std::string receive() {
        beast::flat_buffer buffer;
        beast::error_code error;
        beast::get_lowest_layer(socket_).expires_after(std::chrono::seconds(10));
        socket_.async_read(buffer, [&](beast::error_code e, std::size_t) { error = e; });
        run();
        if (error) {
            return "closed " + std::to_string(socket_.reason().code) + " " +
                   std::string(socket_.reason().reason.c_str());
        }
        return beast::buffers_to_string(buffer.data());
    }

    std::string exchange(const std::string& frame) {
        send(frame);
        return receive();
    }

    /// A handshake, whose reply is given back.
    std::string handshake(const std::string& fields = "") {
        const std::string reply =
            exchange(R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"])" +
                     fields + "}]");
        simdjson::dom::parser parser;
        const simdjson::dom::element parsed = parser.parse(reply);
        if (std::string_view id; !parsed.at(0)["clientId"].get(id)) {
            clientId = id;
        }
        return reply;
    }

    std::string message(const std::string& channel, const std::string& fields) {
        return R"([{"channel":")" + channel + R"(","clientId":")" + clientId + R"(","id":"7")" + fields +
               "}]";
    }

    bool isOpen = false;
    websocket::response_type response;
    std::string clientId;

  private:
    void run() {
        context_.restart();
        context_.run();
    }

    asio::io_context context_;
    websocket::stream<beast::tcp_stream> socket_;
};

class HttpServerTest : public ::testing::Test {
  protected:
    HttpServerTest() {
        broker->start();
        HttpServer::Options options;
        options.guard.token = "s3cret";
        options.guard.allowedOrigins = {"https://friend.example"};
        options.maxMessageBytes = kMaxMessageBytes;
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

    beast::http::response<beast::http::string_body> request(beast::http::verb verb, const std::string& target,
                                                            std::map<std::string, std::string> headers = {},
                                                            std::string body = "") {
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
        stream.expires_after(std::chrono::seconds(10));
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

TEST_F(HttpServerTest, AnUpgradeWithAWrongTokenIs401) {
    const WebSocketClient inQuery(server->port(), "/bayeux?token=wrong");
    EXPECT_FALSE(inQuery.isOpen);
    EXPECT_EQ(inQuery.response.result_int(), 401U);
    const WebSocketClient inHeader(server->port(), "/bayeux", {{"Authorization", "Bearer wrong"}});
    EXPECT_EQ(inHeader.response.result_int(), 401U);
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
    EXPECT_EQ(client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})")),
              R"([{"channel":"/yvm/attach/request","id":"7","successful":true}])");
    EXPECT_EQ(client.receive(), R"([{"channel":"/yvm/attach/response","data":{"requestID":"a"}}])");
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
    // The server stops to read at the length in the frame's head, so the write may fail half-way.
    client.send(R"([{"channel":"/a","data":")" + std::string(1'400'000, 'x') + R"("}])");
    EXPECT_THAT(client.receive(), StartsWith("closed 1009"));
    EXPECT_THAT(openClient().handshake(), HasSubstr(R"("successful":true)"));
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

TEST_F(HttpServerTest, ClosesSocketsAsGoingAwayAtItsEnd) {
    WebSocketClient client = openClient();
    client.handshake();
    std::thread stopper([this] { server->stop(std::chrono::seconds(10)); });
    EXPECT_EQ(client.receive(), "closed 1001 the server is shutting down");
    stopper.join();
}

TEST_F(HttpServerTest, WaitsForTheAnswersThatAreDue) {
    FakeModule fakeModule(broker);
    WebSocketClient client = openClient();
    client.handshake();
    client.exchange(client.message("/yvm/attach/request", R"(,"data":{"requestID":"a"})"));
    EXPECT_TRUE(server->waitForAnswers(std::chrono::seconds(10)));
    client.exchange(client.message("/yvm/a/eval/request", R"(,"data":{"requestID":"e"})"));
    EXPECT_FALSE(server->waitForAnswers(std::chrono::milliseconds(0)));
    broker->publish("/yvm/a/eval/response", connector::common::DataBuffer("1"), "test");
    EXPECT_TRUE(server->waitForAnswers(std::chrono::seconds(10)));
    server->stopAccepting();
    EXPECT_THAT(client.exchange(client.message("/yvm/a/eval/request", R"(,"data":{"requestID":"e"})")),
                HasSubstr("503::the server is shutting down"));
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
