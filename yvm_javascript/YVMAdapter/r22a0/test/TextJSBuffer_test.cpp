#include "r22a0/TextJSBuffer.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/test/textSupport.hpp"
#include "testing/LogCapture.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace yvm::JSClient::r22a0 {
namespace {

using cmddistributor::RequestIdScope;
using foundation::msg_svc::exchange::IDType;
using platform_testing::LogCapture;
using test::Sent;
using ylutil::io::StreamTypeEnum;
using OpenBuffer = test::OpenBuffer<TextJSBuffer>;

const std::string logChannel = "yvm::JSClient::TextJSBuffer";
constexpr std::size_t threshold = 1048576;

class TextJSBufferOfR22a0Test : public testing::Test {
  protected:
    void send(const JsonObject& message) {
        // A copy, since the function may replace itself.
        const auto hook = onSend;
        hook();
        sent.emplace_back(message);
    }

    std::vector<Sent> sent;
    std::function<void()> onSend = [] {};
    OpenBuffer buffer{StreamTypeEnum::Output, [this](const JsonObject& message) { send(message); }};
    OpenBuffer errBuffer{StreamTypeEnum::Error, [this](const JsonObject& message) { send(message); }};
};

TEST_F(TextJSBufferOfR22a0Test, CollectsUntilItIsSynchronised) {
    EXPECT_EQ(buffer.write(u"ab"), 2);
    EXPECT_EQ(buffer.sputc(u'c'), u'c');
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "abc"}}));
}

TEST_F(TextJSBufferOfR22a0Test, TheMessageHasTheNumberOfItsStreamAndItsTextAndNothingElse) {
    std::vector<std::string> messages;
    TextJSBuffer error(StreamTypeEnum::Error, [&messages](const JsonObject& message) {
        messages.push_back(foundation::json::Serializer::serialize(message));
    });
    const RequestIdScope command{IDType(1, 1)};
    const std::u16string text = u"a\n\U0001F600\xD800";
    error.sputn(text.data(), static_cast<std::streamsize>(text.size()));
    error.pubsync();
    EXPECT_EQ(messages,
              std::vector<std::string>{"{\"stream\":1,\"text\":\"a\\n\xF0\x9F\x98\x80\xEF\xBF\xBD\"}"});
}

TEST_F(TextJSBufferOfR22a0Test, ASyncWithoutTextSendsNothing) {
    EXPECT_EQ(buffer.pubsync(), 0);
    buffer.write(u"");
    EXPECT_EQ(buffer.pubsync(), 0);
    buffer.write(u"a");
    buffer.pubsync();
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(TextJSBufferOfR22a0Test, ASyncWithoutTextAsksNoSendFunction) {
    OpenBuffer without(StreamTypeEnum::Output, nullptr);
    const LogCapture log;
    EXPECT_EQ(without.pubsync(), 0);
    EXPECT_TRUE(log.records(logChannel).empty());
}

TEST_F(TextJSBufferOfR22a0Test, StreamsLeaveInTheOrderInWhichTheyAreSynchronised) {
    buffer.write(u"o1");
    errBuffer.write(u"e");
    buffer.write(u"o2");
    errBuffer.pubsync();
    buffer.pubsync();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Error, "e"}, {StreamTypeEnum::Output, "o1o2"}}));
}

TEST_F(TextJSBufferOfR22a0Test, SendsBeyondTheThresholdAndNotAtIt) {
    buffer.write(std::u16string(threshold, u'x'));
    EXPECT_TRUE(sent.empty());
    buffer.write(u"y");
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent.front().text, std::string(threshold, 'x') + "y");
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(sent.size(), 1U) << "nothing was left";
}

TEST_F(TextJSBufferOfR22a0Test, TheThresholdCountsUnitsAndNotBytes) {
    buffer.write(std::u16string(threshold, u'\u20ac'));
    EXPECT_TRUE(sent.empty());
    buffer.sputc(u'\u20ac');
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent.front().text.size(), 3 * (threshold + 1));
}

TEST_F(TextJSBufferOfR22a0Test, OneWriteBeyondTheThresholdLeavesAsOneMessage) {
    EXPECT_EQ(buffer.write(std::u16string(3 * threshold, u'x')), static_cast<std::streamsize>(3 * threshold));
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent.front().text.size(), 3 * threshold);
}

