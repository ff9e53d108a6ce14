#include "server/bayeux/FrameText.hpp"

#include <gtest/gtest.h>

#include <string>

namespace server::bayeux {
namespace {

using connector::common::DataBuffer;

TEST(FrameText, JoinsItsPiecesInTheirOrder) {
    const DataBuffer longPayload(std::string(FrameText::kSharedBytes, 'x'));
    FrameText text;
    EXPECT_TRUE(text.empty());
    text.append("[1,");
    text.append(DataBuffer("2"));
    text.append(",");
    text.append(longPayload);
    text.append(",");
    text.append(longPayload);
    text.append("]");
    const std::string expected =
        "[1,2," + std::string(longPayload.view()) + "," + std::string(longPayload.view()) + "]";
    EXPECT_EQ(text.size(), expected.size());
    EXPECT_EQ(text.take(), expected);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(text.size(), 0U);
}

TEST(FrameText, SharesLongPayloadsAndCopiesShortOnes) {
    const DataBuffer longPayload(std::string(FrameText::kSharedBytes, 'x'));
    const DataBuffer shortPayload(std::string(FrameText::kSharedBytes - 1, 'y'));
    FrameText text("[");
    text.append(longPayload);
    text.append(shortPayload);
    const auto pieces = text.pieces();
    ASSERT_EQ(pieces.size(), 3U);
    EXPECT_EQ(pieces[0], "[");
    EXPECT_EQ(pieces[1].data(), longPayload.data());
    EXPECT_EQ(pieces[2], shortPayload.view());
    EXPECT_NE(pieces[2].data(), shortPayload.data());
}

TEST(FrameText, JoinsShortArraysToOne) {
    FrameText first("[1,2]");
    EXPECT_TRUE(first.join(FrameText("[3]"), 8));
    EXPECT_EQ(first.take(), "[1,2,3]");
}

TEST(FrameText, LeavesApartWhatIsTooLongOrShared) {
    FrameText first("[1]");
    EXPECT_FALSE(first.join(FrameText("[2]"), 5));
    FrameText shared("[");
    shared.append(DataBuffer(std::string(FrameText::kSharedBytes, '1')));
    shared.append("]");
    const std::size_t size = shared.size();
    EXPECT_FALSE(first.join(shared, 1'000'000));
    EXPECT_FALSE(shared.join(first, 1'000'000));
    EXPECT_EQ(shared.size(), size);
    EXPECT_EQ(first.take(), "[1]");
}

}  // namespace
}  // namespace server::bayeux
