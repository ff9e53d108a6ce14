#include "r24a0/deserializeRunOptions.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/setCurrentMockYvm.hpp"
#include "common/test/support.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "testing/FakeYvm.hpp"
#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"
#include "yvm/Factory.hpp"

#include <boost/make_shared.hpp>
#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <limits>
#include <typeinfo>

namespace yvm::JSClient::r24a0 {
namespace {

using cmddistributor::RunOptions;
using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::exchange::IDType;
using test::parseObject;
using test::textThrownBy;
using ylutil::cmddistributor::WhenToDequeue;
using ylutil::io::SinkTraits;
using ylutil::io::StreamTypeEnum;
using ylutil::io::TextBaseEvent;

const std::string badGet = "boost::bad_get: failed value get using boost::get";
const std::u16string textEventName = u"ylutil::io::TextBaseEvent";

RunOptions read(const std::string& text, PublishTextCallback publish = {}) {
    return deserializeRunOptions(parseObject(text), nullptr, "7", std::move(publish));
}

void expectDefaultScheduling(const RunOptions& runOptions) {
    const RunOptions defaults;
    EXPECT_EQ(runOptions.getDequeueMode(), defaults.getDequeueMode());
    EXPECT_FALSE(runOptions.getQueueName());
    EXPECT_EQ(runOptions.getCapabilities(), defaults.getCapabilities());
    EXPECT_EQ(runOptions.getGroupNames(), defaults.getGroupNames());
    EXPECT_EQ(runOptions.getSuppressDebugControlOutput(), defaults.getSuppressDebugControlOutput());
    EXPECT_EQ(runOptions.getCommandWindowRowSize(), defaults.getCommandWindowRowSize());
    EXPECT_EQ(runOptions.getCommandWindowColSize(), defaults.getCommandWindowColSize());
}

TEST(DeserializeRunOptions, AnEmptyObjectGivesTheDefaults) {
    const auto runOptions = read("{}");
    expectDefaultScheduling(runOptions);
    EXPECT_EQ(runOptions.getOutSink(), nullptr);
    EXPECT_EQ(runOptions.getErrSink(), nullptr);
    EXPECT_TRUE(runOptions.getCallbacks().empty());
}

TEST(DeserializeRunOptions, EveryModeCanBeNamed) {
    for (int mode = 1; mode <= 7; ++mode) {
        const auto expected = static_cast<WhenToDequeue::Enum>(mode);
        EXPECT_EQ(read(R"({"dequeueMode":")" + WhenToDequeue::toString(expected) + "\"}").getDequeueMode(),
                  expected);
    }
}

TEST(DeserializeRunOptions, AnUnknownModeKeepsTheDefault) {
    for (const char* mode : {"DEQUEUE_UNKNOWN", "nonsense", "", "dequeue_at_ppe"}) {
        const auto runOptions = read(R"({"dequeueMode":")" + std::string(mode) + R"(","groupNames":["g"]})");
        EXPECT_EQ(runOptions.getDequeueMode(), RunOptions().getDequeueMode()) << mode;
        EXPECT_EQ(runOptions.getGroupNames(), std::vector<std::string>{"g"}) << "the keys behind it are read";
    }
}

TEST(DeserializeRunOptions, TheQueueNameBecomesSixteenBitText) {
    EXPECT_EQ(read(R"({"queueName":"\u00e4\ud83d\ude00"})").getQueueName().value(), u"\u00e4\U0001F600");
    EXPECT_EQ(read(R"({"queueName":""})").getQueueName().value(), u"");
}

TEST(DeserializeRunOptions, CapabilitiesAllowTheNamedAlone) {
    const auto capabilities = read(R"({"capabilitiesList":["input","figures"]})").getCapabilities();
    EXPECT_EQ(capabilities, capabilities::CapabilityList::fromStringVector({"input", "figures"}));
    EXPECT_FALSE(capabilities.allows("debugger"));
    EXPECT_FALSE(read(R"({"capabilitiesList":[]})").getCapabilities().isUnrestricted());
}

TEST(DeserializeRunOptions, GroupNamesKeepOrderAndDuplicates) {
    EXPECT_EQ(read(R"({"groupNames":["b","a","b"]})").getGroupNames(),
              (std::vector<std::string>{"b", "a", "b"}));
}

TEST(DeserializeRunOptions, DebugControlOutputCanBeSuppressed) {
    EXPECT_TRUE(read(R"({"suppressDebugControlOutput":true})").getSuppressDebugControlOutput());
    EXPECT_FALSE(read(R"({"suppressDebugControlOutput":false})").getSuppressDebugControlOutput());
}

TEST(DeserializeRunOptions, WindowSizesAreTruncatedAndUnchecked) {
    EXPECT_EQ(read(R"({"commandWindowRowSize":80.9})").getCommandWindowRowSize(), 80U);
    EXPECT_EQ(read(R"({"commandWindowRowSize":-1})").getCommandWindowRowSize(),
              std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(read(R"({"commandWindowColSize":9223372036854775808})").getCommandWindowColSize(),
              std::uint64_t{1} << 63U);
    const auto runOptions = read(R"({"commandWindowRowSize":10,"commandWindowColSize":20})");
    EXPECT_EQ(runOptions.getCommandWindowRowSize(), 10U);
    EXPECT_EQ(runOptions.getCommandWindowColSize(), 20U);
}

TEST(DeserializeRunOptions, UnknownKeysAndThoseOfTheOlderProtocolAreIgnored) {
    expectDefaultScheduling(
        read(R"({"commandWindowWidth":10,"commandWindowHeight":20,"DequeueMode":3,"other":null})"));
}

TEST(DeserializeRunOptions, AValueOfTheWrongTypeThrows) {
    for (const char* text :
         {R"({"dequeueMode":3})", R"({"queueName":5})", R"({"capabilitiesList":"input"})",
          R"({"capabilitiesList":["input",5]})", R"({"groupNames":{}})", R"({"groupNames":[null]})",
          R"({"suppressDebugControlOutput":1})", R"({"commandWindowRowSize":"80"})",
          R"({"commandWindowColSize":true})", R"({"outSinkTraits":null})", R"({"errSinkTraits":[]})",
          R"({"outSinkTraits":{"useEcho":1}})", R"({"useNullOutSink":1})", R"({"useNullErrSink":null})"}) {
        EXPECT_EQ(textThrownBy<boost::bad_get>([text] { read(text); }), badGet) << text;
    }
}

/// Whether the command has a text callback.
bool hasTextCallback(const RunOptions& runOptions) {
    return runOptions.getCallbacks().contains(textEventName);
}

bool isNullSink(const boost::shared_ptr<ylutil::io::YLSink>& sink) {
    return sink && dynamic_cast<ylutil::io::YLNoOutputStreamBuffer*>(&sink->buffer()) != nullptr;
}

TEST(RunOptionStreams, FalseForOutAloneChangesTheOutStreamAlone) {
    const auto runOptions = read(R"({"useNullOutSink":false})");
    EXPECT_TRUE(hasTextCallback(runOptions));
    ASSERT_NE(runOptions.getOutSink(), nullptr);
    EXPECT_FALSE(isNullSink(runOptions.getOutSink()));
    EXPECT_EQ(runOptions.getErrSink(), nullptr);
}

TEST(RunOptionStreams, FalseForErrInstallsTheCallbackBesideANullOutStream) {
    const auto runOptions = read(R"({"useNullOutSink":true,"useNullErrSink":false})");
    EXPECT_TRUE(hasTextCallback(runOptions));
    EXPECT_TRUE(isNullSink(runOptions.getOutSink()));
    ASSERT_NE(runOptions.getErrSink(), nullptr);
    EXPECT_FALSE(isNullSink(runOptions.getErrSink()));
}

TEST(RunOptionStreams, BothTrueInstallNoCallback) {
    const auto runOptions = read(R"({"useNullOutSink":true,"useNullErrSink":true})");
    EXPECT_FALSE(hasTextCallback(runOptions));
    EXPECT_TRUE(isNullSink(runOptions.getOutSink()));
    EXPECT_TRUE(isNullSink(runOptions.getErrSink()));
}

TEST(RunOptionStreams, TraitsAloneChangeNothing) {
    const auto runOptions = read(R"({"outSinkTraits":{"useEcho":true},"errSinkTraits":{}})");
    EXPECT_FALSE(hasTextCallback(runOptions));
    EXPECT_EQ(runOptions.getOutSink(), nullptr);
    EXPECT_EQ(runOptions.getErrSink(), nullptr);
}

TEST(RunOptionStreams, EachStreamHasItsTraits) {
    const auto runOptions =
        read(R"({"outSinkTraits":{"useEcho":true},"useNullOutSink":true,"useNullErrSink":false})");
    EXPECT_TRUE(runOptions.getOutSink()->traits().useEcho());
    EXPECT_EQ(runOptions.getErrSink()->traits(), SinkTraits());
}

class OtherEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<OtherEvent> {};

struct Message {
    std::string channel;
    JsonObject json;

    bool operator==(const Message&) const = default;
};

/// What the text callback of a command publishes for `event`.
std::vector<Message> publishedFor(const BaseEvent& event) {
    std::vector<Message> messages;
    const auto runOptions =
        read(R"({"useNullOutSink":false})", [&messages](std::string channel, JsonObject json) {
            messages.push_back({std::move(channel), std::move(json)});
        });
    runOptions.getCallbacks().at(textEventName)(event);
    return messages;
}

TEST(TextCallback, OutputGoesToItsChannel) {
    EXPECT_EQ(publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"hi\n")),
              (std::vector<Message>{{"/text/output", JsonObject{{"requestID", "7"},
                                                                {"stream", foundation::json::Value(0)},
                                                                {"text", "hi\n"}}}}));
}

