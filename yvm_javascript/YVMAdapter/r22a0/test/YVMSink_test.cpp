#include "r22a0/YVMSink.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/createAttachedClient.hpp"
#include "common/test/EvalFevalCancelFixture.hpp"
#include "common/test/textSupport.hpp"
#include "foundation/json/ParserException.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/LogCapture.hpp"

#include <boost/make_shared.hpp>
#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace yvm::JSClient::r22a0 {
namespace {

using connector::message_service::JsonMessage;
using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;
using platform_testing::LogCapture;
using test::Sent;
using ylutil::io::SinkTraits;
using ylutil::io::StreamTypeEnum;

const std::string logChannel = "yvm::JSClient::YVMSink";
const std::string setChannel = "/yvm/sinks/set";
const std::string responseChannel = "/yvm/sinks/response";

void write(const FakeYvm::Sink& sink, const std::u16string& text) {
    sink->buffer().sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

/// The sink service of one client, on an engine with sinks of its own.
class YVMSinkOfR22a0Test : public testing::Test {
  protected:
    YVMSinkOfR22a0Test() { engine->replaceSinks(ownOut, ownErr); }

    static FakeYvm::Sink makeOwnSink() {
        return boost::make_shared<ylutil::io::YLSink>(boost::make_shared<std::basic_stringbuf<char16_t>>(),
                                                      SinkTraits());
    }

    void set(const std::string& message) { EXPECT_EQ(service->deliver(setChannel, message), 1U); }

    /// The messages that came through the sinks. All that is published is that.
    std::vector<Sent> sent() const {
        std::vector<Sent> messages;
        for (const auto& publication : service->publications()) {
            EXPECT_EQ(publication.channel, responseChannel);
            messages.emplace_back(publication.text);
        }
        return messages;
    }

    bool hasOwnSinks() const { return engine->outSink() == ownOut && engine->errSink() == ownErr; }

    /// What the only message so far made the handler throw.
    template <typename Exception>
    std::string onlyException() const {
        const auto exceptions = service->callbackExceptions();
        EXPECT_EQ(exceptions.size(), 1U);
        return test::textThrownBy<Exception>([&] { std::rethrow_exception(exceptions.at(0)); });
    }

    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    const std::shared_ptr<FakeYvm> engine = FakeYvm::create();
    const FakeYvm::Sink ownOut = makeOwnSink();
    const FakeYvm::Sink ownErr = makeOwnSink();
    std::shared_ptr<YVMSink> sink = YVMSink::create(engine, service);
};

TEST_F(YVMSinkOfR22a0Test, SubscribesToTheFixedChannelAlone) {
    EXPECT_EQ(service->subscriptionLog(), std::vector<std::string>{"subscribe /yvm/sinks/set"});
    sink.reset();
    EXPECT_EQ(service->subscriberCount(), 0U);
    EXPECT_TRUE(service->publications().empty());
}

TEST_F(YVMSinkOfR22a0Test, AFailedSubscriptionLeavesCreate) {
    service->failNextSubscribe(FakeMessageService::Failure::invalidFuture);
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { YVMSink::create(engine, service); }),
              "Future state isn't valid!");
    service->failNextSubscribe(FakeMessageService::Failure::exceptionInFuture);
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { YVMSink::create(engine, service); }),
              "fake failure");
}

TEST_F(YVMSinkOfR22a0Test, AMessageGivesTheEngineSinksWithTheTraitsAndIsNotAnswered) {
    set(R"({"outSinkTraits":{"_supportsMore":true},"errSinkTraits":{"_useDiary":true}})");
    EXPECT_EQ(engine->outSink()->traits(), SinkTraits(true, false, true, false, false, false));
    EXPECT_EQ(engine->errSink()->traits(), SinkTraits(false, false, true, true, false, false));
    EXPECT_TRUE(service->publications().empty());
    EXPECT_TRUE(service->callbackExceptions().empty());
}

TEST_F(YVMSinkOfR22a0Test, NeitherKeyGivesDefaultTraits) {
    set("{}");
    EXPECT_FALSE(hasOwnSinks());
    EXPECT_EQ(engine->outSink()->traits(), SinkTraits());
    EXPECT_EQ(engine->errSink()->traits(), SinkTraits());
}

TEST_F(YVMSinkOfR22a0Test, KeysWithoutTheUnderscoreAreIgnored) {
    set(R"({"requestID":5,"outSinkTraits":{"supportsMore":true,"useEcho":7},"errSinkTraits":{}})");
    EXPECT_FALSE(hasOwnSinks());
    EXPECT_EQ(engine->outSink()->traits(), SinkTraits());
}

TEST_F(YVMSinkOfR22a0Test, TextOfBothStreamsLeavesOnTheFixedChannelWhenItIsSynchronised) {
    set("{}");
    write(engine->outSink(), u"hi \U0001F600\n");
    write(engine->errSink(), u"oh");
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(engine->errSink()->buffer().pubsync(), 0);
    EXPECT_EQ(engine->outSink()->buffer().pubsync(), 0);
    const auto publications = service->publicationsOn(responseChannel);
    ASSERT_EQ(publications.size(), 2U);
    EXPECT_EQ(publications[0].text, R"({"stream":1,"text":"oh"})");
    EXPECT_EQ(publications[1].text, "{\"stream\":0,\"text\":\"hi \xF0\x9F\x98\x80\\n\"}");
}

