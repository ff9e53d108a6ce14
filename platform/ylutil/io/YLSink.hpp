#pragma once

#include "ylutil/io/SinkTraits.hpp"

#include <boost/shared_ptr.hpp>

#include <streambuf>

namespace ylutil::io {

/// One destination of 16-bit text: a stream buffer and what is known about it. A value that shares
/// its buffer. Write to the buffer with `sputn` and `pubsync`, never through stream formatting; one
/// writer at a time.
class YLSink {
  public:
    using Buffer = boost::shared_ptr<std::basic_streambuf<char16_t>>;

    YLSink(Buffer buffer, SinkTraits traits);

    /// Never null.
    std::basic_streambuf<char16_t>& buffer() const noexcept { return *buffer_; }
    const Buffer& sharedBuffer() const noexcept { return buffer_; }
    const SinkTraits& traits() const noexcept { return traits_; }

  private:
    Buffer buffer_;
    SinkTraits traits_;
};

}  // namespace ylutil::io
