// The module on a real broker, its delivery threads, and an engine with a thread of its own: several clients
// attach, evaluate, print and detach at the same time. Meant above all for the thread sanitizer.

#include "common/YVMAdapterHolder.hpp"
#include "common/test/support.hpp"
#include "connector/message_service/Broker.hpp"
#include "cppmicroservices/Framework.hpp"
#include "testing/FakeEngine.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

extern "C" void _us_set_bundle_context_instance_com_yorworks_YVMAdapter(
    cppmicroservices::BundleContextPrivate* context);

namespace yvm::JSClient {
namespace {

using connector::common::DataBuffer;
using connector::message_service::Broker;
using connector::message_service::JsonMessage;
using connector::message_service::MessageService;

/// Collects everything that the module publishes for clients, by channel.
class Inbox {
  public:
    void add(const JsonMessage& message) {
        const std::lock_guard lock(mutex_);
        texts_[message.channel()].emplace_back(message.payload().view());
        changed_.notify_all();
    }

    /// Waits until `count` messages have come on `channel`; false when that took more than a minute.
    [[nodiscard]] bool waitFor(const std::string& channel, std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60),
                                 [&] { return texts_[channel].size() >= count; });
    }

    std::vector<std::string> on(const std::string& channel) {
        const std::lock_guard lock(mutex_);
        return texts_[channel];
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, std::vector<std::string>> texts_;  // guarded by mutex_
};

class ConcurrencyTest : public testing::Test {
  protected:
    ConcurrencyTest() {
        framework.Start();
        auto context = framework.GetBundleContext();
        _us_set_bundle_context_instance_com_yorworks_YVMAdapter(
            cppmicroservices::shareBundleContext(context));
        connector::message_service::setMessageServiceFactory(
            [this](const std::string& name, const connector::message_service::MessageServiceOptions&) {
                return connector::makeReadyFuture<std::shared_ptr<MessageService>>(
                    broker->createService(name));
            });
        subscription =
            broker->subscribeInline("/yvm/**", [this](const JsonMessage& message) { inbox.add(message); });
        broker->start();
        engine->onEval(u"print", [](platform_testing::FakeEngine::Command& command) {
            command.writeOut(u"hi\n");
            return yvm::YVM::Arrays();
        });
        context.RegisterService<yvm::YVM>(engine, {{"user-yvm", foundation::json::Value(true)}});
    }

    ~ConcurrencyTest() override {
        engine->stop();
        subscription->unsubscribe();
        broker->stop();
        connector::message_service::setMessageServiceFactory({});
        _us_set_bundle_context_instance_com_yorworks_YVMAdapter(nullptr);
    }

    void publish(const std::string& channel, const std::string& text, const std::string& lane) {
        broker->publish(channel, DataBuffer(text), lane);
    }

    void attach(const std::string& id, const std::string& version = "r24a0") {
        publish("/yvm/attach/request",
                R"({"requestID":")" + id + R"(","yvmID":"user-yvm","supportedApiVersions":[")" + version +
                    R"("]})",
                id);
    }

    void eval(const std::string& id, int number) {
        publish("/yvm/" + id + "/eval/request",
                R"({"requestID":")" + std::to_string(number) +
                    R"(","command":"print","runOptions":{"useNullOutSink":false}})",
                id);
    }

    void detach(const std::string& id) {
        publish("/yvm/detach/request", R"({"requestID":"d)" + id + R"(","requestIDtoDetach":")" + id + "\"}",
                id);
    }

    Inbox inbox;
    cppmicroservices::Framework framework;
    const std::shared_ptr<Broker> broker = Broker::create();
    std::shared_ptr<connector::message_service::Subscription> subscription;
    const std::shared_ptr<platform_testing::FakeEngine> engine = platform_testing::FakeEngine::create();
};

constexpr int clientCount = 4;
constexpr std::size_t evalCount = 25;

