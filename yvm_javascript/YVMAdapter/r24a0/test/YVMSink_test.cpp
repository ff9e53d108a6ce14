#include "r24a0/YVMSink.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/test/EvalFevalCancelFixture.hpp"
#include "common/test/support.hpp"
#include "r24a0/test/SinksFixture.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/LogCapture.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace yvm::JSClient::r24a0 {
namespace {

using connector::message_service::JsonMessage;
using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;
using platform_testing::LogCapture;
using ylutil::io::SinkTraits;
using ylutil::io::StreamTypeEnum;

const std::string logChannel = "yvm::JSClient::YVMSink";
const std::string publisherChannel = "yvm::JSClient::TextJSBufferPublisher";
const std::string install = R"({"requestID":"1"})";
const std::string revert = R"({"requestID":"2","outSinkTraits":null,"errSinkTraits":null})";

class PromptEvent final : public foundation::msg_svc::eventmgr::BaseEvent {
  public:
    const std::vector<std::u16string>& getStaticTags() const override { return tags_; }

  private:
    const std::vector<std::u16string> tags_{u"ylutil::prompt::PromptEvent"};
};

class OtherEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<OtherEvent> {};

/// The service of the client "/yvm/a", on an engine with sinks of its own.
class YVMSinkTest : public testing::Test {
  protected:
    YVMSinkTest() { engine->replaceSinks(ownOut, ownErr); }

    static FakeYvm::Sink makeOwnSink() {
        return boost::make_shared<ylutil::io::YLSink>(boost::make_shared<std::basic_stringbuf<char16_t>>(),
                                                      SinkTraits());
    }

    void request(const std::string& message) {
        EXPECT_EQ(service->deliver("/yvm/a/yvmSinks/request", message), 1U);
    }

    void write(const std::u16string& text) {
        engine->outSink()->buffer().sputn(text.data(), static_cast<std::streamsize>(text.size()));
    }

    /// The messages that came through the sinks.
    std::vector<Sent> sent() const {
        std::vector<Sent> messages;
        for (const auto& publication : service->publicationsOn("/yvm/a/yvmSinks/output")) {
            messages.emplace_back(publication.text);
        }
        return messages;
    }

    std::vector<FakeMessageService::Publication> responses() const {
        return service->publicationsOn("/yvm/a/yvmSinks/response");
    }
    std::vector<std::string> responseTexts() const {
        std::vector<std::string> texts;
        for (const auto& publication : responses()) {
            texts.push_back(publication.text);
        }
        return texts;
    }

    bool hasOwnSinks() const { return engine->outSink() == ownOut && engine->errSink() == ownErr; }

    platform_testing::FrameworkWithFakePool process;
    platform_testing::FakeThreadPool& pool = process.pool();
    FeatureSwitches features;
    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    const std::shared_ptr<FakeYvm> engine = FakeYvm::create();
    const FakeYvm::Sink ownOut = makeOwnSink();
    const FakeYvm::Sink ownErr = makeOwnSink();
    std::shared_ptr<YVMSink> sink = YVMSink::create("/yvm/a", engine, service);
};

TEST_F(YVMSinkTest, SubscribesToItsRequestsAlone) {
    EXPECT_EQ(service->subscriptionLog(), std::vector<std::string>{"subscribe /yvm/a/yvmSinks/request"});
    sink.reset();
    EXPECT_EQ(service->subscriberCount(), 0U);
    EXPECT_TRUE(service->publications().empty());
}

TEST_F(YVMSinkTest, AFailedSubscriptionLeavesCreate) {
    service->failNextSubscribe(FakeMessageService::Failure::invalidFuture);
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { YVMSink::create("/yvm/b", engine, service); }),
              "Future state isn't valid!");
}

TEST_F(YVMSinkTest, AnInstallIsAnsweredByItsIdentifierAlone) {
    request(R"({"requestID":"x","outSinkTraits":{"useEcho":true}})");
    ASSERT_EQ(service->publications().size(), 1U);
    EXPECT_EQ(service->publications().front().channel, "/yvm/a/yvmSinks/response");
    EXPECT_EQ(service->publications().front().text, R"({"requestID":"x"})");
}

