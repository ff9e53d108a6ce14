#include "server/bayeux/UnacknowledgedEvents.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

class UnacknowledgedEventsTest : public ::testing::Test {
  protected:
    void push(const std::string& payload) { queue->push({"/a", connector::common::DataBuffer(payload)}); }

    /// The number of the next reply and the payloads that travel with it: "1:a,b".
    std::string reply(std::size_t maxBytes = 1000) {
        std::string text = std::to_string(unacknowledged.nextReply()) + ':';
        const char* separator = "";
        for (const Event& event : unacknowledged.deliver(maxBytes)) {
            text += separator + std::string(event.payload.view());
            separator = ",";
        }
        return text;
    }

    static constexpr std::size_t kMaxBytes = 20;

    std::shared_ptr<DeliveryQueue> queue = std::make_shared<DeliveryQueue>(kMaxBytes, [] {});
    UnacknowledgedEvents unacknowledged{queue};
};

TEST_F(UnacknowledgedEventsTest, EveryReplyHasTheNextNumberEmptyOrNot) {
    EXPECT_EQ(reply(), "1:");
    push("a");
    EXPECT_EQ(reply(), "2:a");
    unacknowledged.acknowledge(2);
    EXPECT_EQ(reply(), "3:");
}

TEST_F(UnacknowledgedEventsTest, WhatIsNotAcknowledgedComesAgainUnderANewNumber) {
    push("a");
    push("b");
    EXPECT_EQ(reply(), "1:a,b");
    unacknowledged.acknowledge(0);
    EXPECT_EQ(reply(), "2:a,b");
    unacknowledged.acknowledge(1);
    EXPECT_EQ(reply(), "3:a,b");
    unacknowledged.acknowledge(3);
    EXPECT_EQ(reply(), "4:");
}

TEST_F(UnacknowledgedEventsTest, WhatCameInTheMeantimeFollowsWhenTheBatchIsAcknowledged) {
    push("a");
    EXPECT_EQ(reply(), "1:a");
    push("b");
    EXPECT_EQ(reply(), "2:a");
    unacknowledged.acknowledge(2);
    EXPECT_TRUE(unacknowledged.hasEvents());
    EXPECT_EQ(reply(), "3:b");
}

TEST_F(UnacknowledgedEventsTest, ANumberAboveTheLastIsTheLast) {
    push("a");
    EXPECT_EQ(reply(), "1:a");
    unacknowledged.acknowledge(std::numeric_limits<std::uint64_t>::max());
    EXPECT_FALSE(unacknowledged.hasEvents());
    push("b");
    EXPECT_EQ(reply(), "2:b");
    unacknowledged.acknowledge(1);
    EXPECT_EQ(reply(), "3:b");
}

TEST_F(UnacknowledgedEventsTest, ANumberBelowAnEarlierOneBringsBackNothingThatWasAcknowledged) {
    push("a");
    EXPECT_EQ(reply(), "1:a");
    unacknowledged.acknowledge(1);
    push("b");
    EXPECT_EQ(reply(), "2:b");
    unacknowledged.acknowledge(0);
    EXPECT_EQ(reply(), "3:b");
}

TEST_F(UnacknowledgedEventsTest, ABatchIsBoundedAndTakesAtLeastOneEvent) {
    push("12");
    push("34");
    push("5678");
    EXPECT_EQ(reply(4), "1:12,34");
    unacknowledged.acknowledge(1);
    EXPECT_EQ(reply(2), "2:5678");
}

TEST_F(UnacknowledgedEventsTest, CountsAgainstTheBoundUntilItIsAcknowledged) {
    push("0123456789");
    EXPECT_EQ(reply(), "1:0123456789");
    EXPECT_TRUE(queue->empty());
    unacknowledged.acknowledge(1);
    push("0123456789");
    EXPECT_EQ(reply(), "2:0123456789");
    push("0123456789");
    EXPECT_TRUE(queue->hasOverflowed());
}

TEST_F(UnacknowledgedEventsTest, OneEventOfAnySizeFitsOnlyWhenAllIsAcknowledged) {
    push(std::string(100, 'x'));
    EXPECT_EQ(reply(), "1:" + std::string(100, 'x'));
    unacknowledged.acknowledge(1);
    push(std::string(100, 'y'));
    EXPECT_FALSE(queue->hasOverflowed());
    EXPECT_EQ(reply(), "2:" + std::string(100, 'y'));
    push("z");
    EXPECT_TRUE(queue->hasOverflowed());
}

TEST_F(UnacknowledgedEventsTest, ABatchThatWasDeliveredThreeTimesInVainIsUndeliverable) {
    EXPECT_FALSE(unacknowledged.isUndeliverable());
    push("a");
    reply();
    reply();
    EXPECT_FALSE(unacknowledged.isUndeliverable());
    reply();
    EXPECT_TRUE(unacknowledged.isUndeliverable());
    unacknowledged.acknowledge(3);
    EXPECT_FALSE(unacknowledged.isUndeliverable());
    push("b");
    reply();
    EXPECT_FALSE(unacknowledged.isUndeliverable());
}

TEST_F(UnacknowledgedEventsTest, EmptyRepliesAreNoDeliveries) {
    for (int i = 0; i < 5; ++i) {
        reply();
    }
    EXPECT_FALSE(unacknowledged.isUndeliverable());
}

}  // namespace
}  // namespace server::bayeux
