#include "fl/i18n/codecvt_ustring_to_string.hpp"

#include "fl/i18n/ustring.hpp"

#include <algorithm>
#include <stdexcept>

namespace fl::i18n {

codecvt_ustring_to_string::codecvt_ustring_to_string(std::string_view encoding, bool replaceInvalid)
    : replaceInvalid_(replaceInvalid) {
    if (encoding != "UTF-8") {
        throw std::invalid_argument("encoding '" + std::string(encoding) +
                                    "' is not supported; the only one is 'UTF-8'");
    }
}

std::string codecvt_ustring_to_string::convert(std::u16string_view text) {
    auto utf8 = to_string(text);
    if (!replaceInvalid_) {
        // The way back restores valid text exactly and nothing else.
        const auto back = to_ustring(utf8);
        const auto [given, restored] = std::ranges::mismatch(text, back);
        if (given != text.end()) {
            throw std::range_error("lone surrogate at offset " + std::to_string(given - text.begin()) +
                                   " of the 16-bit text");
        }
    }
    return utf8;
}

}  // namespace fl::i18n