TEST_F(YVMSinkTest, AnInstallGivesTheEngineSinksWithTheTraits) {
    request(R"({"requestID":"1","outSinkTraits":{"supportsMore":true},"errSinkTraits":{"useDiary":true}})");
    EXPECT_EQ(engine->outSink()->traits(), SinkTraits(true, false, true, false, false, false));
    EXPECT_EQ(engine->errSink()->traits(), SinkTraits(false, false, true, true, false, false));
    EXPECT_NE(engine->outSink(), ownOut);
}

TEST_F(YVMSinkTest, TextOfBothStreamsLeavesOnTheOutputChannel) {
    request(install);
    write(u"hi \U0001F600\n");
    engine->errSink()->buffer().sputn(u"oh", 2);
    pool.advance(publishPeriod);
    const auto texts = service->publicationsOn("/yvm/a/yvmSinks/output");
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts[0].text, "{\"stream\":0,\"text\":\"hi \xF0\x9F\x98\x80\\n\"}");
    EXPECT_EQ(texts[1].text, R"({"stream":1,"text":"oh"})");
}

TEST_F(YVMSinkTest, WithoutBatchingTextLeavesWhenItIsSynchronised) {
    features.setBatching(false);
    request(install);
    EXPECT_EQ(pool.waiting(), 0U);
    write(u"hi");
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(engine->errSink()->buffer().pubsync(), 0);
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "hi"}}));
}

TEST_F(YVMSinkTest, ARevertGoesBackToTheEnginesOwnSinks) {
    request(install);
    const LogCapture log;
    request(revert);
    EXPECT_TRUE(hasOwnSinks());
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Reverting to previous Sinks"});
    EXPECT_EQ(responseTexts(), (std::vector<std::string>{R"({"requestID":"1"})", R"({"requestID":"2"})"}));
    request(revert);
    EXPECT_FALSE(hasOwnSinks()) << "there is nothing to revert, which installs";
    EXPECT_EQ(engine->outSink()->traits(), SinkTraits());
}

TEST_F(YVMSinkTest, ARevertBehindTwoInstallsGoesBackToTheEnginesOwnSinks) {
    request(install);
    const auto first = engine->outSink();
    request(install);
    EXPECT_NE(engine->outSink(), first);
    request(revert);
    EXPECT_TRUE(hasOwnSinks());
}

TEST_F(YVMSinkTest, ARevertFirstOfAllInstalls) {
    const LogCapture log;
    request(revert);
    EXPECT_FALSE(hasOwnSinks());
    EXPECT_EQ(engine->errSink()->traits(), SinkTraits());
    EXPECT_TRUE(log.texts(logChannel, 8).empty());
    write(u"x");
    pool.advance(publishPeriod);
    EXPECT_EQ(sent().size(), 1U);
    request(revert);
    EXPECT_TRUE(hasOwnSinks());
}

TEST_F(YVMSinkTest, ARevertGoesBackToWhatWasThereAtTheInstallAfterTheLastRevert) {
    request(install);
    request(revert);
    const auto other = makeOwnSink();
    engine->replaceSinks(other, other);
    request(install);
    request(revert);
    EXPECT_EQ(engine->outSink(), other);
}

TEST_F(YVMSinkTest, EachRequestDiscardsWhatIsQueued) {
    for (const auto& message : {install, install, revert, install}) {
        request(message);
        write(u"12345");
    }
    const LogCapture log;
    request(install);
    const auto texts = log.texts(publisherChannel, 2);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_TRUE(texts.front().starts_with(" numBuffered_=5 this=")) << texts.front();
    pool.advance(publishPeriod);
    EXPECT_TRUE(sent().empty());
}

TEST_F(YVMSinkTest, ARevertDiscardsWhatIsQueuedToo) {
    request(install);
    write(u"12345");
    const LogCapture log;
    request(revert);
    ASSERT_EQ(log.texts(publisherChannel, 2).size(), 1U);
    EXPECT_TRUE(log.texts(publisherChannel, 2).front().starts_with(" numBuffered_=5 this="));
    pool.advance(publishPeriod);
    EXPECT_TRUE(sent().empty());
}

TEST_F(YVMSinkTest, TraitsThatCannotBeReadFailNoRequest) {
    request(R"({"requestID":"1","outSinkTraits":5,"errSinkTraits":{"useEcho":true,"useDiary":0}})");
    EXPECT_EQ(responseTexts(), std::vector<std::string>{R"({"requestID":"1"})"});
    EXPECT_EQ(engine->outSink()->traits(), SinkTraits());
    EXPECT_EQ(engine->errSink()->traits(), SinkTraits());
    EXPECT_FALSE(hasOwnSinks());
}

