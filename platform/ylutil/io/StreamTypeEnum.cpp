#include "ylutil/io/StreamTypeEnum.hpp"

namespace ylutil::io {

std::ostream& operator<<(std::ostream& stream, StreamTypeEnum type) {
    switch (type) {
        case StreamTypeEnum::Output:
            return stream << "OUTPUT_STREAM";
        case StreamTypeEnum::Error:
            return stream << "ERROR_STREAM";
        case StreamTypeEnum::Generic:
            return stream << "GENERIC_STREAM";
    }
    return stream << "Undefined stream type";
}

}  // namespace ylutil::io
