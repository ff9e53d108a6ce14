#include "r24a0/TextJSBuffer.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "r24a0/test/SinksFixture.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace yvm::JSClient::r24a0 {
namespace {

using cmddistributor::RequestIdScope;
using foundation::msg_svc::exchange::IDType;
using platform_testing::LogCapture;
using ylutil::io::StreamTypeEnum;

const std::string logChannel = "yvm::JSClient::TextJSBuffer";

using OpenBuffer = test::OpenBuffer<TextJSBuffer>;

class TextJSBufferTest : public testing::Test {
  protected:
    platform_testing::FrameworkWithFakePool process;
    platform_testing::FakeThreadPool& pool = process.pool();
    FeatureSwitches features;
    std::vector<Sent> sent;
    std::function<void()> onSend = [] {};
    std::shared_ptr<TextJSBufferPublisher> publisher =
        std::make_shared<TextJSBufferPublisher>([this](const JsonObject& message) {
            onSend();
            sent.emplace_back(message);
        });
    OpenBuffer buffer{StreamTypeEnum::Output, publisher};
};

TEST_F(TextJSBufferTest, HandsOnWhatIsWrittenAtOnce) {
    EXPECT_EQ(buffer.write(u"abc"), 3);
    EXPECT_EQ(buffer.sputc(u'd'), u'd');
    EXPECT_TRUE(sent.empty());
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "abcd"}}));
}

TEST_F(TextJSBufferTest, DropsASingleNulAndTheEndOfFileValue) {
    EXPECT_EQ(buffer.overflow(0), 0);
    EXPECT_EQ(buffer.overflow(0xFFFF), 0xFFFF);
    EXPECT_EQ(buffer.sputc(u'\0'), 0);
    EXPECT_EQ(buffer.writes, 0);
    publisher->send();
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(buffer.overflow(u'a'), u'a');
    EXPECT_EQ(buffer.writes, 1);
}

TEST_F(TextJSBufferTest, KeepsANulInsideARun) {
    using namespace std::string_literals;
    EXPECT_EQ(buffer.write(u"a\0b"s), 3);
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "a\0b"s}}));
}

TEST_F(TextJSBufferTest, AnEmptyWriteIsAFragmentLikeOthers) {
    EXPECT_EQ(buffer.write(u""), 0);
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, ""}}));
}

TEST_F(TextJSBufferTest, TheFirstWriteOfACommandSynchronisesOnce) {
    {
        const RequestIdScope command{IDType(1, 1)};
        buffer.write(u"a");
        EXPECT_EQ(buffer.syncs, 1);
        buffer.write(u"b");
        buffer.sputc(u'c');
        EXPECT_EQ(buffer.syncs, 1);
    }
    buffer.write(u"");
    EXPECT_EQ(buffer.syncs, 2) << "an empty write of another command, too";
}

TEST_F(TextJSBufferTest, AWriteWithoutACommandSynchronisesNothing) {
    buffer.write(u"a");
    EXPECT_EQ(buffer.syncs, 0);
}

TEST_F(TextJSBufferTest, IdentitiesDifferInEitherPart) {
    for (const auto& id : {IDType(1, 1), IDType(1, 2), IDType(2, 2), IDType(2, 2)}) {
        const RequestIdScope command{id};
        buffer.write(u"a");
    }
    EXPECT_EQ(buffer.syncs, 3);
}

TEST_F(TextJSBufferTest, WithBatchingASyncDoesNothing) {
    buffer.write(u"a");
    EXPECT_EQ(buffer.pubsync(), 0);
    const RequestIdScope command{IDType(1, 1)};
    buffer.write(u"b");
    EXPECT_TRUE(sent.empty());
}

TEST_F(TextJSBufferTest, WithBatchingASyncDoesNotWaitForASendFunction) {
    int result = -1;
    // With the publisher's mutex held; a lock would never be had.
    onSend = [this, &result] { result = buffer.pubsync(); };
    buffer.write(u"a");
    publisher->send();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(TextJSBufferTest, WithoutBatchingASyncSendsAll) {
    features.setBatching(false);
    OpenBuffer errBuffer(StreamTypeEnum::Error, publisher);
    buffer.write(u"a");
    errBuffer.write(u"b");
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(errBuffer.pubsync(), 0);
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "a"}, {StreamTypeEnum::Error, "b"}}));
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(sent.size(), 2U);
}

TEST_F(TextJSBufferTest, WithoutBatchingAnotherCommandSendsWhatIsThere) {
    features.setBatching(false);
    {
        const RequestIdScope command{IDType(1, 1)};
        buffer.write(u"a");
    }
    const RequestIdScope command{IDType(1, 2)};
    buffer.write(u"b");
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "a"}}));
}

