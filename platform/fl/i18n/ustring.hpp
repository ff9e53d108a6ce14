#pragma once

#include <string>
#include <string_view>

namespace fl::i18n {

/// UTF-8 to 16-bit text. Never throws on bad input: each maximal invalid byte sequence becomes one
/// U+FFFD; NUL is kept; a character above U+FFFF becomes a surrogate pair. Three-byte sequences that
/// encode a surrogate are invalid input.
std::u16string to_ustring(std::string_view utf8);

/// 16-bit text to UTF-8. Never throws on bad input: each lone surrogate becomes one U+FFFD.
std::string to_string(std::u16string_view text);

}  // namespace fl::i18n
