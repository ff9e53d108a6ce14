#include "ylutil/io/YLSink.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace ylutil::io {
namespace {

TEST(YLSinkTest, CopiesShareTheirBuffer) {
    const auto buffer = boost::make_shared<std::basic_stringbuf<char16_t>>();
    const YLSink sink(buffer, SinkTraits(true, false, true, false, false, false));
    const YLSink copy = sink;

    copy.buffer().sputn(u"hello", 5);

    EXPECT_EQ(buffer->str(), u"hello");
    EXPECT_EQ(copy.sharedBuffer(), sink.sharedBuffer());
    EXPECT_TRUE(copy.traits().supportsMore());
}

TEST(YLSinkTest, ANullBufferIsRefused) {
    EXPECT_THROW(YLSink({}, SinkTraits()), std::invalid_argument);
}

}  // namespace
}  // namespace ylutil::io