TEST_F(YVMSinkTest, WithoutAnEngineARequestIsAnsweredAndDoesNothing) {
    sink = YVMSink::create("/yvm/b", nullptr, service);
    const LogCapture log;
    EXPECT_EQ(service->deliver("/yvm/b/yvmSinks/request", install), 1U);
    EXPECT_EQ(service->publicationsOn("/yvm/b/yvmSinks/response").at(0).text, R"({"requestID":"1"})");
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Returning early due to null YVM"});
    sink.reset();
    EXPECT_TRUE(log.records(publisherChannel).empty()) << "no publisher was made";
}

TEST_F(YVMSinkTest, FlushingBeforeAnyRequestDoesNothing) {
    const LogCapture log;
    sink->flushForEvent(PromptEvent());
    EXPECT_TRUE(service->publications().empty());
    EXPECT_TRUE(log.records(publisherChannel).empty());
}

TEST_F(YVMSinkTest, FlushingSendsAheadOfTheEventsThatTextMustPrecede) {
    request(install);
    write(u"x");
    sink->flushForEvent(OtherEvent());
    EXPECT_TRUE(sent().empty());
    sink->flushForEvent(PromptEvent());
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "x"}}));
}

TEST_F(YVMSinkTest, FlushingSendsTheTextOfTheNewestPublisher) {
    request(install);
    const auto earlier = engine->outSink();
    request(install);
    earlier->buffer().sputn(u"lost", 4);
    write(u"kept");
    sink->flushForEvent(PromptEvent());
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "kept"}}));
}

TEST_F(YVMSinkTest, ItsEndLeavesSinksThatDropTheirText) {
    request(install);
    const auto installed = engine->outSink();
    write(u"x");
    const LogCapture log;
    sink.reset();
    EXPECT_EQ(engine->outSink(), installed);
    EXPECT_TRUE(log.texts(publisherChannel, 2).at(0).starts_with(" numBuffered_=1 this="));
    write(u"y");
    EXPECT_EQ(engine->outSink()->buffer().pubsync(), 0);
    pool.advance(publishPeriod);
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(pool.waiting(), 0U);
}

TEST_F(YVMSinkTest, ItsEndReleasesEngineAndService) {
    request(install);
    const std::weak_ptr<YVMSink> weak = sink;
    sink.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(engine.use_count(), 1);
    EXPECT_EQ(service.use_count(), 1);
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

TEST_F(YVMSinkTest, ARequestAfterItsEndIsNotAnswered) {
    const auto keeping = std::make_shared<KeepingMessageService>();
    sink = YVMSink::create("/yvm/a", engine, keeping);
    sink.reset();
    const LogCapture log;
    // Not kept any longer, since it holds the service.
    std::exchange(keeping->kept,
                  nullptr)(JsonMessage("/yvm/a/yvmSinks/request", connector::common::DataBuffer(install)));
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Returning early due to null weakThis"});
    EXPECT_TRUE(keeping->inner->publications().empty());
    EXPECT_TRUE(hasOwnSinks());
}

/// Delivers a request as soon as somebody subscribes, before the subscriber hears of it.
class HastyMessageService final : public ForwardingMessageService {
  public:
    connector::Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                               MessageCallback callback) override {
        callback(JsonMessage(channel, connector::common::DataBuffer(install)));
        return inner->subscribe(channel, std::move(callback));
    }
};

TEST_F(YVMSinkTest, ARequestThatArrivesWhileItsConnectionIsBuiltIsNotAnswered) {
    const auto hasty = std::make_shared<HastyMessageService>();
    const LogCapture log;
    sink = YVMSink::create("/yvm/a", engine, hasty);
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Returning early due to null weakThis"});
    EXPECT_TRUE(hasty->inner->publications().empty());
    EXPECT_TRUE(hasOwnSinks());
}

TEST_F(YVMSinkTest, AFailedInstallIsAnsweredPlainlyAndThenByItsError) {
    engine->failSinks(std::make_exception_ptr(std::runtime_error("no sinks")));
    request(install);
    ASSERT_EQ(responses().size(), 2U);
    EXPECT_EQ(responses()[0].text, R"({"requestID":"1"})");
    EXPECT_EQ(test::memberOf(responses()[1].json(), "requestID"), foundation::json::Value("1"));
    test::expectPlainError(responses()[1].json(), 2, "no sinks");
    EXPECT_TRUE(hasOwnSinks());
    engine->failSinks(nullptr);
    request(install);
    request(revert);
    EXPECT_TRUE(hasOwnSinks());
}

