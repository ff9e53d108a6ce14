// The bridge from events to a client, which both protocol versions have alike, but that only r24a0 flushes
// text ahead of an event.

#include "r22a0/EventManagerConnection.hpp"

#include "cmddistributor/RunOptions.hpp"
#include "common/setCurrentMockYvm.hpp"
#include "common/test/support.hpp"
#include "common/test/versions.hpp"
#include "cppmicroservices/Framework.hpp"
#include "event_json_converter/EventToJsonConverter.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "r22a0/YVMSink.hpp"
#include "r22a0/deserializeRunOptions.hpp"
#include "r24a0/EventManagerConnection.hpp"
#include "r24a0/YVMSink.hpp"
#include "r24a0/deserializeRunOptions.hpp"
#include "r24a0/test/SinksFixture.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/FrameworkWithFakePool.hpp"
#include "testing/LogCapture.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "yvm/Factory.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace yvm::JSClient {
namespace {

using event_json_converter::EventToJsonConverter;
using foundation::json::Value;
using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::DeliveryMode;
using foundation::msg_svc::eventmgr::DerivedEvent;
using foundation::msg_svc::eventmgr::EventMgr;
using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;
using platform_testing::LogCapture;
using test::messageOf;
using test::parseObject;
using test::statusOf;
using test::textThrownBy;

const std::string logChannel = "yvm::JSClient::EventManagerConnection";
const std::string numberEvent = "yvm::JSClient::(anonymous namespace)::NumberEvent";
const std::string promptEvent = "ylutil::prompt::PromptEvent";

class NumberEvent final : public DerivedEvent<NumberEvent> {
  public:
    static constexpr bool acceptsUserTags = true;

    explicit NumberEvent(int number) : number_(number) {}
    int number() const noexcept { return number_; }

  private:
    int number_;
};

/// An event whose static tags the test chooses.
class NamedEvent final : public BaseEvent {
  public:
    explicit NamedEvent(std::u16string name)
        : tags_{u"foundation::msg_svc::eventmgr::BaseEvent", std::move(name)} {}
    const std::vector<std::u16string>& getStaticTags() const override { return tags_; }
    bool isKindOf(std::u16string_view name) const override { return name == tags_[0] || name == tags_[1]; }

  private:
    std::vector<std::u16string> tags_;
};

class FunctionConverter final : public EventToJsonConverter {
  public:
    using Function = std::function<JsonObject(const BaseEvent&)>;

    explicit FunctionConverter(Function function) : function_(std::move(function)) {}
    JsonObject convert(const BaseEvent& event) const override { return function_(event); }

  private:
    const Function function_;
};

JsonObject tellNumber(const BaseEvent& event) {
    return {{"number", Value(dynamic_cast<const NumberEvent&>(event).number())}};
}

/// Takes no subscription.
class RefusingEventMgr final : public EventMgr {
  public:
    void deliver(std::shared_ptr<const BaseEvent>, DeliveryMode) override {}
    std::size_t subscriptionCount(const std::u16string&) const override { return 0; }
    void setCommandHandlerLookup(foundation::msg_svc::eventmgr::CommandHandlerLookup) override {}

  private:
    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> subscribeGuarded(
        foundation::msg_svc::eventmgr::EventHandler, std::vector<std::u16string>) override {
        return nullptr;
    }
};

/// Has an event for whoever subscribes, at once.
class EagerEventMgr final : public EventMgr {
  public:
    void deliver(std::shared_ptr<const BaseEvent>, DeliveryMode) override {}
    std::size_t subscriptionCount(const std::u16string&) const override { return 0; }
    void setCommandHandlerLookup(foundation::msg_svc::eventmgr::CommandHandlerLookup) override {}

  private:
    class NoConnection final : public foundation::msg_svc::eventmgr::Connection {
      public:
        void disconnect() noexcept override {}
    };

    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> subscribeGuarded(
        foundation::msg_svc::eventmgr::EventHandler handler, std::vector<std::u16string>) override {
        handler(NumberEvent(1));
        return std::make_unique<NoConnection>();
    }
};

/// A message service, `inner`, that calls a function of the test inside each `unsubscribe`.
class UnsubscribeHook final : public connector::message_service::MessageService {
  public:
    using Subscription = connector::message_service::Subscription;
    using SubscriptionFuture = connector::Future<std::shared_ptr<Subscription>>;

    UnsubscribeHook(std::shared_ptr<MessageService> inner, std::function<void()> function)
        : inner_(std::move(inner)), function_(std::move(function)) {}

    SubscriptionFuture subscribe(const std::string& channel, MessageCallback callback) override {
        return connector::makeReadyFuture<std::shared_ptr<Subscription>>(std::make_shared<HookedSubscription>(
            inner_->subscribe(channel, std::move(callback)).get(), function_));
    }
    connector::Future<void> publish(const std::string& channel,
                                    connector::common::DataBuffer payload) override {
        return inner_->publish(channel, std::move(payload));
    }
    SubscriptionFuture onSubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::SubscribeEvent&)> callback) override {
        return inner_->onSubscribe(channel, std::move(callback));
    }
    SubscriptionFuture onUnsubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::UnsubscribeEvent&)> callback) override {
        return inner_->onUnsubscribe(channel, std::move(callback));
    }

  private:
    class HookedSubscription final : public Subscription {
      public:
        HookedSubscription(std::shared_ptr<Subscription> inner, std::function<void()> function)
            : inner_(std::move(inner)), function_(std::move(function)) {}
        connector::Future<void> unsubscribe() override {
            function_();
            return inner_->unsubscribe();
        }

      private:
        const std::shared_ptr<Subscription> inner_;
        const std::function<void()> function_;
    };

    const std::shared_ptr<MessageService> inner_;
    const std::function<void()> function_;
};