TEST(TextCallback, ErrorsGoToTheirChannel) {
    EXPECT_EQ(publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Error, u"oh")),
              (std::vector<Message>{
                  {"/text/error",
                   JsonObject{{"requestID", "7"}, {"stream", foundation::json::Value(1)}, {"text", "oh"}}}}));
}

TEST(TextCallback, OtherStreamsAreDropped) {
    EXPECT_TRUE(publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Generic, u"x")).empty());
    EXPECT_TRUE(publishedFor(TextBaseEvent(IDType(), static_cast<StreamTypeEnum>(9), u"x")).empty());
}

TEST(TextCallback, LoneSurrogatesBecomeTheReplacementCharacter) {
    const auto messages = publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"a\xD800\U0001F600"));
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages.front().json.at("text").as<std::string>(), "a\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(TextCallback, AnEventOfAnotherKindIsABadCast) {
    EXPECT_THROW(publishedFor(OtherEvent()), std::bad_cast);
}

class TaggedEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<TaggedEvent> {
  public:
    static constexpr bool acceptsUserTags = true;
};

TEST(TextCallback, AnEventThatMerelyCarriesTheTagIsABadCast) {
    TaggedEvent event;
    event.addUserTags(std::vector<std::u16string>{textEventName});
    EXPECT_THROW(publishedFor(event), std::bad_cast);
}

TEST(TextCallback, EachCopyOfTheRunOptionsPublishes) {
    int published = 0;
    const auto runOptions = read(R"({"useNullErrSink":false})",
                                 [&published](const std::string&, const JsonObject&) { ++published; });
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what is tested.
    const RunOptions copy = runOptions;
    copy.getCallbacks().at(textEventName)(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"x"));
    runOptions.getCallbacks().at(textEventName)(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"x"));
    EXPECT_EQ(published, 2);
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
