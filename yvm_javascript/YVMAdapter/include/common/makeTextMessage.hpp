#pragma once

#include "common/JsonObject.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <string_view>

namespace yvm::JSClient {

/// `{"stream": 0, "text": "..."}`: a text as clients receive it. The number is that of the stream. The text
/// is sent as UTF-8; a lone surrogate becomes U+FFFD.
JsonObject makeTextMessage(ylutil::io::StreamTypeEnum stream, std::u16string_view text);

}  // namespace yvm::JSClient