/// The bridge of either version.
class Bridge {
  public:
    using EventHandler = boost::function<void(const BaseEvent&)>;

    virtual ~Bridge() = default;
    virtual EventHandler makeEventHandler(const std::string& eventName, const std::string& requestId) = 0;
    virtual EventHandler makeRunOptionsEventHandler(const std::string& eventName,
                                                    const std::string& requestId) = 0;
    virtual void handleDisconnect(const std::string& channel) = 0;
    virtual cmddistributor::RunOptions deserialize(const JsonObject& options) = 0;
};

template <typename Connection, cmddistributor::RunOptions (*deserializeRunOptions)(
                                   const JsonObject&, const std::shared_ptr<Connection>&, const std::string&,
                                   std::function<void(std::string, JsonObject)>)>
class BridgeOf final : public Bridge {
  public:
    explicit BridgeOf(std::shared_ptr<Connection> connection) : connection_(std::move(connection)) {}
    EventHandler makeEventHandler(const std::string& eventName, const std::string& requestId) override {
        return connection_->makeEventHandler(eventName, requestId);
    }
    EventHandler makeRunOptionsEventHandler(const std::string& eventName,
                                            const std::string& requestId) override {
        return connection_->makeRunOptionsEventHandler(eventName, requestId);
    }
    void handleDisconnect(const std::string& channel) override { connection_->handleDisconnect(channel); }
    cmddistributor::RunOptions deserialize(const JsonObject& options) override {
        return deserializeRunOptions(options, connection_, "7", [](const std::string&, const JsonObject&) {});
    }

  private:
    const std::shared_ptr<Connection> connection_;
};

using BridgeOfR22a0 = BridgeOf<r22a0::EventManagerConnection, r22a0::deserializeRunOptions>;
using BridgeOfR24a0 = BridgeOf<r24a0::EventManagerConnection, r24a0::deserializeRunOptions>;

class EventFixture : public testing::Test {
  protected:
    /// The converters of the product are started by the first look-up of each version, in the framework that
    /// is there. Let that be none of a test's, which knows the converters that it registers and no others.
    static void SetUpTestSuite() {
        const platform_testing::FrameworkWithFakePool first;
        const auto service = FakeMessageService::create();
        EXPECT_FALSE(r22a0::EventManagerConnection::create("/yvm/a", nullptr, service)
                         ->makeEventHandler("nobody::Knows", "1"));
        EXPECT_FALSE(r24a0::EventManagerConnection::create("/yvm/a", nullptr, service, nullptr)
                         ->makeEventHandler("nobody::Knows", "1"));
    }

    explicit EventFixture(ApiVersion ownVersion) : version(ownVersion) {}
    ~EventFixture() override { connection.reset(); }

    void create() { create(eventMgr); }
    void create(const boost::shared_ptr<EventMgr>& ownEventMgr) { create(ownEventMgr, service); }
    void create(const boost::shared_ptr<EventMgr>& ownEventMgr,
                const std::shared_ptr<connector::message_service::MessageService>& ownService) {
        if (version == ApiVersion::r22a0) {
            connection = std::make_unique<BridgeOfR22a0>(
                r22a0::EventManagerConnection::create("/yvm/a", ownEventMgr, ownService));
        } else {
            connection = std::make_unique<BridgeOfR24a0>(
                r24a0::EventManagerConnection::create("/yvm/a", ownEventMgr, ownService, nullptr));
        }
    }

    auto registerConverter(const std::string& tag, FunctionConverter::Function function) {
        return registerConverter(tag, std::make_shared<FunctionConverter>(std::move(function)));
    }
    cppmicroservices::ServiceRegistration registerConverter(
        const std::string& tag, const std::shared_ptr<FunctionConverter>& converter) {
        return registered.framework().GetBundleContext().RegisterService<EventToJsonConverter>(
            converter, {{"eventTag", Value(tag)}});
    }

    void subscribe(const std::string& requestID, const std::string& eventName) {
        service->deliver("/yvm/a/subscribeEvent/request",
                         R"({"requestID":")" + requestID + R"(","eventName":")" + eventName + R"("})");
    }
    void disconnect(const std::string& requestID, const std::string& requestIDtoDisconnect) {
        service->deliver("/yvm/a/disconnectEvent/request", R"({"requestID":")" + requestID +
                                                               R"(","requestIDtoDisconnect":")" +
                                                               requestIDtoDisconnect + R"("})");
    }
    void fire(int number) const {
        eventMgr->deliver(std::make_shared<NumberEvent>(number), DeliveryMode::synchronous);
    }

    Value lastAnswer(const std::string& channel) const {
        const auto answers = service->publicationsOn("/yvm/a/" + channel + "/response");
        if (answers.empty()) {
            throw std::runtime_error("there was no answer on " + channel);
        }
        return answers.back().json();
    }
    std::vector<std::string> firedTexts() const {
        std::vector<std::string> texts;
        for (const auto& publication : service->publicationsOn("/yvm/a/event/fireEvent")) {
            texts.push_back(publication.text);
        }
        return texts;
    }
    static std::string fired(const std::string& requestID, int number) {
        return R"({"eventData":{"number":)" + std::to_string(number) + R"(},"requestID":")" + requestID +
               R"("})";
    }
    static std::string success(const std::string& requestID) {
        return R"({"requestID":")" + requestID + R"("})";
    }

    const ApiVersion version;
    const r24a0::FeatureSwitches features;
    platform_testing::FrameworkWithFakePool registered;
    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    const boost::shared_ptr<EventMgr> eventMgr = EventMgr::create();
    std::unique_ptr<Bridge> connection;
};

