// The stream buffer of a command's own text, which is reached through the run options alone.

#include "r24a0/deserializeRunOptions.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/setCurrentMockYvm.hpp"
#include "common/test/support.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "testing/FakeYvm.hpp"
#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "yvm/Factory.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace yvm::JSClient::r24a0 {
namespace {

using cmddistributor::RunOptions;
using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::exchange::IDType;
using test::parseObject;
using ylutil::io::StreamTypeEnum;
using ylutil::io::TextBaseEvent;

const std::u16string textEventName = u"ylutil::io::TextBaseEvent";

RunOptions read(const std::string& text) {
    return deserializeRunOptions(parseObject(text), nullptr, "7", {});
}

/// An event manager whose deliveries fail.
class ThrowingEventMgr final : public EventMgr {
  public:
    void deliver(std::shared_ptr<const BaseEvent>, foundation::msg_svc::eventmgr::DeliveryMode) override {
        throw std::runtime_error("no delivery");
    }
    std::size_t subscriptionCount(const std::u16string&) const override { return 0; }
    void setCommandHandlerLookup(foundation::msg_svc::eventmgr::CommandHandlerLookup) override {}

  private:
    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> subscribeGuarded(
        foundation::msg_svc::eventmgr::EventHandler, std::vector<std::u16string>) override {
        return nullptr;
    }
};

/// An engine whose event manager cannot be had.
class ThrowingYvm final : public YVM {
  public:
    std::uint64_t getIdentifier() const override { return 0; }
    boost::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override { return {}; }
    void replaceSinks(Sink, Sink) override {}
    foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<YVM>) override { return {}; }
    void interrupt() override {}
    std::shared_ptr<ylutil::debugger::Debugger> getDebugger() override { return {}; }
    void breakInDebugger() override {}
    boost::shared_ptr<EventMgr> getEventMgr() override { throw std::runtime_error("no event manager"); }
};

class TextEventBuffer : public testing::Test {
  protected:
    struct Event {
        IDType id;
        StreamTypeEnum stream;
        std::u16string text;

        bool operator==(const Event&) const = default;
    };

    TextEventBuffer() {
        engine.setEventMgr(eventMgr);
        const std::vector<std::u16string> tags = {textEventName};
        connection = eventMgr->subscribe(
            [this](const BaseEvent& event) {
                const auto& text = dynamic_cast<const TextBaseEvent&>(event);
                events.push_back({text.id(), text.stream(), text.text()});
            },
            tags.begin(), tags.end());
        yvm::unittest::setCurrentMockYvm(&engine);
    }

    ~TextEventBuffer() override {
        yvm::unittest::setCurrentMockYvm(nullptr);
        ylutil::io::ActiveCmdWinSinkBufferProxy::setReceivers({}, {});
    }

    /// Installs receivers of log and diary that record "log TEXT" and "diary TEXT".
    void recordCopies() {
        const auto recorder = [this](const std::u16string& name) {
            return [this, name](std::u16string_view text, bool synchronise) {
                EXPECT_FALSE(synchronise);
                copies.push_back(name + u" " + std::u16string(text));
            };
        };
        ylutil::io::ActiveCmdWinSinkBufferProxy::setReceivers(recorder(u"log"), recorder(u"diary"));
    }

    std::basic_streambuf<char16_t>& buffer() { return runOptions.getOutSink()->buffer(); }
    std::streamsize write(const std::u16string& text) {
        return buffer().sputn(text.data(), static_cast<std::streamsize>(text.size()));
    }

    RunOptions runOptions = read(R"({"useNullOutSink":false,"useNullErrSink":false})");
    const boost::shared_ptr<EventMgr> eventMgr = EventMgr::create();
    platform_testing::FakeYvm engine{{}, {}};
    std::vector<Event> events;
    std::vector<std::u16string> copies;
    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> connection;
};

TEST_F(TextEventBuffer, ASyncWithoutTextAsksNoEngine) {
    yvm::unittest::setCurrentMockYvm(nullptr);
    EXPECT_EQ(buffer().pubsync(), 0);
    EXPECT_TRUE(events.empty());
}

