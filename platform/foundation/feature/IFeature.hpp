#pragma once

#include <string_view>

namespace foundation::feature {

/// The process's switches: what the host's configuration or a test has set.
///
/// Safe for use from any thread. Asking never throws, since it is done where an exception has nobody
/// to catch it; a change counts from the next question on.
class [[gnu::visibility("default")]] IFeature {
  public:
    virtual ~IFeature();

    /// `initially` if the switch was never set.
    virtual bool isEnabled(std::string_view name, bool initially) const noexcept = 0;
    virtual void set(std::string_view name, bool enabled) = 0;
    /// Makes the switch as if it was never set.
    virtual void reset(std::string_view name) noexcept = 0;

    static IFeature& instance() noexcept;

  protected:
    IFeature() = default;
    IFeature(const IFeature&) = delete;
    IFeature& operator=(const IFeature&) = delete;
};

}  // namespace foundation::feature