class EventManagerConnectionTest : public EventFixture, public test::ForEachVersion {
  protected:
    EventManagerConnectionTest() : EventFixture(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Versions, EventManagerConnectionTest, test::bothVersions(), test::nameOfVersion);

TEST_P(EventManagerConnectionTest, SubscribesTwoChannelsInOrderAndOnlyPublishesOnTheThird) {
    create();
    EXPECT_EQ(service->subscriptionLog(),
              (std::vector<std::string>{"subscribe /yvm/a/subscribeEvent/request",
                                        "subscribe /yvm/a/disconnectEvent/request"}));
    connection.reset();
    EXPECT_EQ(service->subscriberCount(), 0U);
}

TEST_P(EventManagerConnectionTest, ASubscriptionBringsEveryEventUnderItsIdentifier) {
    registerConverter(numberEvent, tellNumber);
    create();
    const LogCapture log;
    subscribe("s", numberEvent);
    EXPECT_EQ(service->publicationsOn("/yvm/a/subscribeEvent/response").back().text, success("s"));
    EXPECT_EQ(log.texts(logChannel, 2),
              std::vector<std::string>{" eventName=" + numberEvent + " requestId=s"});
    EXPECT_EQ(log.texts(logChannel, 8),
              (std::vector<std::string>{"connect for connectionId /yvm/a/subscribeEvent requestId s",
                                        "Subscribed to " + numberEvent + " on s"}));
    fire(1);
    fire(2);
    EXPECT_EQ(firedTexts(), (std::vector<std::string>{fired("s", 1), fired("s", 2)}));
    EXPECT_EQ(log.count(logChannel, 8, "inside event callback for " + numberEvent + " for s"), 2U);
}

TEST_P(EventManagerConnectionTest, OtherEventsDoNotComeAndUserTagsDo) {
    registerConverter("my tag", [](const BaseEvent&) { return JsonObject{{"tagged", Value(true)}}; });
    create();
    subscribe("s", "my tag");
    fire(1);
    EXPECT_TRUE(firedTexts().empty());
    const auto event = std::make_shared<NumberEvent>(1);
    event->addUserTags(std::vector<std::u16string>{u"my tag"});
    eventMgr->deliver(event, DeliveryMode::synchronous);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{R"({"eventData":{"tagged":true},"requestID":"s"})"});
}

TEST_P(EventManagerConnectionTest, ANameWithoutAConverterIsRefused) {
    create();
    const LogCapture log;
    subscribe("s", "nobody::Knows");
    EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")), "No converter for nobody::Knows");
    EXPECT_EQ(statusOf(lastAnswer("subscribeEvent")), 5);
    EXPECT_TRUE(log.contains(logChannel, 8, "Could not find converter for nobody::Knows"));
    disconnect("d", "s");
    EXPECT_EQ(messageOf(lastAnswer("disconnectEvent")), "No subscription for s") << "the table stayed empty";
}

TEST_P(EventManagerConnectionTest, NamesThatMeanSomethingInFiltersAreJustNames) {
    registerConverter(numberEvent, tellNumber);
    registerConverter("(a)*\\\\", tellNumber);
    create();
    for (const std::string name :
         {"*", "yvm::*", "(a*", "(", ")", "(|(a=b))", R"(\)", R"(\2a)", "", " ", "a)(b", "(a)*"}) {
        subscribe("s", boost::replace_all_copy(name, R"(\)", R"(\\)"));
        EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")), "No converter for " + name);
        EXPECT_EQ(statusOf(lastAnswer("subscribeEvent")), 5) << name;
    }
    subscribe("t", R"((a)*\\\\)");
    EXPECT_EQ(lastAnswer("subscribeEvent"), Value(JsonObject{{"requestID", "t"}}));
}

TEST_P(EventManagerConnectionTest, AnEncodedNameFindsTheConverterAndItselfStaysTheTag) {
    registerConverter("sample::Event", tellNumber);
    create();
    subscribe("s", "class sample::Event");
    EXPECT_EQ(lastAnswer("subscribeEvent"), Value(JsonObject{{"requestID", "s"}}));
    EXPECT_EQ(eventMgr->subscriptionCount(u"class sample::Event"), 1U);
    EXPECT_EQ(eventMgr->subscriptionCount(u"sample::Event"), 0U);
}

TEST_P(EventManagerConnectionTest, OfTwoConvertersTheFirstServes) {
    registerConverter(numberEvent, tellNumber);
    int asked = 0;
    registerConverter(numberEvent, [&asked](const BaseEvent&) {
        ++asked;
        return JsonObject();
    });
    create();
    subscribe("s", numberEvent);
    fire(1);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("s", 1)});
    EXPECT_EQ(asked, 0);
}

