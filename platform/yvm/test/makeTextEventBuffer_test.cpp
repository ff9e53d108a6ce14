#include "yvm/makeTextEventBuffer.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "testing/FakeYvm.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "yvm/Factory.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace yvm {
namespace {

using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::exchange::IDType;
using platform_testing::FakeYvm;
using ylutil::io::StreamTypeEnum;
using ylutil::io::TextBaseEvent;

class MakeTextEventBufferTest : public testing::Test {
  protected:
    MakeTextEventBufferTest() {
        const std::vector<std::u16string> tags{u"ylutil::io::TextBaseEvent"};
        connection = eventMgr->subscribe(
            [this](const BaseEvent& event) {
                const auto& text = dynamic_cast<const TextBaseEvent&>(event);
                texts.push_back(text.text());
                ids.push_back(text.id());
                streams.push_back(text.stream());
            },
            tags.begin(), tags.end());
        Factory::setCurrentLocalYVM(engine);
    }
    ~MakeTextEventBufferTest() override { Factory::setCurrentLocalYVM(nullptr); }

    void write(const std::u16string& text) const {
        EXPECT_EQ(buffer->sputn(text.data(), static_cast<std::streamsize>(text.size())),
                  static_cast<std::streamsize>(text.size()));
    }

    const boost::shared_ptr<EventMgr> eventMgr = EventMgr::create();
    const std::shared_ptr<FakeYvm> engine = FakeYvm::create({}, eventMgr);
    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> connection;
    std::vector<std::u16string> texts;
    std::vector<IDType> ids;
    std::vector<StreamTypeEnum> streams;
    const boost::shared_ptr<std::basic_streambuf<char16_t>> buffer =
        makeTextEventBuffer(StreamTypeEnum::Error);
};

TEST_F(MakeTextEventBufferTest, FiresWhatWasWrittenWhenSynchronised) {
    write(u"a");
    buffer->sputc(u'b');
    buffer->sputc(u'\0');
    EXPECT_TRUE(texts.empty());
    EXPECT_EQ(buffer->pubsync(), 0);
    EXPECT_EQ(buffer->pubsync(), 0);
    EXPECT_EQ(texts, std::vector<std::u16string>{u"ab"});
    EXPECT_EQ(streams, std::vector<StreamTypeEnum>{StreamTypeEnum::Error});
}

TEST_F(MakeTextEventBufferTest, FiresBeyondTheThreshold) {
    write(std::u16string(8192, u'x'));
    EXPECT_TRUE(texts.empty());
    write(u"y");
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_EQ(texts.front().size(), 8193U);
}

TEST_F(MakeTextEventBufferTest, FiresTheTextOfEachCommandByItself) {
    const IDType first;
    const IDType second;
    {
        const cmddistributor::RequestIdScope scope(first);
        write(u"one");
    }
    {
        const cmddistributor::RequestIdScope scope(second);
        write(u"two");
        buffer->pubsync();
    }
    EXPECT_EQ(texts, (std::vector<std::u16string>{u"one", u"two"}));
    EXPECT_EQ(ids, (std::vector<IDType>{first, second}));
}

TEST_F(MakeTextEventBufferTest, KeepsTextWithoutAnEngineOrAnEventManager) {
    write(u"kept");
    engine->setEventMgr(nullptr);
    EXPECT_EQ(buffer->pubsync(), -1);
    Factory::setCurrentLocalYVM(nullptr);
    EXPECT_EQ(buffer->pubsync(), -1);
    Factory::setCurrentLocalYVM(engine);
    engine->setEventMgr(eventMgr);
    EXPECT_EQ(buffer->pubsync(), 0);
    EXPECT_EQ(texts, std::vector<std::u16string>{u"kept"});
}

TEST_F(MakeTextEventBufferTest, DropsAtItsEndWhatWasNotSynchronised) {
    makeTextEventBuffer(StreamTypeEnum::Output)->sputc(u'x');
    EXPECT_TRUE(texts.empty());
}

}  // namespace
}  // namespace yvm