TEST_F(YVMSinkTest, AFailedRevertIsAnsweredTwiceAndLeavesAGuardThatRestoresNothing) {
    request(install);
    const auto installed = engine->outSink();
    engine->failSinks(std::make_exception_ptr(std::runtime_error("no sinks")));
    request(revert);
    ASSERT_EQ(responses().size(), 3U);
    EXPECT_EQ(responses()[1].text, R"({"requestID":"2"})");
    test::expectPlainError(responses()[2].json(), 2, "no sinks");
    engine->failSinks(nullptr);
    request(revert);
    EXPECT_EQ(engine->outSink(), installed)
        << "the guard is set, so this reverts, and empty, so nothing happens";
    EXPECT_EQ(responses().size(), 4U);
    request(revert);
    EXPECT_NE(engine->outSink(), installed) << "now nothing is installed, and a revert installs";
}

TEST_F(YVMSinkTest, APublishThatThrowsCostsOneMessage) {
    request(install);
    write(u"lost");
    service->failNextPublish(FakeMessageService::Failure::thrown);
    pool.advance(publishPeriod);
    EXPECT_TRUE(sent().empty());
    write(u"kept");
    pool.advance(publishPeriod);
    EXPECT_EQ(sent(), (std::vector<Sent>{{StreamTypeEnum::Output, "kept"}}));
}

TEST_F(YVMSinkTest, AResponseThatCannotBePublishedDisturbsNothing) {
    service->failNextPublish(FakeMessageService::Failure::thrown);
    request(install);
    EXPECT_TRUE(responses().empty());
    EXPECT_FALSE(hasOwnSinks());
    EXPECT_TRUE(service->callbackExceptions().empty());
}

TEST_F(YVMSinkTest, AThousandInstallsAndRevertsLeaveNothingBehind) {
    for (int i = 0; i < 1000; ++i) {
        request(install);
        write(u"x");
        request(revert);
        EXPECT_TRUE(hasOwnSinks());
        if (i % 10 == 9) {
            pool.advance(publishPeriod);
            EXPECT_EQ(pool.waiting(), 1U) << "of the publisher of the last revert";
        }
    }
    EXPECT_EQ(responses().size(), 2000U);
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(ownOut.use_count(), 2) << "by this test and by the engine";
}

TEST_F(YVMSinkTest, AThousandInstallsKeepOnePublisher) {
    for (int i = 0; i < 1000; ++i) {
        request(install);
    }
    pool.advance(publishPeriod);
    EXPECT_EQ(pool.waiting(), 1U);
    write(u"x");
    pool.advance(publishPeriod);
    EXPECT_EQ(sent().size(), 1U);
    request(revert);
    EXPECT_TRUE(hasOwnSinks());
}

TEST_F(YVMSinkTest, OperationsOpenAFunctionTrace) {
    const LogCapture log;
    {
        const auto traced = YVMSink::create("/yvm/c", engine, service);
        EXPECT_EQ(service->deliver("/yvm/c/yvmSinks/request", install), 1U);
    }
    const auto entries = log.texts(logChannel, 32);
    ASSERT_EQ(entries.size(), 3U) << testing::PrintToString(entries);
    EXPECT_NE(entries[0].find("::YVMSink("), std::string::npos);
    EXPECT_NE(entries[1].find("::createYVMConnections("), std::string::npos) << "the handler made there";
    EXPECT_NE(entries[2].find("::~YVMSink("), std::string::npos);
    EXPECT_EQ(log.texts(logChannel, 64).size(), 3U);
}

/// Calls `onPublish` with each channel before it publishes.
class HookedMessageService final : public ForwardingMessageService {
  public:
    connector::Future<void> publish(const std::string& channel,
                                    connector::common::DataBuffer payload) override {
        onPublish(channel);
        return inner->publish(channel, std::move(payload));
    }

    std::function<void(const std::string&)> onPublish = [](const std::string&) {};
};

class YVMSinkPublishTest : public YVMSinkTest {
  protected:
    YVMSinkPublishTest() { sink = YVMSink::create("/yvm/a", engine, hooked); }

