#pragma once

#include "cppmicroservices/detail/BundlePrivate.hpp"

#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

namespace cppmicroservices {

/// The bundles of a framework. Safe for use from any thread.
class FrameworkPrivate : public std::enable_shared_from_this<FrameworkPrivate> {
  public:
    FrameworkPrivate();

    const std::shared_ptr<ServiceRegistry>& registry() const noexcept { return registry_; }

    /// See `BundleContext::InstallBundles`.
    std::shared_ptr<BundlePrivate> install(const std::filesystem::path& file);

    std::vector<std::shared_ptr<BundlePrivate>> bundles() const;

  private:
    const std::shared_ptr<ServiceRegistry> registry_;
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<BundlePrivate>> bundles_;  // guarded by mutex_, in the order of installation
};

}  // namespace cppmicroservices