TEST_F(TextEventBuffer, ASyncFiresWhatWasCollected) {
    const cmddistributor::RequestIdScope command{IDType(1, 2)};
    EXPECT_EQ(write(u"one "), 4);
    EXPECT_EQ(write(u"two"), 3);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(buffer().pubsync(), 0);
    EXPECT_EQ(events, (std::vector<Event>{{IDType(1, 2), StreamTypeEnum::Output, u"one two"}}));
    EXPECT_EQ(buffer().pubsync(), 0);
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(TextEventBuffer, TheErrStreamFiresErrors) {
    auto& errBuffer = runOptions.getErrSink()->buffer();
    errBuffer.sputn(u"x", 1);
    errBuffer.pubsync();
    EXPECT_EQ(events, (std::vector<Event>{{IDType::null(), StreamTypeEnum::Error, u"x"}}));
}

TEST_F(TextEventBuffer, FlushesBeyondTheThresholdAndNotAtIt) {
    write(std::u16string(8192, u'x'));
    EXPECT_TRUE(events.empty());
    write(u"y");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().text, std::u16string(8192, u'x') + u"y");
}

TEST_F(TextEventBuffer, SingleCharactersFlushBeyondTheThreshold) {
    for (int i = 0; i < 8192; ++i) {
        EXPECT_EQ(buffer().sputc(u'x'), u'x');
    }
    EXPECT_TRUE(events.empty());
    buffer().sputc(u'y');
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(TextEventBuffer, DropsSingleNulAndKeepsOneInsideARun) {
    EXPECT_EQ(buffer().sputc(u'\0'), 0);
    buffer().sputc(u'a');
    write(std::u16string(u"b\0c", 3));
    buffer().pubsync();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().text, std::u16string(u"ab\0c", 4));
}

TEST_F(TextEventBuffer, WithoutAnEngineTextIsKeptAndEachWriteTriesAgain) {
    yvm::unittest::setCurrentMockYvm(nullptr);
    EXPECT_EQ(write(std::u16string(8193, u'x')), 8193);
    EXPECT_EQ(write(u"y"), 1);
    EXPECT_EQ(buffer().pubsync(), -1);
    yvm::unittest::setCurrentMockYvm(&engine);
    EXPECT_EQ(write(u"z"), 1);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().text, std::u16string(8193, u'x') + u"yz");
}

TEST_F(TextEventBuffer, WithoutAnEventManagerTextIsKept) {
    engine.setEventMgr(nullptr);
    write(u"x");
    EXPECT_EQ(buffer().pubsync(), -1);
    engine.setEventMgr(eventMgr);
    EXPECT_EQ(buffer().pubsync(), 0);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().text, u"x");
}

TEST_F(TextEventBuffer, AnEngineThatThrowsLeavesTheTextKept) {
    ThrowingYvm throwing;
    yvm::unittest::setCurrentMockYvm(&throwing);
    EXPECT_EQ(write(std::u16string(8193, u'x')), 8193);
    EXPECT_EQ(buffer().pubsync(), -1);
    yvm::unittest::setCurrentMockYvm(&engine);
    EXPECT_EQ(buffer().pubsync(), 0);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().text, std::u16string(8193, u'x'));
}

TEST_F(TextEventBuffer, AFailedDeliveryLosesTheText) {
    engine.setEventMgr(boost::make_shared<ThrowingEventMgr>());
    write(u"x");
    EXPECT_EQ(buffer().pubsync(), -1);
    engine.setEventMgr(eventMgr);
    EXPECT_EQ(buffer().pubsync(), 0);
    EXPECT_TRUE(events.empty());
}

TEST_F(TextEventBuffer, EachChangeOfTheCommandFiresAnEvent) {
    {
        const cmddistributor::RequestIdScope first{IDType(1, 1)};
        write(u"a");
        {
            const cmddistributor::RequestIdScope second{IDType(1, 2)};
            write(u"b");
        }
        buffer().sputc(u'c');
    }
    buffer().pubsync();
    EXPECT_EQ(events, (std::vector<Event>{{IDType(1, 1), StreamTypeEnum::Output, u"a"},
                                          {IDType(1, 2), StreamTypeEnum::Output, u"b"},
                                          {IDType(1, 1), StreamTypeEnum::Output, u"c"}}));
}