TEST_F(YVMSinkOfR22a0Test, TextLeavesBeyondTheThreshold) {
    set("{}");
    write(engine->outSink(), std::u16string(1048576, u'x'));
    EXPECT_TRUE(sent().empty());
    write(engine->outSink(), u"y");
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent().front().text.size(), 1048577U);
}

TEST_F(YVMSinkOfR22a0Test, TheTextOfAnotherCommandLeavesByItselfAndWithoutAnIdentifier) {
    using foundation::msg_svc::exchange::IDType;
    set("{}");
    {
        const cmddistributor::RequestIdScope command{IDType(1, 1)};
        write(engine->outSink(), u"first");
    }
    const cmddistributor::RequestIdScope command{IDType(1, 2)};
    write(engine->outSink(), u"second");
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "first"}}));
}

TEST_F(YVMSinkOfR22a0Test, ASecondMessageReplacesTheSinksAndLeavesWhatWasSent) {
    set("{}");
    const auto first = engine->outSink();
    write(first, u"a");
    first->buffer().pubsync();
    set(R"({"outSinkTraits":{"_useEcho":true}})");
    EXPECT_NE(engine->outSink(), first);
    EXPECT_TRUE(engine->outSink()->traits().useEcho());
    write(engine->outSink(), u"b");
    engine->outSink()->buffer().pubsync();
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "a"}, {StreamTypeEnum::Output, "b"}}));
}

TEST_F(YVMSinkOfR22a0Test, ThereIsNoWayBack) {
    set("{}");
    set(R"({"requestID":"2","outSinkTraits":null,"errSinkTraits":null})");
    EXPECT_FALSE(hasOwnSinks());
    EXPECT_EQ(onlyException<boost::bad_get>(), "boost::bad_get: failed value get using boost::get");
}

TEST_F(YVMSinkOfR22a0Test, AMessageThatCannotBeReadLeavesTheSinksAndIsNotAnswered) {
    for (const char* message : {R"({"outSinkTraits":null})", R"({"errSinkTraits":[]})",
                                R"({"outSinkTraits":{"_useEcho":1}})", R"([1])", R"("x")"}) {
        set(message);
        EXPECT_TRUE(hasOwnSinks()) << message;
        EXPECT_EQ(test::textThrownBy<boost::bad_get>(
                      [this] { std::rethrow_exception(service->callbackExceptions().back()); }),
                  "boost::bad_get: failed value get using boost::get")
            << message;
    }
    // An empty text arrives without a payload, and is parsed all the same.
    for (const char* message : {"", "{", R"({} x)", R"({"outSinkTraits":})"}) {
        const std::size_t before = service->callbackExceptions().size();
        set(message);
        EXPECT_TRUE(hasOwnSinks()) << message;
        ASSERT_EQ(service->callbackExceptions().size(), before + 1) << message;
        EXPECT_THROW(std::rethrow_exception(service->callbackExceptions().back()),
                     foundation::json::ParserException)
            << message;
    }
    EXPECT_TRUE(service->publications().empty());
}

TEST_F(YVMSinkOfR22a0Test, AnEngineThatRefusesTheSinksIsToldToTheServiceAlone) {
    engine->failSinks(std::make_exception_ptr(std::runtime_error("no sinks")));
    set("{}");
    EXPECT_EQ(onlyException<std::runtime_error>(), "no sinks");
    EXPECT_TRUE(service->publications().empty());
}

TEST_F(YVMSinkOfR22a0Test, WithoutAnEngineAMessageDoesNothing) {
    sink = YVMSink::create(nullptr, service);
    const LogCapture log;
    set("not even read");
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Returning early due to null YVM"});
    EXPECT_TRUE(service->callbackExceptions().empty());
    EXPECT_TRUE(hasOwnSinks());
}

TEST_F(YVMSinkOfR22a0Test, TextGoesOnBeingPublishedBehindItsEnd) {
    set("{}");
    const auto installed = engine->outSink();
    write(installed, u"before ");
    sink.reset();
    EXPECT_EQ(engine->outSink(), installed);
    EXPECT_TRUE(sent().empty()) << "its end sends nothing";
    write(installed, u"behind");
    installed->buffer().pubsync();
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "before behind"}}));
}

TEST_F(YVMSinkOfR22a0Test, ItsEndReleasesTheEngineAndItsSinksKeepTheService) {
    set("{}");
    const std::weak_ptr<YVMSink> weak = sink;
    sink.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(engine.use_count(), 1);
    EXPECT_GT(service.use_count(), 1);
    engine->replaceSinks(ownOut, ownErr);
    EXPECT_EQ(service.use_count(), 1);
}

