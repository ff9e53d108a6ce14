#pragma once

#include <functional>
#include <streambuf>
#include <string_view>
#include <utility>

namespace yvm::engine {

/// Hands text on to a function as UTF-8, each write at once.
class ConsoleBuffer final : public std::basic_streambuf<char16_t> {
  public:
    using Console = std::function<void(std::string_view utf8, bool error)>;

    /// Without a function the text is dropped.
    ConsoleBuffer(Console console, bool error) : console_(std::move(console)), error_(error) {}

  protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override;

  private:
    const Console console_;
    const bool error_;
};

}  // namespace yvm::engine