TEST_P(EventManagerConnectionTest, AConverterThatComesLaterServesLaterSubscriptionsOnly) {
    create();
    subscribe("early", numberEvent);
    registerConverter(numberEvent, tellNumber);
    fire(1);
    EXPECT_TRUE(firedTexts().empty());
    subscribe("late", numberEvent);
    fire(2);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("late", 2)});
}

TEST_P(EventManagerConnectionTest, AConverterThatGoesServesItsSubscriptionsOn) {
    auto registration = registerConverter(numberEvent, tellNumber);
    create();
    subscribe("early", numberEvent);
    registration.Unregister();
    subscribe("late", numberEvent);
    EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")), "No converter for " + numberEvent);
    fire(1);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("early", 1)});
}

TEST_P(EventManagerConnectionTest, AnEventMayComeBeforeTheAnswerToItsSubscription) {
    registerConverter(numberEvent, tellNumber);
    create(boost::shared_ptr<EventMgr>(new EagerEventMgr));
    subscribe("s", numberEvent);
    std::vector<std::string> texts;
    for (const auto& publication : service->publications()) {
        texts.push_back(publication.text);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{fired("s", 1), success("s")}));
}

TEST_P(EventManagerConnectionTest, EachHandlerOwnsTheFirstConverterByItselfAndNoOther) {
    const auto first = std::make_shared<FunctionConverter>(tellNumber);
    const auto second = std::make_shared<FunctionConverter>(tellNumber);
    registerConverter(numberEvent, first);
    registerConverter(numberEvent, second);
    create();
    const auto before = first.use_count();
    const auto secondBefore = second.use_count();
    auto one = connection->makeEventHandler(numberEvent, "1");
    EXPECT_EQ(first.use_count(), before + 1);
    auto two = connection->makeEventHandler(numberEvent, "2");
    EXPECT_EQ(first.use_count(), before + 2);
    one.clear();
    EXPECT_EQ(first.use_count(), before + 1);
    two(NumberEvent(1));
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("2", 1)});
    EXPECT_EQ(second.use_count(), secondBefore);
    two.clear();
    EXPECT_EQ(first.use_count(), before);
}

TEST_P(EventManagerConnectionTest, WithoutAFrameworkThereIsNoConverter) {
    registerConverter(numberEvent, tellNumber);
    create();
    subscribe("first", numberEvent);
    foundation::cppmicroservices::setFramework(nullptr);
    subscribe("s", numberEvent);
    EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")), "No converter for " + numberEvent);
}

TEST_P(EventManagerConnectionTest, AFrameworkThatHasStoppedIsAnError) {
    registerConverter(numberEvent, tellNumber);
    create();
    registered.framework().Stop();
    subscribe("s", numberEvent);
    EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")), "The bundle context is no longer valid");
    disconnect("d", "s");
    EXPECT_EQ(messageOf(lastAnswer("disconnectEvent")), "No subscription for s");
}

TEST_P(EventManagerConnectionTest, WithoutAConnectionThereIsNoSubscription) {
    registerConverter(numberEvent, tellNumber);
    for (const auto& ownEventMgr :
         {boost::shared_ptr<EventMgr>(), boost::shared_ptr<EventMgr>(new RefusingEventMgr)}) {
        create(ownEventMgr);
        subscribe("s", numberEvent);
        EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")), "Unable to subscribe to " + numberEvent);
        EXPECT_EQ(statusOf(lastAnswer("subscribeEvent")), 5);
        disconnect("d", "s");
        EXPECT_EQ(messageOf(lastAnswer("disconnectEvent")), "No subscription for s");
    }
}

TEST_P(EventManagerConnectionTest, AMissingKeyIsAnsweredByTheChannel) {
    create();
    service->deliver("/yvm/a/subscribeEvent/request", R"({"requestID":"s"})");
    EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")),
              "key: eventName is missing from {\n  \"requestID\": \"s\"\n}");
    service->deliver("/yvm/a/disconnectEvent/request", R"({"requestID":"d"})");
    EXPECT_EQ(messageOf(lastAnswer("disconnectEvent")),
              "key: requestIDtoDisconnect is missing from {\n  \"requestID\": \"d\"\n}");
}

TEST_P(EventManagerConnectionTest, AnIdentifierInUseIsRefusedAndYetTheNewSubscriptionLives) {
    registerConverter(numberEvent, tellNumber);
    registerConverter("other", [](const BaseEvent&) { return JsonObject{{"other", Value(true)}}; });
    create();
    subscribe("s", numberEvent);
    const LogCapture log;
    subscribe("s", "other");
    EXPECT_EQ(messageOf(lastAnswer("subscribeEvent")), "Unable to emplaceConnection for other");
    EXPECT_EQ(statusOf(lastAnswer("subscribeEvent")), 5);
    EXPECT_FALSE(log.contains(logChannel, 8, "Subscribed to other on s"));
    fire(1);
    EXPECT_TRUE(firedTexts().empty()) << "the table holds the new subscription, and the old one has ended";
    eventMgr->deliver(std::make_shared<NamedEvent>(u"other"), DeliveryMode::synchronous);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{R"({"eventData":{"other":true},"requestID":"s"})"});
    disconnect("d", "s");
    EXPECT_EQ(eventMgr->subscriptionCount(u"other"), 0U);
}