TEST_F(YVMSinkOfR22a0Test, APublishThatFailsIsReportedToTheWriter) {
    set("{}");
    service->failNextPublish(FakeMessageService::Failure::thrown);
    write(engine->outSink(), u"lost");
    EXPECT_EQ(engine->outSink()->buffer().pubsync(), -1);
    write(engine->outSink(), u"kept");
    EXPECT_EQ(engine->outSink()->buffer().pubsync(), 0);
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "kept"}}));
}

TEST_F(YVMSinkOfR22a0Test, EachClientTakesEachMessageAndInstallsOnItsOwnEngine) {
    const auto otherEngine = FakeYvm::create();
    const auto other = YVMSink::create(otherEngine, service);
    EXPECT_EQ(service->deliver(setChannel, R"({"outSinkTraits":{"_useEcho":true}})"), 2U);
    EXPECT_TRUE(engine->outSink()->traits().useEcho());
    EXPECT_TRUE(otherEngine->outSink()->traits().useEcho());
    for (const auto& each : {engine, otherEngine}) {
        write(each->outSink(), u"x");
        each->outSink()->buffer().pubsync();
    }
    EXPECT_EQ(sent().size(), 2U) << "on the one channel";
}

/// Keeps the handler of the last subscription, as a delivery does that is under way.
class KeepingMessageService final : public ForwardingMessageService {
  public:
    connector::Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                               MessageCallback callback) override {
        kept = callback;
        return inner->subscribe(channel, std::move(callback));
    }

    MessageCallback kept;
};

TEST_F(YVMSinkOfR22a0Test, AMessageBehindItsEndIsDropped) {
    const auto keeping = std::make_shared<KeepingMessageService>();
    sink = YVMSink::create(engine, keeping);
    sink.reset();
    const LogCapture log;
    keeping->kept(JsonMessage(setChannel, connector::common::DataBuffer("{}")));
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Returning early due to null weakThis"});
    EXPECT_TRUE(hasOwnSinks());
}

/// Delivers a message as soon as somebody subscribes, before the subscriber hears of it.
class HastyMessageService final : public ForwardingMessageService {
  public:
    connector::Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                               MessageCallback callback) override {
        callback(JsonMessage(channel, connector::common::DataBuffer("{}")));
        return inner->subscribe(channel, std::move(callback));
    }
};

TEST_F(YVMSinkOfR22a0Test, AMessageThatArrivesWhileItSubscribesIsCarriedOut) {
    const auto hasty = std::make_shared<HastyMessageService>();
    const auto other = YVMSink::create(engine, hasty);
    EXPECT_FALSE(hasOwnSinks());
}

TEST_F(YVMSinkOfR22a0Test, ConstructionMessagesAndDestructionOpenAFunctionTrace) {
    sink.reset();
    const LogCapture log;
    sink = YVMSink::create(engine, service);
    set("{}");
    set("[]");
    sink.reset();
    const auto entries = log.texts(logChannel, 32);
    ASSERT_EQ(entries.size(), 4U);
    for (const auto& [index, function] :
         {std::pair(0U, "::YVMSink("), std::pair(1U, "::createYVMConnections("),
          std::pair(2U, "::createYVMConnections("), std::pair(3U, "::~YVMSink(")}) {
        EXPECT_NE(entries[index].find(function), std::string::npos) << entries[index];
    }
    const auto exits = log.texts(logChannel, 64);
    ASSERT_EQ(exits.size(), 4U);
    for (std::size_t index = 0; index < exits.size(); ++index) {
        EXPECT_EQ(exits[index].ends_with(" [throw]"), index == 2) << exits[index];
    }
}

TEST_F(YVMSinkOfR22a0Test, TheSinksOfADetachedClientGoOnForTheOthers) {
    sink.reset();
    auto leaving = createAttachedClient(ApiVersion::r22a0, "/yvm/a", engine, service, {});
    const auto staying = createAttachedClient(ApiVersion::r22a0, "/yvm/b", engine, service, {});
    EXPECT_EQ(service->deliver(setChannel, "{}"), 2U);
    leaving.reset();
    EXPECT_EQ(service->subscriberCount(setChannel), 1U);
    write(engine->outSink(), u"x");
    engine->outSink()->buffer().pubsync();
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "x"}}));
}

TEST_F(YVMSinkOfR22a0Test, ClientsComeAndGoWhileSinksAreSetAndTextIsWritten) {
    std::atomic<bool> done{false};
    std::promise<void> setOnce;
    std::thread setter([&] {
        service->deliver(setChannel, "{}");
        setOnce.set_value();
        while (!done) {
            service->deliver(setChannel, "{}");
        }
    });
    setOnce.get_future().wait();
    // The engine's thread: it alone writes.
    for (int i = 0; i < 300; ++i) {
        const auto out = engine->outSink();
        write(out, u"x");
        EXPECT_EQ(out->buffer().pubsync(), 0);
        if (i % 10 == 0) {
            sink = YVMSink::create(engine, service);
        }
    }
    sink.reset();
    done = true;
    setter.join();
    EXPECT_EQ(sent().size(), 300U);
}

}  // namespace
}  // namespace yvm::JSClient::r22a0
