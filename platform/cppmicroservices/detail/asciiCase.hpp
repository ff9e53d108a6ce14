#pragma once

#include <algorithm>
#include <string_view>

namespace cppmicroservices::detail {

/// The letter in lower case, whatever the locale; other bytes as they are.
constexpr char toLower(char character) noexcept {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// Whether both texts are the same but for the case of ASCII letters.
inline bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept {
    return std::ranges::equal(left, right, {}, toLower, toLower);
}

}  // namespace cppmicroservices::detail
