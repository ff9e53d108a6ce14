#include "fl/filesystem/basic_path.hpp"

#include "fl/filesystem/installation_root.hpp"
#include "fl/i18n/ustring.hpp"

namespace fl::filesystem::detail {
namespace {

std::string toUtf8(std::wstring_view text) {
    std::u16string units;
    for (const wchar_t wide : text) {
        const auto character = static_cast<char32_t>(wide);
        if (character > 0x10FFFF) {
            units += u'\uFFFD';
        } else if (character > 0xFFFF) {
            units += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
            units += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
        } else {
            units += static_cast<char16_t>(character);
        }
    }
    return i18n::to_string(units);
}

}  // namespace

basic_path make_native_form(std::wstring_view path) {
    std::string steps = toUtf8(path);
    for (char& character : steps) {
        if (character == '\\') {
            character = '/';
        }
    }
    // `/` leaves an absolute right-hand side as it is.
    return basic_path((installationRoot() / steps).lexically_normal());
}

}  // namespace fl::filesystem::detail
