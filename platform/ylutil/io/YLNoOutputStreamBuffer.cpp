#include "ylutil/io/YLNoOutputStreamBuffer.hpp"

namespace ylutil::io {

YLNoOutputStreamBuffer::int_type YLNoOutputStreamBuffer::overflow(int_type character) {
    return traits_type::not_eof(character);
}

std::streamsize YLNoOutputStreamBuffer::xsputn(const char16_t* /*text*/, std::streamsize count) {
    return count;
}

}  // namespace ylutil::io
