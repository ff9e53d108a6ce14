#pragma once

#include <atomic>
#include <memory>

namespace cppmicroservices {

class BundlePrivate;

/// What the copies of one bundle context share.
class BundleContextPrivate : public std::enable_shared_from_this<BundleContextPrivate> {
  public:
    explicit BundleContextPrivate(std::weak_ptr<BundlePrivate> bundle) : bundle_(std::move(bundle)) {}

    bool isValid() const noexcept { return valid_.load() && !bundle_.expired(); }

    /// For good.
    void invalidate() noexcept { valid_.store(false); }

    /// The bundle of a valid context. Throws `std::runtime_error` "The bundle context is no longer valid";
    /// `context` may be null.
    static std::shared_ptr<BundlePrivate> requireBundle(const std::shared_ptr<BundleContextPrivate>& context);

  private:
    const std::weak_ptr<BundlePrivate> bundle_;
    std::atomic<bool> valid_{true};
};

}  // namespace cppmicroservices
