#pragma once

#include <string>
#include <string_view>

namespace fl::i18n {

/// Turns text of `From` units into text of `To` units.
template <typename To, typename From>
class converter {
  public:
    converter() = default;
    converter(const converter&) = delete;
    converter& operator=(const converter&) = delete;
    virtual ~converter() = default;

    virtual std::basic_string<To> convert(std::basic_string_view<From> text) = 0;
};

}  // namespace fl::i18n
