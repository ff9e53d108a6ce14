#include "r24a0/TextJSBufferPublisher.hpp"

#include "common/test/support.hpp"
#include "cppmicroservices/Framework.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "r24a0/isSmartBufEnabled.hpp"
#include "r24a0/test/SinksFixture.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace yvm::JSClient::r24a0 {
namespace {

using platform_testing::LogCapture;
using ylutil::io::StreamTypeEnum;

const std::string logChannel = "yvm::JSClient::TextJSBufferPublisher";

/// An event whose static tags are those of the test.
class TaggedEvent final : public foundation::msg_svc::eventmgr::BaseEvent {
  public:
    explicit TaggedEvent(std::vector<std::u16string> tags) : tags_(std::move(tags)) {}
    const std::vector<std::u16string>& getStaticTags() const override { return tags_; }

  private:
    std::vector<std::u16string> tags_;
};

class ClearingPublisher final : public TextJSBufferPublisher {
  public:
    using TextJSBufferPublisher::TextJSBufferPublisher;
    void clear() { clearImpl(Lock()); }
};

class TextJSBufferPublisherTest : public testing::Test {
  protected:
    void pushOut(const std::u16string& text) { publisher->push(StreamTypeEnum::Output, text); }
    void pushErr(const std::u16string& text) { publisher->push(StreamTypeEnum::Error, text); }

    /// What the log of a destructor says, of `publisher`, with `count` units queued.
    std::string endLine(std::size_t count) const {
        std::ostringstream line;
        line << " numBuffered_=" << count << " this=" << publisher.get();
        return line.str();
    }

    platform_testing::FrameworkWithFakePool process;
    platform_testing::FakeThreadPool& pool = process.pool();
    std::vector<Sent> sent;
    std::function<void()> onSend = [] {};
    std::shared_ptr<TextJSBufferPublisher> publisher =
        std::make_shared<TextJSBufferPublisher>([this](const JsonObject& message) {
            onSend();
            sent.emplace_back(message);
        });
};

TEST_F(TextJSBufferPublisherTest, NeighboursOfOneStreamLeaveAsOneMessage) {
    pushOut(u"a");
    pushOut(u"b");
    pushErr(u"c");
    pushOut(u"d");
    EXPECT_TRUE(sent.empty());
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "ab"},
                                       {StreamTypeEnum::Error, "c"},
                                       {StreamTypeEnum::Output, "d"}}));
}

TEST_F(TextJSBufferPublisherTest, AnEmptyQueueSendsNothing) {
    publisher->send();
    EXPECT_TRUE(sent.empty());
    pushOut(u"a");
    publisher->send();
    publisher->send();
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(TextJSBufferPublisherTest, AnEmptyTextOfANewStreamIsAMessage) {
    pushErr(u"");
    pushErr(u"");
    pushOut(u"");
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Error, ""}, {StreamTypeEnum::Output, ""}}));
}

TEST_F(TextJSBufferPublisherTest, ASurrogatePairThatIsSplitAcrossWritesArrivesWhole) {
    pushOut(u"\xD83D");
    pushOut(u"\xDE00");
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "\xF0\x9F\x98\x80"}}));
}

TEST_F(TextJSBufferPublisherTest, NothingLeavesForItsSize) {
    for (int i = 0; i < 1000; ++i) {
        pushOut(std::u16string(10'000, u'x'));
    }
    EXPECT_TRUE(sent.empty());
    publisher->send();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent.front().text.size(), 10'000'000U);
}

TEST_F(TextJSBufferPublisherTest, WithoutASendFunctionMessagesAreDropped) {
    publisher = std::make_shared<TextJSBufferPublisher>(TextJSBufferPublisher::SendFunction());
    pushOut(u"a");
    const LogCapture log;
    publisher->send();
    const std::string expected = endLine(0);
    publisher.reset();
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"sending message containing 1 uchars"});
    EXPECT_EQ(log.texts(logChannel, 2), std::vector<std::string>{expected});
}

TEST_F(TextJSBufferPublisherTest, AFailedMessageIsLostAndTheRestStays) {
    pushOut(u"one");
    pushErr(u"three");
    pushOut(u"four");
    onSend = [this] {
        onSend = [] {};
        throw std::runtime_error("no");
    };
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { publisher->send(); }), "no");
    EXPECT_TRUE(sent.empty());
    const LogCapture log;
    const std::string expected = endLine(9);
    // The lock has been let go, too.
    publisher.reset();
    EXPECT_EQ(log.texts(logChannel, 2), std::vector<std::string>{expected});
}

TEST_F(TextJSBufferPublisherTest, TheNextAttemptSendsWhatAFailureLeft) {
    pushOut(u"one");
    pushErr(u"two");
    onSend = [this] {
        onSend = [] {};
        throw std::runtime_error("no");
    };
    EXPECT_THROW(publisher->send(), std::runtime_error);
    pushErr(u" three");
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Error, "two three"}}));
}