TEST_P(EventManagerConnectionTest, ADisconnectEndsTheSubscriptionOnce) {
    registerConverter(numberEvent, tellNumber);
    create();
    subscribe("s", numberEvent);
    const LogCapture log;
    disconnect("d", "s");
    EXPECT_EQ(service->publicationsOn("/yvm/a/disconnectEvent/response").back().text, success("d"));
    EXPECT_TRUE(log.contains(logChannel, 8, "disconnect for s"));
    fire(1);
    EXPECT_TRUE(firedTexts().empty());
    disconnect("e", "s");
    EXPECT_EQ(messageOf(lastAnswer("disconnectEvent")), "No subscription for s");
    EXPECT_EQ(statusOf(lastAnswer("disconnectEvent")), 5);
    subscribe("s", numberEvent);
    EXPECT_EQ(lastAnswer("subscribeEvent"), Value(JsonObject{{"requestID", "s"}}))
        << "the identifier is free";
}

TEST_P(EventManagerConnectionTest, AConverterThatThrowsCostsThatEventAlone) {
    registerConverter(numberEvent, [](const BaseEvent& event) {
        if (dynamic_cast<const NumberEvent&>(event).number() == 1) {
            throw std::runtime_error("no words");
        }
        return tellNumber(event);
    });
    create();
    subscribe("s", numberEvent);
    const LogCapture log;
    fire(1);
    fire(2);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("s", 2)});
    EXPECT_EQ(log.texts("foundation::msg_svc::eventmgr", 16).size(), 1U);
}

TEST_P(EventManagerConnectionTest, APublishThatThrowsCostsThatEventAlone) {
    registerConverter(numberEvent, tellNumber);
    create();
    subscribe("s", numberEvent);
    service->failNextPublish(FakeMessageService::Failure::thrown);
    fire(1);
    fire(2);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("s", 2)});
}

TEST_P(EventManagerConnectionTest, AnEventBehindTheEndOfTheClientIsDropped) {
    registerConverter(numberEvent, tellNumber);
    create();
    const auto handler = connection->makeEventHandler(numberEvent, "r");
    connection.reset();
    const LogCapture log;
    handler(NumberEvent(1));
    EXPECT_TRUE(firedTexts().empty());
    EXPECT_TRUE(log.contains(logChannel, 8, "inside event callback for " + numberEvent + " for r"));
}

TEST_P(EventManagerConnectionTest, AnEventDuringTheEndOfTheClientIsDropped) {
    registerConverter(numberEvent, tellNumber);
    Bridge::EventHandler handler;
    int calls = 0;
    create(eventMgr, std::make_shared<UnsubscribeHook>(service, [&handler, &calls] {
               ++calls;
               handler(NumberEvent(calls));
           }));
    handler = connection->makeRunOptionsEventHandler(numberEvent, "r");
    connection.reset();
    EXPECT_EQ(calls, 2) << "within the ends of the two channels";
    EXPECT_TRUE(service->publications().empty());
}

TEST_P(EventManagerConnectionTest, TheEndOfTheClientEndsItsSubscriptionsBeforeItsChannels) {
    registerConverter(numberEvent, tellNumber);
    const auto countSubscriptions = [this] {
        return eventMgr->subscriptionCount(std::u16string(numberEvent.begin(), numberEvent.end()));
    };
    std::vector<std::size_t> counts;
    create(eventMgr, std::make_shared<UnsubscribeHook>(service, [&counts, &countSubscriptions] {
               counts.push_back(countSubscriptions());
           }));
    subscribe("s", numberEvent);
    EXPECT_EQ(countSubscriptions(), 1U);
    connection.reset();
    EXPECT_EQ(counts, (std::vector<std::size_t>{0, 0}));
}

TEST_P(EventManagerConnectionTest, AnEventMayDropTheLastReference) {
    registerConverter(numberEvent, [this](const BaseEvent& event) {
        connection.reset();
        return tellNumber(event);
    });
    create();
    subscribe("s", numberEvent);
    fire(1);
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("s", 1)});
    EXPECT_EQ(service->subscriberCount(), 0U);
}

TEST_P(EventManagerConnectionTest, AnEventFiredInsideAHandlerArrives) {
    registerConverter(numberEvent, [this](const BaseEvent& event) {
        if (dynamic_cast<const NumberEvent&>(event).number() == 1) {
            fire(2);
        }
        return tellNumber(event);
    });
    create();
    subscribe("s", numberEvent);
    fire(1);
    EXPECT_EQ(firedTexts(), (std::vector<std::string>{fired("s", 2), fired("s", 1)}));
}

TEST_P(EventManagerConnectionTest, ARunOptionsHandlerReservesItsIdentifier) {
    registerConverter(numberEvent, tellNumber);
    create();
    const auto handler = connection->makeRunOptionsEventHandler(numberEvent, "r");
    ASSERT_TRUE(handler);
    const LogCapture log;
    EXPECT_FALSE(connection->makeRunOptionsEventHandler(numberEvent, "r"));
    EXPECT_TRUE(log.contains(logChannel, 8, "Unable to emplaceConnection for r"));
    EXPECT_TRUE(service->publications().empty()) << "nothing reaches the client on this path";
    handler(NumberEvent(7));
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("r", 7)});

    disconnect("d", "r");
    EXPECT_EQ(lastAnswer("disconnectEvent"), Value(JsonObject{{"requestID", "d"}}));
    handler(NumberEvent(8));
    EXPECT_EQ(firedTexts().back(), fired("r", 8)) << "the handler lives in the run options";
    EXPECT_TRUE(connection->makeRunOptionsEventHandler(numberEvent, "r")) << "the identifier is free";
}

