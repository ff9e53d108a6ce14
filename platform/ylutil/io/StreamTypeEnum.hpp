#pragma once

#include <ostream>

namespace ylutil::io {

/// Which of a command's streams a text belongs to. The numbers travel in the `stream` member of text
/// messages.
enum class StreamTypeEnum : int { Output = 0, Error = 1, Generic = 2 };

/// Prints "OUTPUT_STREAM", "ERROR_STREAM" or "GENERIC_STREAM", for any other value
/// "Undefined stream type".
std::ostream& operator<<(std::ostream& stream, StreamTypeEnum type);

}  // namespace ylutil::io