TEST_F(TextJSBufferPublisherTest, PushesAndMessagesAreLogged) {
    const LogCapture log;
    pushOut(u"\u00e4\n");
    pushOut(u"\"");
    pushErr(u"");
    publisher->send();
    EXPECT_EQ(log.texts(logChannel, 8),
              (std::vector<std::string>{" pushing \"\xC3\xA4\n\"", " pushing \"\"\"", " pushing \"\"",
                                        "sending message containing 3 uchars",
                                        "sending message containing 0 uchars"}));
    EXPECT_EQ(log.records(logChannel).size(), 5U);
}

TEST_F(TextJSBufferPublisherTest, ItsEndTellsHowMuchItDiscards) {
    pushOut(u"12");
    pushErr(u"345");
    pushErr(u"\U0001F600");
    const LogCapture log;
    const std::string expected = endLine(7);
    publisher.reset();
    EXPECT_EQ(log.texts(logChannel, 2), std::vector<std::string>{expected});
    EXPECT_EQ(log.records(logChannel).size(), 1U);
    EXPECT_TRUE(sent.empty());
}

TEST_F(TextJSBufferPublisherTest, NothingIsBufferedOnceAllIsSent) {
    pushOut(u"12");
    pushErr(u"345");
    publisher->send();
    const LogCapture log;
    const std::string expected = endLine(0);
    publisher.reset();
    EXPECT_EQ(log.texts(logChannel, 2), std::vector<std::string>{expected});
}

TEST_F(TextJSBufferPublisherTest, AClearedQueueIsEmpty) {
    auto clearing = std::make_shared<ClearingPublisher>(
        [this](const JsonObject& message) { sent.emplace_back(message); });
    publisher = clearing;
    pushOut(u"gone");
    pushErr(u"gone");
    clearing->clear();
    pushErr(u"12");
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Error, "12"}}));
    clearing->clear();
    pushErr(u"123");
    const LogCapture log;
    const std::string expected = endLine(3);
    publisher.reset();
    clearing.reset();
    EXPECT_EQ(log.texts(logChannel, 2), std::vector<std::string>{expected});
}

const std::vector<std::u16string> flushEventTypes = {
    u"iqm::IqmInputRequestEvent",
    u"yorlab::lang::correction::SuggestionEvent",
    u"ylutil::io::PrintableErrorEvent",
    u"ylutil::io::SinkTextEvent",
    u"ylutil::io::StructuredOutputEvent",
    u"ylutil::prompt::PromptEvent",
    u"services::io::CLCEvent",
    u"services::io::HomeEvent",
    u"services::prompt::InputRequestEvent",
};

TEST_F(TextJSBufferPublisherTest, EachEventThatTextMustPrecedeSendsIt) {
    for (const auto& name : flushEventTypes) {
        pushOut(u"x");
        publisher->flushForEvent(TaggedEvent({name}));
        EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "x"}}));
        sent.clear();
    }
}

TEST_F(TextJSBufferPublisherTest, OneSuchTagAmongOthersIsEnough) {
    const LogCapture log;
    publisher->flushForEvent(
        TaggedEvent({u"other", u"ylutil::prompt::PromptEvent", u"services::io::CLCEvent", u"another"}));
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"forcing flush before sending event"});
}

TEST_F(TextJSBufferPublisherTest, OtherEventsLeaveTheTextAlone) {
    pushOut(u"x");
    const LogCapture log;
    publisher->flushForEvent(TaggedEvent({}));
    publisher->flushForEvent(TaggedEvent({u"ylutil::io::TextBaseEvent", u"ylutil::prompt::PromptEvent2",
                                          u"PromptEvent", u"ylutil::prompt::promptevent", u""}));
    EXPECT_TRUE(sent.empty());
    EXPECT_TRUE(log.records(logChannel).empty());
}

TEST_F(TextJSBufferPublisherTest, UserTagsOfAnEventDoNotCount) {
    pushOut(u"x");
    TaggedEvent event({u"other"});
    event.addUserTags(std::vector<std::u16string>{u"ylutil::prompt::PromptEvent"});
    publisher->flushForEvent(event);
    EXPECT_TRUE(sent.empty());
}

TEST_F(TextJSBufferPublisherTest, AnotherEventDoesNotWaitForASendFunction) {
    pushOut(u"x");
    // With the mutex held; a lock would never be had.
    onSend = [this] { publisher->flushForEvent(TaggedEvent({u"other"})); };
    publisher->send();
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(TextJSBufferPublisherTest, WithoutTheTimerTextWaits) {
    pushOut(u"x");
    pool.advance(100 * publishPeriod);
    EXPECT_TRUE(sent.empty());
}

TEST_F(TextJSBufferPublisherTest, TheTimerSendsOnePeriodAfterItsStart) {
    publisher->startPublishTimer();
    pushOut(u"x");
    pool.advance(std::chrono::milliseconds(149));
    EXPECT_TRUE(sent.empty());
    pool.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "x"}}));
}

