#pragma once

#include <string>
#include <string_view>

namespace fl::i18n {

/// UTF-8 to 16-bit text. Never throws on bad input: each longest start of a valid character that is cut
/// short becomes one U+FFFD, and so does each byte that starts none, as browsers do it. So a truncated
/// character gives one, and each byte of an overlong form or of an encoded surrogate gives one. NUL is
/// kept; a character above U+FFFF becomes a surrogate pair.
std::u16string to_ustring(std::string_view utf8);

/// 16-bit text to UTF-8. Never throws on bad input: each lone surrogate becomes one U+FFFD.
std::string to_string(std::u16string_view text);

}  // namespace fl::i18n