TEST_F(ConcurrencyTest, ClientsOfBothVersionsThatEvaluateAtOnceEachGetTheirTextAndTheirAnswers) {
    const YVMAdapterHolder holder;
    std::vector<std::thread> clients;
    for (int client = 0; client < clientCount; ++client) {
        clients.emplace_back([this, id = "c" + std::to_string(client), isOlder = client % 2 == 1] {
            attach(id, isOlder ? "r22a0" : "r24a0");
            ASSERT_TRUE(inbox.waitFor("/yvm/attach/response", 1));
            while (true) {  // the answers to all attaches come on one channel
                const auto answers = inbox.on("/yvm/attach/response");
                const auto isMine = [&id](const std::string& text) {
                    return text.find("\"requestID\":\"" + id + "\"") != std::string::npos;
                };
                if (std::ranges::any_of(answers, isMine)) {
                    break;
                }
                ASSERT_TRUE(inbox.waitFor("/yvm/attach/response", answers.size() + 1));
            }
            for (std::size_t number = 0; number < evalCount; ++number) {
                eval(id, static_cast<int>(number));
            }
            EXPECT_TRUE(inbox.waitFor("/yvm/" + id + "/eval/response", evalCount));
            detach(id);
        });
    }
    for (auto& client : clients) {
        client.join();
    }
    EXPECT_TRUE(inbox.waitFor("/yvm/detach/response", clientCount));
    for (int client = 0; client < clientCount; ++client) {
        const std::string prefix = "/yvm/c" + std::to_string(client);
        EXPECT_EQ(inbox.on(prefix + "/eval/response").size(), evalCount);
        const std::string output = prefix + (client % 2 == 1 ? "/output" : "/text/output");
        EXPECT_EQ(inbox.on(output).size(), evalCount);
        EXPECT_EQ(inbox.on(output).front(), R"({"requestID":"0","stream":0,"text":"hi\n"})");
    }
}

TEST_F(ConcurrencyTest, RequestsThatComeInWhileTheirClientIsBeingAttachedDoNotDisturbIt) {
    const YVMAdapterHolder holder;
    constexpr int attaches = 20;
    for (int number = 0; number < attaches; ++number) {
        const std::string id = "c" + std::to_string(number);
        const std::string prefix = "/yvm/" + id;
        std::atomic<bool> isAttached = false;
        std::thread early([this, &isAttached, &id, &prefix] {
            for (int i = 0; i < 200 && !isAttached; ++i) {
                for (const char* channel : {"/interrupt", "/breakInDebugger", "/yvmSinks"}) {
                    publish(prefix + channel + "/request", R"({"requestID":"early"})", "early" + id);
                }
                std::this_thread::yield();
            }
        });
        attach(id, number % 2 == 0 ? "r24a0" : "r22a0");
        EXPECT_TRUE(inbox.waitFor("/yvm/attach/response", static_cast<std::size_t>(number) + 1));
        isAttached = true;
        early.join();
        eval(id, 1);
        EXPECT_TRUE(inbox.waitFor(prefix + "/eval/response", 1));
    }
}

TEST_F(ConcurrencyTest, ADetachInTheMiddleOfTheWorkEndsItAndLetsOthersGoOn) {
    const YVMAdapterHolder holder;
    for (int round = 0; round < 10; ++round) {
        const std::string id = "r" + std::to_string(round);
        attach(id);
        ASSERT_TRUE(inbox.waitFor("/yvm/attach/response", static_cast<std::size_t>(round) + 1));
        std::thread evaluating([this, &id] {
            for (int number = 0; number < 20; ++number) {
                eval(id, number);
            }
        });
        // In a lane of its own, so that it runs beside the evals.
        publish("/yvm/detach/request", R"({"requestID":"d","requestIDtoDetach":")" + id + "\"}", "other");
        evaluating.join();
        ASSERT_TRUE(inbox.waitFor("/yvm/detach/response", static_cast<std::size_t>(round) + 1));
    }
    attach("last");
    ASSERT_TRUE(inbox.waitFor("/yvm/attach/response", 11));
    eval("last", 1);
    EXPECT_TRUE(inbox.waitFor("/yvm/last/eval/response", 1));
}

TEST_F(ConcurrencyTest, TheModuleStopsWhileRequestsComeIn) {
    std::thread publishing;
    {
        const YVMAdapterHolder holder;
        attach("a");
        ASSERT_TRUE(inbox.waitFor("/yvm/attach/response", 1));
        publishing = std::thread([this] {
            for (int number = 0; number < 200; ++number) {
                eval("a", number);
                attach("b" + std::to_string(number));
                detach("b" + std::to_string(number));
            }
        });
    }
    publishing.join();
    // In one lane behind an attach: when the marker has come, so would have the answer.
    const auto door = broker->createService("test");
    const auto marker =
        door->subscribe("/marker", [this](const JsonMessage& message) { inbox.add(message); }).get();
    attach("late");
    publish("/marker", "{}", "late");
    ASSERT_TRUE(inbox.waitFor("/marker", 1));
    for (const auto& answer : inbox.on("/yvm/attach/response")) {
        EXPECT_EQ(answer.find("late"), std::string::npos);
    }
}

}  // namespace
}  // namespace yvm::JSClient
