// The run options of a command, for both protocol versions: what is expected of each stands side by side.

#include "r22a0/deserializeRunOptions.hpp"

#include "common/setCurrentMockYvm.hpp"
#include "common/test/support.hpp"
#include "common/test/versions.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "r24a0/deserializeRunOptions.hpp"
#include "testing/FakeYvm.hpp"
#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"
#include "yvm/Factory.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace yvm::JSClient {
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

using PublishTextCallback = std::function<void(std::string, JsonObject)>;

class RunOptionsTest : public testing::Test, public test::ForEachVersion {
  protected:
    static RunOptions read(const std::string& text, PublishTextCallback publish = {}) {
        return isR22a0() ? r22a0::deserializeRunOptions(parseObject(text), nullptr, "7", std::move(publish))
                         : r24a0::deserializeRunOptions(parseObject(text), nullptr, "7", std::move(publish));
    }
    /// `{KEY: NUMBER}` for each of the two keys that size the window in rows and columns.
    static std::string rowSize(const std::string& number) {
        return perVersion(R"({"commandWindowWidth":)", R"({"commandWindowRowSize":)") + number + "}";
    }
    static std::string columnSize(const std::string& number) {
        return perVersion(R"({"commandWindowHeight":)", R"({"commandWindowColSize":)") + number + "}";
    }
    /// Members as r24a0 spells them, with the traits as the version under test does.
    static std::string spelled(const std::string& members) {
        return isR22a0() ? boost::replace_all_copy(members, R"("useEcho")", R"("_useEcho")") : members;
    }
};

INSTANTIATE_TEST_SUITE_P(Versions, RunOptionsTest, test::bothVersions(), test::nameOfVersion);

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

TEST_P(RunOptionsTest, AnEmptyObjectGivesTheDefaults) {
    const auto runOptions = read("{}");
    expectDefaultScheduling(runOptions);
    EXPECT_EQ(runOptions.getOutSink(), nullptr);
    EXPECT_EQ(runOptions.getErrSink(), nullptr);
    EXPECT_TRUE(runOptions.getCallbacks().empty());
}

TEST_P(RunOptionsTest, EveryModeCanBeNamed) {
    for (int mode = 1; mode <= 7; ++mode) {
        const auto expected = static_cast<WhenToDequeue::Enum>(mode);
        EXPECT_EQ(read(R"({"dequeueMode":")" + WhenToDequeue::toString(expected) + "\"}").getDequeueMode(),
                  expected);
    }
}

TEST_P(RunOptionsTest, AnUnknownModeKeepsTheDefault) {
    for (const char* mode : {"DEQUEUE_UNKNOWN", "nonsense", "", "dequeue_at_ppe"}) {
        const auto runOptions = read(R"({"dequeueMode":")" + std::string(mode) + R"(","groupNames":["g"]})");
        EXPECT_EQ(runOptions.getDequeueMode(), RunOptions().getDequeueMode()) << mode;
        EXPECT_EQ(runOptions.getGroupNames(), std::vector<std::string>{"g"}) << "the keys behind it are read";
    }
}

TEST_P(RunOptionsTest, TheQueueNameBecomesSixteenBitText) {
    EXPECT_EQ(read(R"({"queueName":"\u00e4\ud83d\ude00"})").getQueueName().value(), u"\u00e4\U0001F600");
    EXPECT_EQ(read(R"({"queueName":""})").getQueueName().value(), u"");
}

TEST_P(RunOptionsTest, CapabilitiesAllowTheNamedAlone) {
    const auto capabilities = read(R"({"capabilitiesList":["input","figures"]})").getCapabilities();
    EXPECT_EQ(capabilities, capabilities::CapabilityList::fromStringVector({"input", "figures"}));
    EXPECT_FALSE(capabilities.allows("debugger"));
    EXPECT_FALSE(read(R"({"capabilitiesList":[]})").getCapabilities().isUnrestricted());
}

TEST_P(RunOptionsTest, GroupNamesKeepOrderAndDuplicates) {
    EXPECT_EQ(read(R"({"groupNames":["b","a","b"]})").getGroupNames(),
              (std::vector<std::string>{"b", "a", "b"}));
}

TEST_P(RunOptionsTest, DebugControlOutputCanBeSuppressed) {
    EXPECT_TRUE(read(R"({"suppressDebugControlOutput":true})").getSuppressDebugControlOutput());
    EXPECT_FALSE(read(R"({"suppressDebugControlOutput":false})").getSuppressDebugControlOutput());
}

