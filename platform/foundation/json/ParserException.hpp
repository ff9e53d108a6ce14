#pragma once

#include "foundation/json/ParseResult.hpp"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation::json {

/// A text is no valid JSON. A client reads what(), which has three lines and no line end:
///
///     JSON ParserException (E0018): Expected ':' after an object key (Line 1, Column 12)
///     <tab>{"requestID"="a"}
///     <tab>            ^
class [[gnu::visibility("default")]] ParserException : public std::runtime_error {
  public:
    /// `offset` is the byte of `text` at fault, at most text.size(). The text is not kept, only its context
    /// line.
    ParserException(ParseResult code, std::string_view description, std::string_view text,
                    std::size_t offset);
    ParserException(const ParserException&) = default;
    ParserException& operator=(const ParserException&) = default;
    ~ParserException() override;

    ParseResult code() const noexcept { return place_.code; }
    /// In bytes from the start of the text.
    std::size_t offset() const noexcept { return place_.offset; }
    /// Counted from 1.
    std::size_t line() const noexcept { return place_.line; }
    /// In bytes from the start of the line, counted from 0.
    std::size_t column() const noexcept { return place_.column; }
    /// At most 80 bytes of the line before the byte at fault and 80 from it on. May cut a multibyte
    /// character.
    const std::string& context() const noexcept { return place_.context; }

  private:
    struct Place {
        ParseResult code;
        std::size_t offset;
        std::size_t line;
        std::size_t column;
        std::string context;
        /// Bytes of `context` before the byte at fault.
        std::size_t caret;
    };

    static Place locate(ParseResult code, std::string_view text, std::size_t offset);
    static std::string describe(const Place& place, std::string_view description);
    ParserException(Place place, std::string_view description);

    Place place_;
};

}  // namespace foundation::json
