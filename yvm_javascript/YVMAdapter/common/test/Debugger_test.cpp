// The debugger's service of a client, which both protocol versions have alike but for one channel.

#include "r22a0/Debugger.hpp"

#include "common/test/EvalFevalCancelFixture.hpp"
#include "common/test/support.hpp"
#include "foundation/json/Serializer.hpp"
#include "r24a0/Debugger.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/LogCapture.hpp"
#include "yvm/json_serializers/serialize.hpp"

#include <gtest/gtest.h>

#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace yvm::JSClient {
namespace {

using cmddistributor::RuntimeException;
using connector::message_service::JsonMessage;
using platform_testing::FakeDebugger;
using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;
using platform_testing::LogCapture;
using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;
using Action = FakeDebugger::Action;
using Operation = FakeDebugger::Operation;

const std::string logChannel = "yvm::JSClient::Debugger";
const std::string gone = "Returning early due to null Debugger";
const std::string global = R"({"requestID":"1","breakpoint":{"type":"ERROR"}})";
const std::string line = R"({"requestID":"1","breakpoint":{"fileName":"a.py","location":{"lineNumber":3}}})";

const GlobalBreakpoint globalBreakpoint(GlobalBreakpoint::Condition::Error);
const LineBreakpoint lineBreakpoint(u"a.py", LineBreakpoint::Location(3));

struct Channel {
    std::string name;
    std::string message;
    Operation operation;
};

/// The publication, as `published` tells it, that answers request "1" by `error`.
std::string errorResponse(const std::string& channel, const RuntimeException& error) {
    return "/yvm/a/" + channel + "/response " +
           foundation::json::Serializer::serialize(
               JsonObject{{"requestID", "1"}, {"error", json_serializers::serialize(error)}});
}

struct R22a0 {
    using Debugger = r22a0::Debugger;
    static std::vector<Channel> operations() {
        return {{"setGlobalBreakpoint", global, {Action::Set, globalBreakpoint}},
                {"clearGlobalBreakpoint", global, {Action::Clear, globalBreakpoint}},
                {"setLineBreakpoint", line, {Action::Set, lineBreakpoint}},
                {"clearLineBreakpoint", line, {Action::Clear, lineBreakpoint}}};
    }
};

struct R24a0 {
    using Debugger = r24a0::Debugger;
    static std::vector<Channel> operations() {
        auto channels = R22a0::operations();
        channels.push_back({"clearAllBreakpoints", R"({"requestID":"1"})", {Action::ClearAll, std::nullopt}});
        return channels;
    }
};

template <typename Version>
class DebuggerTest : public testing::Test {
  protected:
    void create() { client = Version::Debugger::create("/yvm/a", engine, service); }

    /// Delivers a request on the client's channel of this name.
    void request(const std::string& channel, const std::string& message) {
        EXPECT_EQ(service->deliver("/yvm/a/" + channel + "/request", message), 1U);
    }

    /// "CHANNEL TEXT" of all that was published.
    std::vector<std::string> published() const {
        std::vector<std::string> texts;
        for (const auto& publication : service->publications()) {
            texts.push_back(publication.channel + " " + publication.text);
        }
        return texts;
    }

    foundation::json::Value only(const std::string& channel) const {
        const auto publications = service->publications();
        EXPECT_EQ(publications.size(), 1U);
        EXPECT_EQ(publications.at(0).channel, "/yvm/a/" + channel + "/response");
        return publications.at(0).json();
    }

    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    std::shared_ptr<FakeYvm> engine = FakeYvm::create();
    const std::shared_ptr<FakeDebugger> debugger = engine->debugger();
    std::shared_ptr<typename Version::Debugger> client;
};

using Versions = testing::Types<R22a0, R24a0>;
TYPED_TEST_SUITE(DebuggerTest, Versions);

TYPED_TEST(DebuggerTest, SubscribesInTheOrderOfItsChannelsAndLeavesInTheReverse) {
    std::vector<std::string> expected;
    for (const auto& channel : TypeParam::operations()) {
        expected.push_back("subscribe /yvm/a/" + channel.name + "/request");
    }
    expected.emplace_back("subscribe /yvm/a/breakInDebugger/request");
    for (auto i = expected.size(); i-- > 0;) {
        expected.push_back("un" + expected[i]);
    }
    this->create();
    this->client.reset();
    EXPECT_EQ(this->service->subscriptionLog(), expected);
}

TEST(DebuggerOfR22a0, HasNoChannelThatClearsAll) {
    const auto service = FakeMessageService::create();
    const auto engine = FakeYvm::create();
    const auto client = r22a0::Debugger::create("/yvm/a", engine, service);
    EXPECT_EQ(service->deliver("/yvm/a/clearAllBreakpoints/request", R"({"requestID":"1"})"), 0U);
    EXPECT_TRUE(service->publications().empty());
}

TYPED_TEST(DebuggerTest, AFailedSubscriptionLeavesNothingBehind) {
    for (std::size_t after = 0; after <= TypeParam::operations().size(); ++after) {
        this->service->failNextSubscribe(FakeMessageService::Failure::thrown, after);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { this->create(); }), "fake failure");
        EXPECT_EQ(this->service->subscriberCount(), 0U);
    }
}