TEST_F(TextEventBuffer, AnEmptyWriteOfAnotherCommandFiresWhatWasCollected) {
    {
        const cmddistributor::RequestIdScope first{IDType(1, 1)};
        write(u"a");
    }
    const cmddistributor::RequestIdScope second{IDType(1, 2)};
    EXPECT_EQ(write(u""), 0);
    EXPECT_EQ(events, (std::vector<Event>{{IDType(1, 1), StreamTypeEnum::Output, u"a"}}));
}

TEST_F(TextEventBuffer, DropsTheEndOfFileValue) {
    // Of the buffer's own class nothing is public but what std::basic_streambuf has.
    struct Overflow : std::basic_streambuf<char16_t> {
        using std::basic_streambuf<char16_t>::overflow;
    };
    EXPECT_EQ((buffer().*&Overflow::overflow)(0xFFFF), 0xFFFF);
    EXPECT_EQ((buffer().*&Overflow::overflow)(u'a'), u'a');
    buffer().pubsync();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().text, u"a");
}

TEST_F(TextEventBuffer, WithoutLoggingAndDiaryNothingIsCopied) {
    recordCopies();
    write(u"x");
    buffer().sputc(u'y');
    EXPECT_TRUE(copies.empty());
}

TEST_F(TextEventBuffer, CopiesToTheLogFirstAndAtTheTimeOfTheWrite) {
    recordCopies();
    runOptions = read(R"({"useNullOutSink":false,"outSinkTraits":{"useLogging":true,"useDiary":true}})");
    write(u"one");
    buffer().sputc(u'2');
    EXPECT_EQ(copies, (std::vector<std::u16string>{u"log one", u"diary one", u"log 2", u"diary 2"}));
    EXPECT_TRUE(events.empty());
}

TEST_F(TextEventBuffer, LoggingAndDiaryAreSeparate) {
    recordCopies();
    runOptions = read(R"({"useNullOutSink":false,"outSinkTraits":{"useLogging":true}})");
    write(u"a");
    runOptions = read(R"({"useNullOutSink":false,"outSinkTraits":{"useDiary":true}})");
    write(u"b");
    EXPECT_EQ(copies, (std::vector<std::u16string>{u"log a", u"diary b"}));
}

TEST_F(TextEventBuffer, DestructionLosesWhatIsCollected) {
    write(u"x");
    runOptions = RunOptions();
    EXPECT_TRUE(events.empty());
}

TEST_F(TextEventBuffer, TheMockEngineTakesPrecedenceOverTheEngineOfTheProcess) {
    const auto localEventMgr = EventMgr::create();
    const auto localEngine = platform_testing::FakeYvm::create({}, localEventMgr);
    Factory::setCurrentLocalYVM(localEngine);
    const foundation::core::util::scope_guard unset([] { Factory::setCurrentLocalYVM({}); });
    std::size_t localEvents = 0;
    const std::vector<std::u16string> tags = {textEventName};
    const auto counting = localEventMgr->subscribe([&localEvents](const BaseEvent&) { ++localEvents; },
                                                   tags.begin(), tags.end());
    write(u"x");
    EXPECT_EQ(buffer().pubsync(), 0);
    EXPECT_EQ(events.size(), 1U);
    EXPECT_EQ(localEvents, 0U);

    yvm::unittest::setCurrentMockYvm(nullptr);
    write(u"y");
    EXPECT_EQ(buffer().pubsync(), 0);
    EXPECT_EQ(events.size(), 1U);
    EXPECT_EQ(localEvents, 1U);
}

TEST_F(TextEventBuffer, TheMockEngineIsNotDeleted) {
    write(u"x");
    EXPECT_EQ(buffer().pubsync(), 0);
    // A deleted engine would not answer.
    EXPECT_EQ(engine.getEventMgr(), eventMgr);
}

TEST_F(TextEventBuffer, AHandlerMayWriteToTheBufferThatIsBeingFlushed) {
    bool written = false;
    const std::vector<std::u16string> tags = {textEventName};
    const auto printing = eventMgr->subscribe(
        [this, &written](const BaseEvent&) {
            if (!std::exchange(written, true)) {
                write(u"again");
            }
        },
        tags.begin(), tags.end());
    write(u"x");
    buffer().pubsync();
    buffer().pubsync();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[1].text, u"again");
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