TEST_P(EventManagerConnectionTest, ARunOptionsHandlerReservesEvenWithoutAConverter) {
    create();
    EXPECT_FALSE(connection->makeRunOptionsEventHandler("nobody::Knows", "r"));
    disconnect("d", "r");
    EXPECT_EQ(lastAnswer("disconnectEvent"), Value(JsonObject{{"requestID", "d"}}));
}

TEST_P(EventManagerConnectionTest, ARunOptionsHandlerUnderASubscriptionsIdentifierEndsThatSubscription) {
    registerConverter(numberEvent, tellNumber);
    create();
    subscribe("s", numberEvent);
    EXPECT_FALSE(connection->makeRunOptionsEventHandler(numberEvent, "s"));
    fire(1);
    EXPECT_TRUE(firedTexts().empty());
    disconnect("d", "s");
    EXPECT_EQ(lastAnswer("disconnectEvent"), Value(JsonObject{{"requestID", "d"}})) << "the entry stands";
}

TEST_P(EventManagerConnectionTest, ALostDisconnectChannelEndsAllSubscriptionsAndOthersNone) {
    registerConverter(numberEvent, tellNumber);
    create();
    subscribe("s", numberEvent);
    connection->makeRunOptionsEventHandler(numberEvent, "r");
    for (const char* channel : {"", "disconnectEven", "/yvm/a/subscribeEvent/response", "disconnect/Event"}) {
        connection->handleDisconnect(channel);
    }
    fire(1);
    EXPECT_EQ(firedTexts().size(), 1U);

    const LogCapture log;
    connection->handleDisconnect("/yvm/zz/disconnectEvent/response");
    EXPECT_TRUE(log.contains(
        logChannel, 8,
        "Lost connection to /yvm/zz/disconnectEvent/response. Removing 2 related event subscriptions"));
    fire(2);
    EXPECT_EQ(firedTexts().size(), 1U);
    connection->handleDisconnect("disconnectEvent");
    EXPECT_TRUE(log.contains(logChannel, 8,
                             "Lost connection to disconnectEvent. Removing 0 related event subscriptions"));
}

/// With a sink of the client that holds text back, and is told of events.
class EventAndTextTest : public EventFixture {
  protected:
    EventAndTextTest() : EventFixture(ApiVersion::r24a0) {
        registerConverter(promptEvent, [](const BaseEvent&) { return JsonObject(); });
        registerConverter("other::Event", [](const BaseEvent&) { return JsonObject(); });
        connection = std::make_unique<BridgeOfR24a0>(
            r24a0::EventManagerConnection::create("/yvm/a", eventMgr, service, sink));
        subscribe("p", promptEvent);
        subscribe("o", "other::Event");
        service->deliver("/yvm/a/yvmSinks/request", R"({"requestID":"i"})");
        service->clearPublications();
    }

    void write(std::u16string_view text) const {
        engine->outSink()->buffer().sputn(text.data(), static_cast<std::streamsize>(text.size()));
    }
    void fireNamed(std::u16string name) const {
        eventMgr->deliver(std::make_shared<NamedEvent>(std::move(name)), DeliveryMode::synchronous);
    }
    std::vector<std::string> channels() const {
        std::vector<std::string> names;
        for (const auto& publication : service->publications()) {
            names.push_back(publication.channel);
        }
        return names;
    }

    const std::shared_ptr<FakeYvm> engine = FakeYvm::create();
    const std::shared_ptr<r24a0::YVMSink> sink = r24a0::YVMSink::create("/yvm/a", engine, service);
};

TEST_F(EventAndTextTest, TextLeavesBeforeEachEventOfTheFlushSet) {
    for (const std::string name :
         {"iqm::IqmInputRequestEvent", "yorlab::lang::correction::SuggestionEvent",
          "ylutil::io::PrintableErrorEvent", "ylutil::io::SinkTextEvent", "ylutil::io::StructuredOutputEvent",
          "ylutil::prompt::PromptEvent", "services::io::CLCEvent", "services::io::HomeEvent",
          "services::prompt::InputRequestEvent"}) {
        if (name != promptEvent) {
            registerConverter(name, [](const BaseEvent&) { return JsonObject(); });
            subscribe(name, name);
        }
        service->clearPublications();
        write(u"before");
        fireNamed({name.begin(), name.end()});
        EXPECT_EQ(channels(), (std::vector<std::string>{"/yvm/a/yvmSinks/output", "/yvm/a/event/fireEvent"}))
            << name;
    }
}

TEST_F(EventAndTextTest, AnotherEventOvertakesText) {
    write(u"behind");
    fireNamed(u"other::Event");
    EXPECT_EQ(channels(), std::vector<std::string>{"/yvm/a/event/fireEvent"});
}

TEST_F(EventAndTextTest, WithTheFeatureOffNothingIsFlushed) {
    write(u"queued");
    foundation::feature::IFeature::instance().set("webui", false);
    fireNamed(u"ylutil::prompt::PromptEvent");
    EXPECT_EQ(channels(), std::vector<std::string>{"/yvm/a/event/fireEvent"});
}

/// With a sink of the client that knows nothing of events.
class EventBesideTextOfR22a0Test : public EventFixture {
  protected:
    EventBesideTextOfR22a0Test() : EventFixture(ApiVersion::r22a0) {}