TYPED_TEST(DebuggerTest, EachRequestReachesTheEngineAndIsAnsweredWhenThatHasActed) {
    this->create();
    std::size_t index = 0;
    for (const auto& channel : TypeParam::operations()) {
        this->request(channel.name, channel.message);
        ASSERT_EQ(this->debugger->operations().size(), index + 1);
        EXPECT_EQ(this->debugger->operations().back(), channel.operation);
        EXPECT_TRUE(this->published().empty()) << "nothing is answered ahead of the engine";
        this->debugger->succeed(index++);
        EXPECT_EQ(this->published(),
                  std::vector<std::string>{"/yvm/a/" + channel.name + R"(/response {"requestID":"1"})"});
        this->service->clearPublications();
    }
    EXPECT_EQ(this->engine->breakInCount(), 0);
}

TYPED_TEST(DebuggerTest, ARefusalIsAnsweredOnTheChannelOfItsRequest) {
    this->create();
    const RuntimeException error(RuntimeException::Status::CommandFailed, std::string("no code on line 3"),
                                 "yvm:noCode", "", {{"a.py", "f", 3, "x"}});
    std::size_t index = 0;
    for (const auto& channel : TypeParam::operations()) {
        this->request(channel.name, channel.message);
        this->debugger->fail(index++, std::make_exception_ptr(error));
        EXPECT_EQ(this->published(), std::vector<std::string>{errorResponse(channel.name, error)});
        this->service->clearPublications();
    }
}

TYPED_TEST(DebuggerTest, AnyOtherFailureHasStatusTwoAndItsText) {
    this->create();
    this->debugger->answerAtOnce(std::make_exception_ptr(std::invalid_argument("no such file")));
    this->request("setLineBreakpoint", line);
    test::expectPlainError(this->only("setLineBreakpoint"), 2, "no such file");
    this->service->clearPublications();
    this->debugger->answerAtOnce(std::make_exception_ptr(5));
    this->request("setLineBreakpoint", line);
    EXPECT_EQ(test::statusOf(this->only("setLineBreakpoint")), 2);
}

TYPED_TEST(DebuggerTest, AnOperationThatThrowsIsAnsweredAsARefusal) {
    this->create();
    this->debugger->failOperations(std::make_exception_ptr(std::runtime_error("not now")));
    this->request("clearLineBreakpoint", line);
    test::expectPlainError(this->only("clearLineBreakpoint"), 2, "not now");
}

TYPED_TEST(DebuggerTest, AnOperationThatTheEngineDropsIsAnswered) {
    this->create();
    {
        const auto other = FakeYvm::create();
        const auto shortLived = TypeParam::Debugger::create("/yvm/b", other, this->service);
        this->service->deliver("/yvm/b/setGlobalBreakpoint/request", global);
        EXPECT_THROW(other->debugger()->succeed(1), std::out_of_range);
        other->debugger()->dropOperations();
    }
    const auto publications = this->service->publications();
    ASSERT_EQ(publications.size(), 1U);
    EXPECT_EQ(publications[0].channel, "/yvm/b/setGlobalBreakpoint/response");
    test::expectPlainError(publications[0].json(), 2,
                           "The operation was dropped before the debugger answered it.");
}