TEST_P(RunOptionsTest, WindowSizesAreTruncatedAndUnchecked) {
    EXPECT_EQ(read(rowSize("80.9")).getCommandWindowRowSize(), 80U);
    EXPECT_EQ(read(rowSize("-1")).getCommandWindowRowSize(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(read(columnSize("9223372036854775808")).getCommandWindowColSize(), std::uint64_t{1} << 63U);
}

TEST_P(RunOptionsTest, TheWidthFeedsTheRowsAndTheHeightTheColumnsInR22a0) {
    const auto runOptions = read(perVersion(R"({"commandWindowWidth":10,"commandWindowHeight":20})",
                                            R"({"commandWindowRowSize":10,"commandWindowColSize":20})"));
    EXPECT_EQ(runOptions.getCommandWindowRowSize(), 10U);
    EXPECT_EQ(runOptions.getCommandWindowColSize(), 20U);
}

TEST_P(RunOptionsTest, UnknownKeysAndThoseOfTheOtherVersionAreIgnored) {
    expectDefaultScheduling(read(
        perVersion(R"({"commandWindowRowSize":10,"commandWindowColSize":"20","DequeueMode":3,"other":null})",
                   R"({"commandWindowWidth":10,"commandWindowHeight":"20","DequeueMode":3,"other":null})")));
    const auto runOptions = read(perVersion(R"({"useNullOutSink":true,"outSinkTraits":{"useEcho":true}})",
                                            R"({"useNullOutSink":true,"outSinkTraits":{"_useEcho":true}})"));
    EXPECT_EQ(runOptions.getOutSink()->traits(), SinkTraits());
}

TEST_P(RunOptionsTest, AValueOfTheWrongTypeThrows) {
    for (const std::string& text :
         {std::string(R"({"dequeueMode":3})"), std::string(R"({"queueName":5})"),
          std::string(R"({"capabilitiesList":"input"})"), std::string(R"({"capabilitiesList":["input",5]})"),
          std::string(R"({"groupNames":{}})"), std::string(R"({"groupNames":[null]})"),
          std::string(R"({"suppressDebugControlOutput":1})"), rowSize(R"("80")"), columnSize("true"),
          std::string(R"({"outSinkTraits":null})"), std::string(R"({"errSinkTraits":[]})"),
          spelled(R"({"outSinkTraits":{"useEcho":1}})"), std::string(R"({"useNullOutSink":1})"),
          std::string(R"({"useNullErrSink":null})")}) {
        EXPECT_EQ(textThrownBy<boost::bad_get>([&text] { read(text); }), badGet) << text;
    }
}

/// Whether the command has a text callback.
bool hasTextCallback(const RunOptions& runOptions) {
    return runOptions.getCallbacks().contains(textEventName);
}

bool isNullSink(const boost::shared_ptr<ylutil::io::YLSink>& sink) {
    return sink && dynamic_cast<ylutil::io::YLNoOutputStreamBuffer*>(&sink->buffer()) != nullptr;
}

TEST_P(RunOptionsTest, FalseForOutAloneChangesTheOutStreamAlone) {
    const auto runOptions = read(R"({"useNullOutSink":false})");
    EXPECT_TRUE(hasTextCallback(runOptions));
    ASSERT_NE(runOptions.getOutSink(), nullptr);
    EXPECT_FALSE(isNullSink(runOptions.getOutSink()));
    EXPECT_EQ(runOptions.getErrSink(), nullptr);
}

TEST_P(RunOptionsTest, FalseForErrInstallsTheCallbackBesideANullOutStream) {
    const auto runOptions = read(R"({"useNullOutSink":true,"useNullErrSink":false})");
    EXPECT_TRUE(hasTextCallback(runOptions));
    EXPECT_TRUE(isNullSink(runOptions.getOutSink()));
    ASSERT_NE(runOptions.getErrSink(), nullptr);
    EXPECT_FALSE(isNullSink(runOptions.getErrSink()));
}

TEST_P(RunOptionsTest, BothTrueInstallNoCallback) {
    const auto runOptions = read(R"({"useNullOutSink":true,"useNullErrSink":true})");
    EXPECT_FALSE(hasTextCallback(runOptions));
    EXPECT_TRUE(isNullSink(runOptions.getOutSink()));
    EXPECT_TRUE(isNullSink(runOptions.getErrSink()));
}

TEST_P(RunOptionsTest, TraitsAloneChangeNothing) {
    const auto runOptions = read(spelled(R"({"outSinkTraits":{"useEcho":true},"errSinkTraits":{}})"));
    EXPECT_FALSE(hasTextCallback(runOptions));
    EXPECT_EQ(runOptions.getOutSink(), nullptr);
    EXPECT_EQ(runOptions.getErrSink(), nullptr);
}

TEST_P(RunOptionsTest, EachStreamHasItsTraits) {
    const auto runOptions =
        read(spelled(R"({"outSinkTraits":{"useEcho":true},"useNullOutSink":true,"useNullErrSink":false})"));
    EXPECT_TRUE(runOptions.getOutSink()->traits().useEcho());
    EXPECT_EQ(runOptions.getErrSink()->traits(), SinkTraits());
}

class OtherEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<OtherEvent> {};

struct Message {
    std::string channel;
    JsonObject json;

    bool operator==(const Message&) const = default;
};

class TextCallbackTest : public RunOptionsTest {
  protected:
    /// What the text callback of a command publishes for `event`.
    static std::vector<Message> publishedFor(const BaseEvent& event) {
        std::vector<Message> messages;
        const auto runOptions =
            read(R"({"useNullOutSink":false})", [&messages](std::string channel, JsonObject json) {
                messages.push_back({std::move(channel), std::move(json)});
            });
        runOptions.getCallbacks().at(textEventName)(event);
        return messages;
    }
};

INSTANTIATE_TEST_SUITE_P(Versions, TextCallbackTest, test::bothVersions(), test::nameOfVersion);

TEST_P(TextCallbackTest, OutputGoesToItsChannel) {
    EXPECT_EQ(
        publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"hi\n")),
        (std::vector<Message>{
            {perVersion("/output", "/text/output"),
             JsonObject{{"requestID", "7"}, {"stream", foundation::json::Value(0)}, {"text", "hi\n"}}}}));
}

