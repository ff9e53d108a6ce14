#pragma once

#include "foundation/feature/IFeature.hpp"

#include <string_view>

namespace foundation::feature {

/// One switch: `Feature<0>` is off until somebody turns it on, `Feature<1>` on until somebody turns it
/// off. Caches nothing, so a change at run time is seen by the next question.
template <int Initially>
class Feature {
    static_assert(Initially == 0 || Initially == 1);

  public:
    /// The text of `name` must outlive this object.
    explicit constexpr Feature(std::string_view name) noexcept : name_(name) {}

    constexpr std::string_view name() const noexcept { return name_; }
    bool isEnabled() const noexcept { return IFeature::instance().isEnabled(name_, Initially != 0); }

  private:
    std::string_view name_;
};

}  // namespace foundation::feature