TYPED_TEST(DebuggerTest, ABadRequestIsAnsweredOnItsChannelAndReachesNoEngine) {
    this->create();
    this->request("setGlobalBreakpoint", R"({"requestID":"1","breakpoint":{"type":"NONE"}})");
    test::expectPlainError(this->only("setGlobalBreakpoint"), 2, "Unknown GlobalBreakpoint type");
    this->service->clearPublications();
    this->request("clearLineBreakpoint", R"({"requestID":"1"})");
    test::expectPlainError(this->only("clearLineBreakpoint"), 2,
                           "key: breakpoint is missing from {\n  \"requestID\": \"1\"\n}");
    EXPECT_TRUE(this->debugger->operations().empty());
}

TYPED_TEST(DebuggerTest, AnswersComeInTheOrderInWhichTheEngineActs) {
    this->create();
    this->request("setLineBreakpoint", R"({"requestID":"1","breakpoint":{"fileName":"a"}})");
    this->request("setLineBreakpoint", R"({"requestID":"2","breakpoint":{"fileName":"b"}})");
    this->request("clearLineBreakpoint", R"({"requestID":"3","breakpoint":{"fileName":"c"}})");
    this->debugger->succeed(2);
    this->debugger->succeed(1);
    this->debugger->succeed(0);
    EXPECT_EQ(this->published(),
              (std::vector<std::string>{R"(/yvm/a/clearLineBreakpoint/response {"requestID":"3"})",
                                        R"(/yvm/a/setLineBreakpoint/response {"requestID":"2"})",
                                        R"(/yvm/a/setLineBreakpoint/response {"requestID":"1"})"}));
}

TYPED_TEST(DebuggerTest, AnOperationThatEndsAfterTheDetachPublishesNothing) {
    this->create();
    std::size_t count = 0;
    for (const auto& channel : TypeParam::operations()) {
        this->request(channel.name, channel.message);
        ++count;
    }
    this->client.reset();
    const LogCapture log;
    for (std::size_t i = 0; i < count; ++i) {
        this->debugger->succeed(i);
    }
    EXPECT_TRUE(this->published().empty());
    EXPECT_EQ(log.records(logChannel).size(), count);
    EXPECT_EQ(log.count(logChannel, 8, gone), count);
}

TYPED_TEST(DebuggerTest, ABreakInIsAnsweredAtOnceWithoutAWordOfTheEngine) {
    this->create();
    this->request("breakInDebugger", R"({"requestID":"9","breakpoint":1})");
    EXPECT_EQ(this->engine->breakInCount(), 1);
    EXPECT_EQ(this->published(),
              std::vector<std::string>{R"(/yvm/a/breakInDebugger/response {"requestID":"9"})"});
    EXPECT_TRUE(this->debugger->operations().empty());
}

TYPED_TEST(DebuggerTest, ABreakInThatThrowsIsAnsweredByItsError) {
    this->create();
    this->engine->failBreakIns(std::make_exception_ptr(std::runtime_error("not here")));
    this->request("breakInDebugger", R"({"requestID":"1"})");
    test::expectPlainError(this->only("breakInDebugger"), 2, "not here");
    this->service->clearPublications();
    const RuntimeException error(RuntimeException::Status::CommandFailed, std::string("not now"), "yvm:busy");
    this->engine->failBreakIns(std::make_exception_ptr(error));
    this->request("breakInDebugger", R"({"requestID":"1"})");
    EXPECT_EQ(this->published(), std::vector<std::string>{errorResponse("breakInDebugger", error)});
}

/// Keeps the callbacks of all subscriptions, also of those that have ended.
class KeepingService final : public ForwardingMessageService {
  public:
    connector::Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                               MessageCallback callback) override {
        kept[channel] = callback;
        return inner->subscribe(channel, std::move(callback));
    }

    std::map<std::string, MessageCallback> kept;
};

TYPED_TEST(DebuggerTest, ARequestThatArrivesAfterTheDetachIsNotAnswered) {
    const auto keeping = std::make_shared<KeepingService>();
    this->client = TypeParam::Debugger::create("/yvm/a", this->engine, keeping);
    this->client.reset();
    const LogCapture log;
    const auto kept = std::exchange(keeping->kept, {});
    for (const auto& [channel, callback] : kept) {
        callback(JsonMessage(channel, connector::common::DataBuffer(line)));
    }
    EXPECT_EQ(kept.size(), TypeParam::operations().size() + 1);
    EXPECT_EQ(log.count(logChannel, 8, gone), kept.size());
    EXPECT_EQ(log.records(logChannel).size(), kept.size());
    EXPECT_TRUE(keeping->inner->publications().empty());
    EXPECT_TRUE(this->debugger->operations().empty());
    EXPECT_EQ(this->engine->breakInCount(), 0);
}