TEST_P(TextCallbackTest, ErrorsGoToTheirChannel) {
    EXPECT_EQ(publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Error, u"oh")),
              (std::vector<Message>{
                  {perVersion("/error", "/text/error"),
                   JsonObject{{"requestID", "7"}, {"stream", foundation::json::Value(1)}, {"text", "oh"}}}}));
}

TEST_P(TextCallbackTest, OtherStreamsAreDropped) {
    EXPECT_TRUE(publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Generic, u"x")).empty());
    EXPECT_TRUE(publishedFor(TextBaseEvent(IDType(), static_cast<StreamTypeEnum>(9), u"x")).empty());
}

TEST_P(TextCallbackTest, LoneSurrogatesBecomeTheReplacementCharacter) {
    const auto messages = publishedFor(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"a\xD800\U0001F600"));
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages.front().json.at("text").as<std::string>(), "a\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST_P(TextCallbackTest, AnEventOfAnotherKindIsABadCast) {
    EXPECT_THROW(publishedFor(OtherEvent()), std::bad_cast);
}

class TaggedEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<TaggedEvent> {
  public:
    static constexpr bool acceptsUserTags = true;
};

TEST_P(TextCallbackTest, AnEventThatMerelyCarriesTheTagIsABadCast) {
    TaggedEvent event;
    event.addUserTags(std::vector<std::u16string>{textEventName});
    EXPECT_THROW(publishedFor(event), std::bad_cast);
}

TEST_P(TextCallbackTest, EachCopyOfTheRunOptionsPublishes) {
    int published = 0;
    const auto runOptions = read(R"({"useNullErrSink":false})",
                                 [&published](const std::string&, const JsonObject&) { ++published; });
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what is tested.
    const RunOptions copy = runOptions;
    copy.getCallbacks().at(textEventName)(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"x"));
    runOptions.getCallbacks().at(textEventName)(TextBaseEvent(IDType(), StreamTypeEnum::Output, u"x"));
    EXPECT_EQ(published, 2);
}

/// Writes to the out stream of a command, of which diary and log are to have a copy.
TEST_P(RunOptionsTest, DiaryAndLogGetCopiesInR24a0Alone) {
    const auto eventMgr = EventMgr::create();
    const auto engine = platform_testing::FakeYvm::create({}, eventMgr);
    Factory::setCurrentLocalYVM(engine);
    std::vector<std::u16string> events;
    std::vector<std::u16string> copies;
    const auto recorder = [&copies](std::u16string_view text, bool) { copies.emplace_back(text); };
    ylutil::io::ActiveCmdWinSinkBufferProxy::setReceivers(recorder, recorder);
    const foundation::core::util::scope_guard unset([] {
        ylutil::io::ActiveCmdWinSinkBufferProxy::setReceivers({}, {});
        Factory::setCurrentLocalYVM({});
    });
    const std::vector<std::u16string> tags = {textEventName};
    const auto connection = eventMgr->subscribe(
        [&events](const BaseEvent& event) {
            events.push_back(dynamic_cast<const TextBaseEvent&>(event).text());
        },
        tags.begin(), tags.end());
    const auto runOptions =
        read(perVersion(R"({"useNullOutSink":false,"outSinkTraits":{"_useLogging":true,"_useDiary":true}})",
                        R"({"useNullOutSink":false,"outSinkTraits":{"useLogging":true,"useDiary":true}})"));
    EXPECT_TRUE(runOptions.getOutSink()->traits().useDiary());
    runOptions.getOutSink()->buffer().sputn(u"hi", 2);
    runOptions.getOutSink()->buffer().pubsync();
    EXPECT_EQ(events, std::vector<std::u16string>{u"hi"});
    EXPECT_EQ(copies, perVersion<std::vector<std::u16string>>({}, {u"hi", u"hi"}));
}

/// The mock is for the streams of r24a0 alone.
TEST_P(RunOptionsTest, TheMockEngineTakesTheTextInR24a0Alone) {
    const auto eventMgr = EventMgr::create();
    const auto mock = platform_testing::FakeYvm::create({}, eventMgr);
    yvm::unittest::setCurrentMockYvm(mock.get());
    const foundation::core::util::scope_guard unset([] { yvm::unittest::setCurrentMockYvm(nullptr); });
    const auto runOptions = read(R"({"useNullErrSink":false})");
    runOptions.getErrSink()->buffer().sputn(u"oh", 2);
    EXPECT_EQ(runOptions.getErrSink()->buffer().pubsync(), perVersion(-1, 0)) << "there is no engine else";
}

}  // namespace
}  // namespace yvm::JSClient
