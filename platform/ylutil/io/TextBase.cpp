#include "ylutil/io/TextBase.hpp"

#include "fl/i18n/ustring.hpp"

namespace ylutil::io {

std::ostream& operator<<(std::ostream& out, const TextBase& fragment) {
    return out << "{" << fragment.stream << ", " << fl::i18n::to_string(fragment.text) << "}";
}

}  // namespace ylutil::io
