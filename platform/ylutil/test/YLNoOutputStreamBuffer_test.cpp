#include "ylutil/io/YLNoOutputStreamBuffer.hpp"

#include <gtest/gtest.h>

#include <string>

namespace ylutil::io {
namespace {

TEST(YLNoOutputStreamBufferTest, EveryWriteReportsSuccess) {
    YLNoOutputStreamBuffer buffer;
    const std::u16string text(100'000, u'x');
    EXPECT_EQ(buffer.sputn(text.data(), static_cast<std::streamsize>(text.size())), 100'000);
    EXPECT_EQ(buffer.sputn(nullptr, 0), 0);
    const auto eof = std::char_traits<char16_t>::eof();
    EXPECT_NE(buffer.sputc(u'x'), eof);
    EXPECT_NE(buffer.sputc(u'\0'), eof);
    EXPECT_EQ(buffer.pubsync(), 0);
}

}  // namespace
}  // namespace ylutil::io