    void deliver(const std::string& message) {
        EXPECT_EQ(hooked->inner->deliver("/yvm/a/yvmSinks/request", message), 1U);
    }
    std::size_t outputCount() const { return hooked->inner->publicationsOn("/yvm/a/yvmSinks/output").size(); }

    /// Installs while `send`, which makes the publisher send on a thread of its own, is in the middle of a
    /// publish, and so holds the old publisher and the mutex of it.
    void installWhile(const std::function<void()>& send) {
        deliver(install);
        write(u"x");
        std::promise<void> publishing;
        std::promise<void> released;
        hooked->onPublish = [&](const std::string& channel) {
            if (channel == "/yvm/a/yvmSinks/output") {
                publishing.set_value();
                released.get_future().wait();
            }
        };
        std::thread sender(send);
        publishing.get_future().wait();
        auto installed = std::async(std::launch::async, [this] { deliver(install); });
        const auto status = installed.wait_for(std::chrono::seconds(60));
        released.set_value();
        EXPECT_EQ(status, std::future_status::ready);
        sender.join();
        EXPECT_EQ(outputCount(), 1U);
    }

    const std::shared_ptr<HookedMessageService> hooked = std::make_shared<HookedMessageService>();
};

TEST_F(YVMSinkPublishTest, AnInstallWaitsForNoPublishOfTheOldPublisher) {
    installWhile([this] { pool.advance(publishPeriod); });
}

TEST_F(YVMSinkPublishTest, AnInstallWaitsForNoFlushOfTheOldPublisher) {
    installWhile([this] { sink->flushForEvent(PromptEvent()); });
}

TEST_F(YVMSinkPublishTest, MayEndInsideAPublish) {
    deliver(install);
    write(u"x");
    engine->errSink()->buffer().sputn(u"y", 1);
    hooked->onPublish = [this](const std::string&) { sink.reset(); };
    pool.advance(publishPeriod);
    EXPECT_EQ(sink, nullptr);
    EXPECT_EQ(outputCount(), 1U) << "the second message finds the service gone";
    EXPECT_EQ(hooked->inner->subscriberCount(), 0U);
    pool.advance(publishPeriod);
    EXPECT_EQ(pool.waiting(), 0U);
}

/// One writer, the timer, events and requests at once. Meant above all for the thread sanitizer.
TEST_F(YVMSinkTest, WriterTimerEventsAndRequestsMayMeet) {
    constexpr int requestCount = 200;
    std::atomic<bool> ended = false;
    std::thread writer([&] {
        for (int n = 0; !ended; ++n) {
            const cmddistributor::RequestIdScope command(foundation::msg_svc::exchange::IDType(1, n / 10));
            const auto outSink = engine->outSink();
            auto& buffer = outSink->buffer();
            const std::string text = std::to_string(n) + "\n";
            buffer.sputn(std::u16string(text.begin(), text.end()).data(),
                         static_cast<std::streamsize>(text.size()));
            buffer.pubsync();
            std::this_thread::yield();
        }
    });
    std::thread timer([&] {
        while (!ended) {
            pool.advance(publishPeriod);
            std::this_thread::yield();
        }
    });
    std::thread events([&] {
        const PromptEvent event;
        while (!ended) {
            sink->flushForEvent(event);
            std::this_thread::yield();
        }
    });
    std::thread switches([&] {
        for (bool enabled = false; !ended; enabled = !enabled) {
            features.setBatching(enabled);
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < requestCount; ++i) {
        // Long enough for some text.
        const auto before = service->publicationsOn("/yvm/a/yvmSinks/output").size();
        request(i % 5 == 4 ? revert : install);
        if (i % 5 != 4) {
            EXPECT_TRUE(test::waitUntil(
                [&] { return service->publicationsOn("/yvm/a/yvmSinks/output").size() > before; }));
        }
    }
    ended = true;
    for (auto* thread : {&writer, &timer, &events, &switches}) {
        thread->join();
    }
    EXPECT_EQ(responses().size(), static_cast<std::size_t>(requestCount));
    std::string all;
    for (const auto& message : sent()) {
        all += message.text;
    }
    // A publisher that is replaced while it sends may do so beside its successor: there is an order in the
    // text of each, and none between the two.
    std::istringstream lines(all);
    std::set<int> seen;
    for (int n = 0; lines >> n;) {
        EXPECT_TRUE(seen.insert(n).second) << n << " came twice";
    }
    EXPECT_FALSE(seen.empty());
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