    const std::shared_ptr<FakeYvm> engine = FakeYvm::create();
    const std::shared_ptr<r22a0::YVMSink> sink = r22a0::YVMSink::create(engine, service);
};

TEST_F(EventBesideTextOfR22a0Test, EachEventOvertakesTextThatIsNotSynchronised) {
    registerConverter(promptEvent, [](const BaseEvent&) { return JsonObject(); });
    create();
    subscribe("p", promptEvent);
    service->deliver("/yvm/sinks/set", "{}");
    service->clearPublications();
    engine->outSink()->buffer().sputn(u"queued", 6);
    eventMgr->deliver(std::make_shared<NamedEvent>(u"ylutil::prompt::PromptEvent"),
                      DeliveryMode::synchronous);
    engine->outSink()->buffer().pubsync();
    const auto publications = service->publications();
    ASSERT_EQ(publications.size(), 2U);
    EXPECT_EQ(publications[0].channel, "/yvm/a/event/fireEvent");
    EXPECT_EQ(publications[1].channel, "/yvm/sinks/response");
}

class EventConnectionsOptionTest : public EventManagerConnectionTest {
  protected:
    EventConnectionsOptionTest() {
        registerConverter(numberEvent, tellNumber);
        registerConverter(textType(), [](const BaseEvent& event) {
            const auto& text = dynamic_cast<const ylutil::io::TextBaseEvent&>(event);
            return JsonObject{{"units", Value(static_cast<int>(text.text().size()))}};
        });
        create();
    }

    cmddistributor::RunOptions read(const std::string& text) {
        return connection->deserialize(parseObject(text));
    }
    static bool has(const cmddistributor::RunOptions& options, const std::string& name) {
        return options.getCallbacks().contains(std::u16string(name.begin(), name.end()));
    }
    static std::string textType() { return "ylutil::io::TextBaseEvent"; }
};

INSTANTIATE_TEST_SUITE_P(Versions, EventConnectionsOptionTest, test::bothVersions(), test::nameOfVersion);

TEST_P(EventConnectionsOptionTest, EachMemberConnectsAnEventUnderItsIdentifier) {
    const auto options = read(R"({"eventConnections":{"x":")" + numberEvent + R"("}})");
    ASSERT_TRUE(has(options, numberEvent));
    options.getCallbacks().at(std::u16string(numberEvent.begin(), numberEvent.end()))(NumberEvent(3));
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("x", 3)});
    EXPECT_TRUE(options.hasDefaultCallbacks());
    EXPECT_EQ(options.getOutSink(), nullptr);
}

TEST_P(EventConnectionsOptionTest, MembersAreTakenInTheOrderOfTheirNames) {
    const auto options =
        read(R"({"eventConnections":{"b":")" + numberEvent + R"(","a":")" + numberEvent + R"("}})");
    options.getCallbacks().at(std::u16string(numberEvent.begin(), numberEvent.end()))(NumberEvent(3));
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("b", 3)}) << "the later replaces the earlier";
}

TEST_P(EventConnectionsOptionTest, AnIdentifierInUseAndAnUnknownEventArePassedOver) {
    read(R"({"eventConnections":{"x":")" + numberEvent + R"("}})");
    const auto options = read(R"({"eventConnections":{"x":")" + numberEvent + R"(","y":"nobody::Knows"}})");
    EXPECT_TRUE(options.getCallbacks().empty());
    const auto withAnother = read(R"({"eventConnections":{"x":")" + numberEvent +
                                  R"(","w":"nobody::Knows","z":")" + numberEvent + R"("}})");
    withAnother.getCallbacks().at(std::u16string(numberEvent.begin(), numberEvent.end()))(NumberEvent(3));
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("z", 3)}) << "those behind them are connected";
}

TEST_P(EventConnectionsOptionTest, AMistypedValueThrows) {
    for (const char* text : {R"({"eventConnections":[]})", R"({"eventConnections":null})",
                             R"({"eventConnections":{"x":5}})", R"({"eventConnections":{"x":null}})"}) {
        EXPECT_EQ(textThrownBy<boost::bad_get>([&] { read(text); }),
                  "boost::bad_get: failed value get using boost::get")
            << text;
    }
}

TEST_P(EventConnectionsOptionTest, WhatComesBeforeAMistypedMemberKeepsItsIdentifier) {
    EXPECT_THROW(
        read(R"({"eventConnections":{"a":")" + numberEvent + R"(","b":5,"c":")" + numberEvent + R"("}})"),
        boost::bad_get);
    EXPECT_TRUE(service->publications().empty());
    const auto options =
        read(R"({"eventConnections":{"a":")" + numberEvent + R"(","c":")" + textType() + R"("}})");
    EXPECT_FALSE(has(options, numberEvent));
    EXPECT_TRUE(has(options, textType()));
    disconnect("d", "a");
    EXPECT_EQ(lastAnswer("disconnectEvent"), Value(JsonObject{{"requestID", "d"}}));
}

TEST_P(EventConnectionsOptionTest, AnEmptyIdentifierIsOne) {
    const auto options = read(R"({"eventConnections":{"":")" + numberEvent + R"("}})");
    options.getCallbacks().at(std::u16string(numberEvent.begin(), numberEvent.end()))(NumberEvent(3));
    EXPECT_EQ(firedTexts(), std::vector<std::string>{fired("", 3)});
    disconnect("d", "");
    EXPECT_EQ(lastAnswer("disconnectEvent"), Value(JsonObject{{"requestID", "d"}}));
}

