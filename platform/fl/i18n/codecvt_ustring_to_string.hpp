#pragma once

#include "fl/i18n/converter.hpp"

#include <string>
#include <string_view>

namespace fl::i18n {

/// 16-bit text to text in a named encoding, of which "UTF-8" is the only one.
class codecvt_ustring_to_string final : public converter<char, char16_t> {
  public:
    /// With `replaceInvalid`, `convert` behaves as `to_string` and never throws on bad input; without
    /// it, a lone surrogate throws. Throws `std::invalid_argument` for any other encoding.
    codecvt_ustring_to_string(std::string_view encoding, bool replaceInvalid);

    /// Throws `std::range_error` that gives the offset, in 16-bit units, of a lone surrogate, if these
    /// are not to be replaced.
    std::string convert(std::u16string_view text) override;

  private:
    const bool replaceInvalid_;
};

}  // namespace fl::i18n
