#include "engine/detail/ConsoleBuffer.hpp"

#include "fl/i18n/ustring.hpp"

namespace yvm::engine {

ConsoleBuffer::int_type ConsoleBuffer::overflow(int_type character) {
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        const char16_t unit = traits_type::to_char_type(character);
        xsputn(&unit, 1);
    }
    return traits_type::not_eof(character);
}

std::streamsize ConsoleBuffer::xsputn(const char16_t* text, std::streamsize count) {
    if (console_) {
        console_(fl::i18n::to_string({text, static_cast<std::size_t>(count)}), error_);
    }
    return count;
}

}  // namespace yvm::engine