/// Delivers a request as soon as somebody subscribes, before the subscriber hears of it.
class HastyService final : public ForwardingMessageService {
  public:
    connector::Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                               MessageCallback callback) override {
        callback(JsonMessage(channel, connector::common::DataBuffer(line)));
        return inner->subscribe(channel, std::move(callback));
    }
};

TYPED_TEST(DebuggerTest, ARequestThatArrivesWhileItsConnectionIsBuiltIsNotAnswered) {
    const auto hasty = std::make_shared<HastyService>();
    const LogCapture log;
    this->client = TypeParam::Debugger::create("/yvm/a", this->engine, hasty);
    EXPECT_EQ(log.count(logChannel, 8, gone), TypeParam::operations().size() + 1);
    EXPECT_TRUE(hasty->inner->publications().empty());
    EXPECT_TRUE(this->debugger->operations().empty());
}

TYPED_TEST(DebuggerTest, AResponseOfNoTypeOfItsOwnIsNotPublished) {
    this->create();
    for (const int type : {-1, static_cast<int>(TypeParam::operations().size())}) {
        this->client->publishResponse(static_cast<typename TypeParam::Debugger::ResponseType>(type),
                                      RequestResponse("1"));
    }
    EXPECT_TRUE(this->published().empty());
}

TYPED_TEST(DebuggerTest, TheEngineKeepsNoServiceAlive) {
    this->create();
    this->request("setLineBreakpoint", line);
    const std::weak_ptr<typename TypeParam::Debugger> weakClient = this->client;
    this->client.reset();
    EXPECT_TRUE(weakClient.expired());
    EXPECT_EQ(this->service->subscriberCount(), 0U);
}

TYPED_TEST(DebuggerTest, ItsChannelsKeepTheEngine) {
    this->create();
    const std::weak_ptr<FakeYvm> weakEngine = this->engine;
    this->engine.reset();
    EXPECT_FALSE(weakEngine.expired());
    this->client.reset();
    EXPECT_TRUE(weakEngine.expired());
}

TYPED_TEST(DebuggerTest, ADetachDuringACompletionLetsTheServiceDieOnTheEnginesThread) {
    // The completion holds the last reference while it publishes.
    class Detaching final : public ForwardingMessageService {
      public:
        connector::Future<void> publish(const std::string& channel,
                                        connector::common::DataBuffer payload) override {
            detach();
            return inner->publish(channel, std::move(payload));
        }
        std::function<void()> detach;
    };
    const auto detaching = std::make_shared<Detaching>();
    this->client = TypeParam::Debugger::create("/yvm/a", this->engine, detaching);
    const std::weak_ptr<typename TypeParam::Debugger> weakClient = this->client;
    detaching->detach = [&] {
        this->client.reset();
        EXPECT_FALSE(weakClient.expired());
    };
    detaching->inner->deliver("/yvm/a/setLineBreakpoint/request", line);
    std::thread([&] { this->debugger->succeed(0); }).join();
    EXPECT_TRUE(weakClient.expired());
    EXPECT_EQ(detaching->inner->publicationsOn("/yvm/a/setLineBreakpoint/response").size(), 1U);
    EXPECT_EQ(detaching->inner->subscriberCount(), 0U);
}

TYPED_TEST(DebuggerTest, OperationsThatEndOnManyThreadsAreEachAnsweredOnce) {
    this->create();
    constexpr std::size_t count = 200;
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (std::size_t i = thread; i < count; i += 4) {
                if (!test::waitUntil([&] { return this->debugger->operations().size() > i; })) {
                    ADD_FAILURE() << "operation " << i << " never came";
                    return;
                }
                this->debugger->succeed(i);
            }
        });
    }
    for (std::size_t i = 0; i < count; ++i) {
        this->request("setLineBreakpoint",
                      R"({"requestID":")" + std::to_string(i) + R"(","breakpoint":{"fileName":"a"}})");
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::map<std::string, int> answers;
    for (const auto& publication : this->service->publicationsOn("/yvm/a/setLineBreakpoint/response")) {
        ++answers[publication.text];
    }
    EXPECT_EQ(answers.size(), count);
    EXPECT_EQ(this->service->publications().size(), count);
}

}  // namespace
}  // namespace yvm::JSClient