TEST_F(TextJSBufferPublisherTest, TheTimerSendsEveryPeriod) {
    publisher->startPublishTimer();
    for (int run = 0; run < 10; ++run) {
        pushOut(u"x");
        pool.advance(publishPeriod);
        ASSERT_EQ(sent.size(), static_cast<std::size_t>(run) + 1);
    }
    pool.advance(publishPeriod);
    EXPECT_EQ(sent.size(), 10U);
}

TEST_F(TextJSBufferPublisherTest, ASlowSendStretchesTheCycle) {
    publisher->startPublishTimer();
    pushOut(u"one");
    onSend = [this] { pool.takeTime(std::chrono::milliseconds(400)); };
    pool.advance(publishPeriod);
    ASSERT_EQ(sent.size(), 1U);
    onSend = [] {};
    pushOut(u"two");
    pool.advance(std::chrono::milliseconds(149));
    EXPECT_EQ(sent.size(), 1U);
    pool.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(sent.size(), 2U);
}

TEST_F(TextJSBufferPublisherTest, ATimerRunThatThrowsLosesOneMessageAndNoLaterRun) {
    publisher->startPublishTimer();
    pushOut(u"one");
    pushErr(u"two");
    onSend = [this] {
        onSend = [] {};
        throw std::runtime_error("no");
    };
    pool.advance(publishPeriod);
    EXPECT_TRUE(sent.empty());
    pool.advance(publishPeriod);
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Error, "two"}}));
}

TEST_F(TextJSBufferPublisherTest, ItsEndStopsTheTimer) {
    publisher->startPublishTimer();
    EXPECT_EQ(pool.waiting(), 1U);
    pushOut(u"x");
    publisher.reset();
    pool.advance(10 * publishPeriod);
    EXPECT_EQ(pool.waiting(), 0U);
    EXPECT_TRUE(sent.empty());
}

TEST_F(TextJSBufferPublisherTest, ASecondStartReplacesTheHandleAlone) {
    publisher->startPublishTimer();
    pool.advance(std::chrono::milliseconds(50));
    publisher->startPublishTimer();
    pushOut(u"one");
    pool.advance(std::chrono::milliseconds(100));
    EXPECT_EQ(sent.size(), 1U) << "of the first timer, which goes on";
    pushOut(u"two");
    pool.advance(std::chrono::milliseconds(50));
    EXPECT_EQ(sent.size(), 2U);
}

TEST_F(TextJSBufferPublisherTest, ATimerThatASecondStartLeftBehindFindsItGone) {
    publisher->startPublishTimer();
    publisher->startPublishTimer();
    pushOut(u"x");
    const std::weak_ptr<TextJSBufferPublisher> weak = publisher;
    publisher.reset();
    EXPECT_TRUE(weak.expired());
    pool.advance(publishPeriod);
    EXPECT_TRUE(sent.empty());
}

TEST_F(TextJSBufferPublisherTest, MayEndInsideATimerRun) {
    publisher->startPublishTimer();
    pushOut(u"x");
    const LogCapture log;
    const std::string expected = endLine(0);
    onSend = [this] { publisher.reset(); };
    pool.advance(publishPeriod);
    EXPECT_EQ(sent.size(), 1U);
    EXPECT_EQ(log.texts(logChannel, 2), std::vector<std::string>{expected});
    pool.advance(publishPeriod);
    EXPECT_EQ(pool.waiting(), 0U);
}

TEST(TextJSBufferPublisherWithoutPool, NeedsAFramework) {
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([] { TextJSBufferPublisher({}); }),
              "The bundle context is no longer valid");
}

TEST(TextJSBufferPublisherWithoutPool, NeedsAFrameworkThatHasNotStopped) {
    const auto framework = std::make_shared<cppmicroservices::Framework>();
    framework->Start();
    foundation::cppmicroservices::setFramework(framework);
    const foundation::core::util::scope_guard unset([] { foundation::cppmicroservices::setFramework({}); });
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([] { TextJSBufferPublisher({}); }),
              "There is no thread pool to publish text on time");
    framework->Stop();
    EXPECT_EQ(test::textThrownBy<std::runtime_error>([] { TextJSBufferPublisher({}); }),
              "The bundle context is no longer valid");
}

TEST(IsSmartBufEnabled, NeedsBothFeatures) {
    EXPECT_FALSE(isSmartBufEnabled());
    FeatureSwitches switches;
    EXPECT_TRUE(isSmartBufEnabled());
    switches.set(true, false);
    EXPECT_FALSE(isSmartBufEnabled());
    switches.set(false, true);
    EXPECT_FALSE(isSmartBufEnabled());
    switches.set(false, false);
    EXPECT_FALSE(isSmartBufEnabled());
    switches.set(true, true);
    EXPECT_TRUE(isSmartBufEnabled());
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
