#pragma once

#include <streambuf>

namespace ylutil::io {

/// Takes all text and keeps none of it; every write reports success.
class YLNoOutputStreamBuffer final : public std::basic_streambuf<char16_t> {
  protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override;
};

}  // namespace ylutil::io
