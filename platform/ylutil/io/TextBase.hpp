#pragma once

#include "ylutil/io/StreamTypeEnum.hpp"

#include <ostream>
#include <string>

namespace ylutil::io {

/// A fragment of text and the stream that it was written to.
struct TextBase {
    StreamTypeEnum stream = StreamTypeEnum::Output;
    std::u16string text;
};

/// Prints "{", the stream's name, ", ", the text as UTF-8, and "}".
std::ostream& operator<<(std::ostream& out, const TextBase& fragment);

}  // namespace ylutil::io