TEST_P(EventConnectionsOptionTest, AnEmptyObjectConnectsNothing) {
    EXPECT_TRUE(read(R"({"eventConnections":{}})").getCallbacks().empty());
}

TEST_P(EventConnectionsOptionTest, AConnectionForTextOverridesStreamsTraitsAndTextCallback) {
    const auto options = read(R"({"outSinkTraits":{"useEcho":true,"_useEcho":true},"useNullOutSink":false,)"
                              R"("errSinkTraits":{"useEcho":true,"_useEcho":true},"useNullErrSink":true,)"
                              R"("eventConnections":{"t":"ylutil::io::TextBaseEvent"}})");
    const auto defaults = cmddistributor::RunOptions::getDefaultSinkTraits();
    ASSERT_NE(options.getOutSink(), nullptr);
    ASSERT_NE(options.getErrSink(), nullptr);
    EXPECT_EQ(options.getOutSink()->traits(), defaults);
    EXPECT_EQ(options.getErrSink()->traits(), defaults);
    EXPECT_FALSE(options.hasDefaultCallbacks());
    EXPECT_EQ(options.getCallbacks().size(), 1U);

    options.getCallbacks().at(u"ylutil::io::TextBaseEvent")(ylutil::io::TextBaseEvent(
        ylutil::io::TextBaseEvent::IDType(), ylutil::io::StreamTypeEnum::Error, u"oh"));
    EXPECT_EQ(firedTexts(), std::vector<std::string>{R"({"eventData":{"units":2},"requestID":"t"})"});
}

TEST_P(EventConnectionsOptionTest, AConnectionForTextSendsBothStreamsThroughTheLocalEngineAlone) {
    const auto options = read(
        R"({"useNullOutSink":false,"useNullErrSink":true,"eventConnections":{"t":"ylutil::io::TextBaseEvent"}})");
    const auto engine = FakeYvm::create({}, eventMgr);
    std::vector<std::pair<ylutil::io::StreamTypeEnum, std::u16string>> texts;
    const std::u16string tag = u"ylutil::io::TextBaseEvent";
    const auto subscription = eventMgr->subscribe(
        [&texts](const BaseEvent& event) {
            const auto& text = dynamic_cast<const ylutil::io::TextBaseEvent&>(event);
            texts.emplace_back(text.stream(), text.text());
        },
        &tag, &tag + 1);
    auto& out = options.getOutSink()->buffer();
    auto& err = options.getErrSink()->buffer();
    out.sputn(u"o", 1);
    err.sputn(u"e", 1);

    unittest::setCurrentMockYvm(engine.get());
    const foundation::core::util::scope_guard unset([] {
        unittest::setCurrentMockYvm(nullptr);
        Factory::setCurrentLocalYVM(nullptr);
    });
    EXPECT_EQ(out.pubsync(), -1);
    EXPECT_EQ(err.pubsync(), -1);
    EXPECT_TRUE(texts.empty());

    Factory::setCurrentLocalYVM(engine);
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(err.pubsync(), 0);
    using ylutil::io::StreamTypeEnum;
    EXPECT_EQ(texts, (std::vector<std::pair<StreamTypeEnum, std::u16string>>{{StreamTypeEnum::Output, u"o"},
                                                                             {StreamTypeEnum::Error, u"e"}}));
}

TEST_P(EventConnectionsOptionTest, AConnectionForANameThatOnlyBeginsAlikeLeavesTheStreams) {
    for (const std::string& name : {textType() + "s", textType() + " ", " " + textType()}) {
        registerConverter(name, tellNumber);
        const auto options =
            read(R"({"useNullOutSink":true,"eventConnections":{")" + name + R"(":")" + name + R"("}})");
        EXPECT_TRUE(has(options, name)) << name;
        EXPECT_EQ(options.getErrSink(), nullptr) << name;
        EXPECT_TRUE(options.hasDefaultCallbacks()) << name;
    }
}

TEST_P(EventConnectionsOptionTest, AConnectionForTextThatIsPassedOverLeavesTheStreams) {
    read(R"({"eventConnections":{"t":"ylutil::io::TextBaseEvent"}})");
    const auto options =
        read(R"({"useNullOutSink":false,"eventConnections":{"t":"ylutil::io::TextBaseEvent"}})");
    EXPECT_TRUE(has(options, textType()));
    EXPECT_TRUE(options.hasDefaultCallbacks());
    EXPECT_EQ(options.getErrSink(), nullptr);
}

TEST_P(EventManagerConnectionTest, SubscribersComeAndGoWhileEventsAreFired) {
    registerConverter(numberEvent, tellNumber);
    create();
    std::atomic<bool> done{false};
    std::latch firing(2);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            fire(0);
            firing.count_down();
            while (!done) {
                fire(0);
            }
        });
    }
    firing.wait();
    for (int i = 0; i < 200; ++i) {
        const std::string id = std::to_string(i % 3);
        subscribe(id, numberEvent);
        connection->makeRunOptionsEventHandler(numberEvent, "r" + std::to_string(i));
        disconnect("d", id);
        if (i % 20 == 0) {
            service->clearPublications();
            create();
        }
    }
    connection.reset();
    done = true;
    for (auto& thread : threads) {
        thread.join();
    }
    service->clearPublications();
    fire(1);
    EXPECT_TRUE(firedTexts().empty());
}

}  // namespace
}  // namespace yvm::JSClient
