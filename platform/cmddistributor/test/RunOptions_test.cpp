#include "cmddistributor/RunOptions.hpp"

#include "ylutil/io/YLNoOutputStreamBuffer.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

namespace cmddistributor {
namespace {

using ylutil::cmddistributor::WhenToDequeue;
using ylutil::io::SinkTraits;

TEST(RunOptionsTest, DefaultsAreAsDocumented) {
    const RunOptions options;
    EXPECT_EQ(WhenToDequeue::toString(options.getDequeueMode()), "DEQUEUE_AT_PROMPT");
    EXPECT_FALSE(options.getQueueName());
    EXPECT_TRUE(options.getCapabilities().isUnrestricted());
    EXPECT_TRUE(options.getGroupNames().empty());
    EXPECT_FALSE(options.getSuppressDebugControlOutput());
    EXPECT_EQ(options.getCommandWindowRowSize(), 24u);
    EXPECT_EQ(options.getCommandWindowColSize(), 80u);
    EXPECT_FALSE(options.getOutSink());
    EXPECT_FALSE(options.getErrSink());
    EXPECT_TRUE(options.getCallbacks().empty());
}

TEST(RunOptionsTest, SettersAreReadBack) {
    RunOptions options;
    options.setDequeueMode(WhenToDequeue::DEQUEUE_AT_IDLE);
    options.setQueueName(std::u16string(u"plots"));
    options.setCapabilities(capabilities::CapabilityList::fromStringVector({"input"}));
    options.setSuppressDebugControlOutput(true);
    options.setCommandWindowRowSize(~std::uint64_t{0});
    options.setCommandWindowColSize(132);

    EXPECT_EQ(options.getDequeueMode(), WhenToDequeue::DEQUEUE_AT_IDLE);
    ASSERT_TRUE(options.getQueueName());
    EXPECT_EQ(*options.getQueueName(), u"plots");
    EXPECT_EQ(options.getCapabilities(), capabilities::CapabilityList::fromStringVector({"input"}));
    EXPECT_TRUE(options.getSuppressDebugControlOutput());
    EXPECT_EQ(options.getCommandWindowRowSize(), ~std::uint64_t{0});
    EXPECT_EQ(options.getCommandWindowColSize(), 132u);
}

TEST(RunOptionsTest, GroupNamesKeepOrderAndDuplicates) {
    RunOptions options;
    for (const char* name : {"b", "a", "b"}) {
        options.addGroupName(name);
    }
    EXPECT_EQ(options.getGroupNames(), (std::vector<std::string>{"b", "a", "b"}));
}

TEST(RunOptionsTest, CopiesShareTheStreamsAndOwnTheirCallbacks) {
    const auto buffer = boost::make_shared<ylutil::io::YLNoOutputStreamBuffer>();
    RunOptions options;
    options.setOutStream(buffer, SinkTraits(false, true, false, false, false, false));
    options.setErrStream(buffer, SinkTraits());
    RunOptions copy = options;
    copy.setCallbackImpl([](const foundation::msg_svc::eventmgr::BaseEvent&) {}, u"an::Event");

    EXPECT_EQ(copy.getOutSink()->sharedBuffer(), buffer);
    EXPECT_TRUE(copy.getOutSink()->traits().supportsHotlinks());
    EXPECT_EQ(copy.getErrSink()->traits(), RunOptions::getDefaultSinkTraits());
    EXPECT_EQ(copy.getCallbacks().size(), 1u);
    EXPECT_TRUE(options.getCallbacks().empty());
}

TEST(RunOptionsTest, ANullStreamIsRefused) {
    RunOptions options;
    EXPECT_THROW(options.setOutStream({}, SinkTraits()), std::invalid_argument);
    EXPECT_THROW(options.setErrStream({}, SinkTraits()), std::invalid_argument);
    EXPECT_FALSE(options.getOutSink());
}

class AnyEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<AnyEvent> {};

TEST(RunOptionsTest, ASecondCallbackUnderANameReplacesTheFirst) {
    RunOptions options;
    int first = 0;
    int second = 0;
    EXPECT_TRUE(options.setCallbackImpl([&first](const auto&) { ++first; }, u"an::Event"));
    EXPECT_FALSE(options.setCallbackImpl([&second](const auto&) { ++second; }, u"an::Event"));
    EXPECT_TRUE(options.setCallbackImpl([](const auto&) {}, u"another::Event"));

    options.getCallbacks().at(u"an::Event")(AnyEvent());

    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
    EXPECT_EQ(options.getCallbacks().size(), 2u);
}

TEST(RunOptions, HasTheDefaultCallbacksUntilTheyAreRemoved) {
    RunOptions options;
    EXPECT_TRUE(options.hasDefaultCallbacks());
    const RunOptions before = options;
    options.removeDefaultCallbacks();
    EXPECT_FALSE(options.hasDefaultCallbacks());
    EXPECT_TRUE(before.hasDefaultCallbacks());
}

}  // namespace
}  // namespace cmddistributor
