#include "common/makeTextMessage.hpp"

#include "fl/i18n/codecvt_ustring_to_string.hpp"

namespace yvm::JSClient {

JsonObject makeTextMessage(ylutil::io::StreamTypeEnum stream, std::u16string_view text) {
    fl::i18n::codecvt_ustring_to_string toUtf8("UTF-8", true);
    fl::i18n::converter<char, char16_t>& converter = toUtf8;
    // Not as a list of members, which would be copied, text and all.
    JsonObject message;
    message.emplace("text", converter.convert(text));
    message.emplace("stream", static_cast<int>(stream));
    return message;
}

}  // namespace yvm::JSClient
