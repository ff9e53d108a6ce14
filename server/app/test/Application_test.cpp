#include "server/app/Application.hpp"

#include "server/http/test/TemporaryFolder.hpp"
#include "server/http/test/WebSocketClient.hpp"
#include "testing/FakeEngine.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace server::app {
namespace {

using platform_testing::FakeEngine;
using server::testing::TemporaryFolder;
using server::testing::WebSocketClient;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

Options options() {
    Options result;
    result.port = 0;
    result.token = "s3cret";
    result.pluginFolder = PLUGIN_FOLDER;
    return result;
}

/// The port in the address that the program prints.
std::uint16_t portOf(const Application& application) {
    const std::string address = application.address();
    EXPECT_EQ(address.substr(0, 17), "http://127.0.0.1:");
    return static_cast<std::uint16_t>(std::stoul(address.substr(17)));
}

/// The real plug-in behind a real server, on an engine that the test scripts.
class ApplicationTest : public ::testing::Test {
  protected:
    ApplicationTest() { application.start(engine); }
    ~ApplicationTest() override { engine->stop(); }

    /// A session with a client of the module, and subscriptions to all that it sends.
    void attach(WebSocketClient& client) {
        client.handshake();
        client.exchange(client.message("/meta/connect", R"(,"advice":{"timeout":0})"));
        client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/attach/response")"));
        client.send(client.message(
            "/yvm/attach/request",
            R"(,"data":{"requestID":"me","yvmID":"user-yvm","supportedApiVersions":["r24a0"]})"));
        // In one frame or in two.
        const std::string answer = receiveUntil(client, "channelPrefix");
        EXPECT_THAT(answer, HasSubstr(R"({"channel":"/yvm/attach/request","id":"7","successful":true})"));
        EXPECT_THAT(answer, HasSubstr(R"({"channel":"/yvm/attach/response","data":{"apiVersion":"r24a0",)"
                                      R"("channelPrefix":"/yvm/me","requestID":"me"}})"));
        client.exchange(client.message("/meta/subscribe", R"(,"subscription":"/yvm/me/**")"));
    }

    std::string evalOf(WebSocketClient& client, const std::string& command) {
        return client.message("/yvm/me/eval/request",
                              R"(,"data":{"requestID":"e","command":")" + command +
                                  R"(","runOptions":{"useNullOutSink":false,"useNullErrSink":false}})");
    }

    /// Frames until one holds `text`, joined.
    std::string receiveUntil(WebSocketClient& client, const std::string& text) {
        std::string all;
        while (all.find(text) == std::string::npos && all.find("closed ") == std::string::npos) {
            all += client.receive();
        }
        return all;
    }

    std::shared_ptr<FakeEngine> engine = FakeEngine::create();
    Application application{options()};
};

TEST_F(ApplicationTest, CarriesAnEvalToTheEngineAndItsTextAndResponseBack) {
    engine->onEval(u"1+1", [](FakeEngine::Command& command) {
        command.writeOut(u"2\n");
        return yvm::YVM::Arrays();
    });
    WebSocketClient client(portOf(application), "/bayeux?token=s3cret");
    attach(client);
    client.send(evalOf(client, "1+1"));
    const std::string received = receiveUntil(client, "/eval/response");
    const auto text = received.find(
        R"({"channel":"/yvm/me/text/output","data":{"requestID":"e","stream":0,"text":"2\n"}})");
    const auto response = received.find(R"({"channel":"/yvm/me/eval/response","data":{"requestID":"e"}})");
    EXPECT_NE(text, std::string::npos) << received;
    EXPECT_NE(response, std::string::npos) << received;
    EXPECT_LT(text, response);
}

TEST_F(ApplicationTest, AStopLetsACommandEndAndItsAnswerOut) {
    std::promise<void> started;
    std::promise<void> mayEnd;
    engine->onEval(u"work", [&](FakeEngine::Command&) {
        started.set_value();
        mayEnd.get_future().wait();
        return yvm::YVM::Arrays();
    });
    WebSocketClient client(portOf(application), "/bayeux?token=s3cret");
    attach(client);
    client.send(evalOf(client, "work"));
    started.get_future().wait();
    std::thread stopper([&] {
        application.stopAccepting();
        EXPECT_TRUE(application.waitForAnswers(std::chrono::seconds(60)));
        engine->stop();
        application.stop();
    });
    // What comes now is refused, which tells that the stop is under way.
    std::string received;
    do {
        client.send(client.message("/yvm/attach/request", R"(,"data":{"requestID":"late"})"));
        received = receiveUntil(client, "\"id\":\"7\"");
    } while (received.find("503::the server is shutting down") == std::string::npos);
    mayEnd.set_value();
    EXPECT_THAT(receiveUntil(client, "/eval/response"), HasSubstr(R"({"requestID":"e"})"));
    // Answers to late requests that were still taken come before the end.
    EXPECT_THAT(receiveUntil(client, "closed "), EndsWith("closed 1001 the server is shutting down"));
    stopper.join();
}

TEST(Application, RefusesToStartWithoutPlugins) {
    const TemporaryFolder folder;
    Options none = options();
    none.pluginFolder = folder.path();
    EXPECT_THAT([&] { Application application(none); },
                ThrowsMessage<std::runtime_error>("no plug-in below '" + folder.path().string() +
                                                  "' serves any channel"));
    none.pluginFolder = folder.path() / "missing";
    EXPECT_THAT([&] { Application application(none); },
                ThrowsMessage<std::runtime_error>(HasSubstr("missing")));
}

TEST(Application, PrintsItsAddress) {
    Options open = options();
    EXPECT_THAT(Application(open).address(),
                ::testing::MatchesRegex("http://127.0.0.1:[0-9]+/\\?token=s3cret"));
    open.token = "a&b #+%/\xc3\xa4~";
    EXPECT_THAT(Application(open).address(), HasSubstr("/?token=a%26b%20%23%2B%25%2F%C3%A4~"));
    open.token.reset();
    EXPECT_THAT(Application(open).address(), ::testing::MatchesRegex("http://127.0.0.1:[0-9]+/"));
}

}  // namespace
}  // namespace server::app