TEST_F(TextJSBufferOfR22a0Test, DropsASingleNulAndTheEndOfFileValue) {
    EXPECT_EQ(buffer.overflow(0), 0);
    EXPECT_EQ(buffer.overflow(0xFFFF), 0xFFFF);
    EXPECT_EQ(buffer.sputc(u'\0'), 0);
    EXPECT_EQ(buffer.writes, 0);
    buffer.pubsync();
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(buffer.overflow(u'a'), u'a');
    buffer.pubsync();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "a"}}));
}

TEST_F(TextJSBufferOfR22a0Test, KeepsANulInsideARun) {
    using namespace std::string_literals;
    EXPECT_EQ(buffer.write(u"a\0b"s), 3);
    buffer.pubsync();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "a\0b"s}}));
}

TEST_F(TextJSBufferOfR22a0Test, AnotherCommandSendsWhatTheEarlierLeft) {
    {
        const RequestIdScope command{IDType(1, 1)};
        buffer.write(u"a");
        EXPECT_EQ(buffer.syncs, 1) << "the first command differs from none";
        buffer.write(u"b");
        buffer.sputc(u'c');
        EXPECT_EQ(buffer.syncs, 1);
    }
    const RequestIdScope command{IDType(1, 2)};
    buffer.write(u"d");
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "abc"}}));
    buffer.pubsync();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "abc"}, {StreamTypeEnum::Output, "d"}}));
}

TEST_F(TextJSBufferOfR22a0Test, AnEmptyWriteOfAnotherCommandSendsWhatTheEarlierLeft) {
    buffer.write(u"a");
    EXPECT_EQ(buffer.syncs, 0) << "a write without a command synchronises nothing";
    const RequestIdScope command{IDType(1, 1)};
    EXPECT_EQ(buffer.write(u""), 0);
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "a"}}));
}

TEST_F(TextJSBufferOfR22a0Test, IdentitiesDifferInEitherPart) {
    for (const auto& id : {IDType(1, 1), IDType(1, 2), IDType(2, 2), IDType(2, 2)}) {
        const RequestIdScope command{id};
        buffer.write(u"a");
    }
    EXPECT_EQ(buffer.syncs, 3);
}

TEST_F(TextJSBufferOfR22a0Test, AFailedSyncIsLoggedAndReportedAndLosesTheText) {
    onSend = [] { throw std::runtime_error("no such channel"); };
    buffer.write(u"lost");
    const LogCapture log;
    EXPECT_EQ(buffer.pubsync(), -1);
    const auto texts = log.texts(logChannel, 16);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_TRUE(texts.front().starts_with("Exception caught: ")) << texts.front();
    EXPECT_NE(texts.front().find("no such channel"), std::string::npos) << texts.front();
    onSend = [] {};
    buffer.write(u"kept");
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "kept"}}));
}

TEST_F(TextJSBufferOfR22a0Test, ASyncTakesExceptionsOfAnyType) {
    onSend = [] { throw 5; };
    buffer.write(u"a");
    const LogCapture log;
    EXPECT_EQ(buffer.pubsync(), -1);
    ASSERT_EQ(log.texts(logChannel, 16).size(), 1U);
    EXPECT_GT(log.texts(logChannel, 16).front().size(), std::string("Exception caught: ").size());
}

TEST_F(TextJSBufferOfR22a0Test, WithoutASendFunctionTextIsLostAndAWriteStillSucceeds) {
    OpenBuffer without(StreamTypeEnum::Output, nullptr);
    const LogCapture log;
    EXPECT_EQ(without.write(u"a"), 1);
    EXPECT_EQ(without.pubsync(), -1);
    ASSERT_EQ(log.texts(logChannel, 16).size(), 1U);
    EXPECT_NE(log.texts(logChannel, 16).front().find(std::bad_function_call().what()), std::string::npos)
        << log.texts(logChannel, 16).front();
    EXPECT_EQ(without.pubsync(), 0) << "it is not tried again";
    EXPECT_EQ(without.write(std::u16string(threshold + 1, u'x')),
              static_cast<std::streamsize>(threshold + 1));
}

TEST_F(TextJSBufferOfR22a0Test, TextThatIsWrittenWhileItSendsIsKept) {
    onSend = [this] {
        onSend = [] {};
        buffer.write(u"again");
    };
    buffer.write(u"a");
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "a"}, {StreamTypeEnum::Output, "again"}}));
}

TEST_F(TextJSBufferOfR22a0Test, ItsEndSendsNothing) {
    {
        OpenBuffer brief(StreamTypeEnum::Output, [this](const JsonObject& message) { send(message); });
        brief.write(u"a");
    }
    EXPECT_TRUE(sent.empty());
}

}  // namespace
}  // namespace yvm::JSClient::r22a0
