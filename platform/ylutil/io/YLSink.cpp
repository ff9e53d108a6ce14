#include "ylutil/io/YLSink.hpp"

#include <stdexcept>
#include <utility>

namespace ylutil::io {

YLSink::YLSink(Buffer buffer, SinkTraits traits) : buffer_(std::move(buffer)), traits_(traits) {
    if (!buffer_) {
        throw std::invalid_argument("a sink needs a stream buffer, but the one given is null.");
    }
}

}  // namespace ylutil::io