TEST_F(TextJSBufferTest, ASwitchCountsFromTheNextSync) {
    buffer.write(u"a");
    buffer.pubsync();
    EXPECT_TRUE(sent.empty());
    features.set(true, false);
    buffer.pubsync();
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(TextJSBufferTest, WithoutThePublisherTextIsDroppedSilently) {
    features.setBatching(false);
    publisher.reset();
    const LogCapture log;
    EXPECT_EQ(buffer.write(u"abc"), 3);
    EXPECT_EQ(buffer.sputc(u'd'), u'd');
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_TRUE(log.records(logChannel).empty());
    EXPECT_TRUE(sent.empty());
}

TEST_F(TextJSBufferTest, DoesNotKeepThePublisher) {
    buffer.write(u"a");
    const std::weak_ptr<TextJSBufferPublisher> weak = publisher;
    publisher.reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(TextJSBufferTest, ASyncThatFailsIsLoggedAndReported) {
    features.setBatching(false);
    onSend = [] { throw std::runtime_error("no such channel"); };
    buffer.write(u"a");
    const LogCapture log;
    EXPECT_EQ(buffer.pubsync(), -1);
    const auto texts = log.texts(logChannel, 16);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_TRUE(texts.front().starts_with("Exception caught: ")) << texts.front();
    EXPECT_NE(texts.front().find("no such channel"), std::string::npos) << texts.front();
    EXPECT_EQ(log.records(logChannel).size(), 1U);
}

TEST_F(TextJSBufferTest, ASyncTakesExceptionsOfAnyType) {
    features.setBatching(false);
    onSend = [] { throw 5; };
    buffer.write(u"a");
    const LogCapture log;
    EXPECT_EQ(buffer.pubsync(), -1);
    ASSERT_EQ(log.texts(logChannel, 16).size(), 1U);
    EXPECT_GT(log.texts(logChannel, 16).front().size(), std::string("Exception caught: ").size());
}

TEST_F(TextJSBufferTest, AFailedSyncBetweenCommandsKeepsTheWriteOfTheNext) {
    features.setBatching(false);
    buffer.write(u"lost");
    onSend = [this] {
        onSend = [] {};
        throw std::runtime_error("no");
    };
    {
        const RequestIdScope command{IDType(1, 1)};
        EXPECT_EQ(buffer.write(u"kept"), 4);
        EXPECT_EQ(buffer.write(u"!"), 1);
        EXPECT_EQ(buffer.syncs, 1);
    }
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "kept!"}}));
}

TEST_F(TextJSBufferTest, ItsEndFlushesNothing) {
    features.setBatching(false);
    {
        OpenBuffer brief(StreamTypeEnum::Output, publisher);
        brief.write(u"a");
    }
    EXPECT_TRUE(sent.empty());
    publisher->send();
    EXPECT_EQ(sent.size(), 1U);
}

/// Fails each push.
class FullPublisher final : public TextJSBufferPublisher {
  public:
    using TextJSBufferPublisher::TextJSBufferPublisher;
    void pushImpl(StreamTypeEnum, std::u16string, const Lock&) override { throw std::bad_alloc(); }
};

TEST_F(TextJSBufferTest, AFailedPushGoesToTheWriter) {
    OpenBuffer full(StreamTypeEnum::Output, publisher = std::make_shared<FullPublisher>(nullptr));
    EXPECT_THROW(full.write(u"a"), std::bad_alloc);
    EXPECT_THROW(full.sputc(u'a'), std::bad_alloc);
}

TEST_F(TextJSBufferTest, OutComesFirstOfAPair) {
    const auto [out, err] = makeTextJSBuffers(publisher);
    out->sputn(u"o", 1);
    err->sputn(u"e", 1);
    publisher->send();
    EXPECT_EQ(sent, (std::vector<Sent>{{StreamTypeEnum::Output, "o"}, {StreamTypeEnum::Error, "e"}}));
}

TEST_F(TextJSBufferTest, APairStartsTheTimerWithBatching) {
    const auto buffers = makeTextJSBuffers(publisher);
    buffers.first->sputn(u"a", 1);
    pool.advance(publishPeriod);
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(TextJSBufferTest, APairStartsNoTimerWithoutBatching) {
    features.setBatching(false);
    makeTextJSBuffers(publisher);
    EXPECT_EQ(pool.waiting(), 0U);
}

TEST_F(TextJSBufferTest, APairWithoutItsPublisherDropsText) {
    const auto [out, err] = makeTextJSBuffers({});
    EXPECT_EQ(out->sputn(u"a", 1), 1);
    EXPECT_EQ(err->sputn(u"a", 1), 1);
    EXPECT_EQ(pool.waiting(), 0U);
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
