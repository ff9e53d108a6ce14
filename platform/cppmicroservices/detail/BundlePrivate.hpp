#pragma once

#include "cppmicroservices/Framework.hpp"
#include "cppmicroservices/detail/BundleManifest.hpp"
#include "cppmicroservices/detail/Component.hpp"
#include "cppmicroservices/detail/SharedLibrary.hpp"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cppmicroservices {

class FrameworkPrivate;
class ServiceRegistry;

/// What the handles on one bundle share. Safe for use from any thread.
class BundlePrivate : public std::enable_shared_from_this<BundlePrivate> {
  public:
    /// The bundle of a plug-in, or the framework's own, which has no file and an empty manifest but for the
    /// name.
    BundlePrivate(std::weak_ptr<FrameworkPrivate> framework, std::shared_ptr<ServiceRegistry> registry,
                  std::filesystem::path file, detail::BundleManifest manifest);

    const std::filesystem::path& file() const noexcept { return file_; }
    const detail::BundleManifest& manifest() const noexcept { return manifest_; }
    ServiceRegistry& registry() const noexcept { return *registry_; }
    std::weak_ptr<ServiceRegistry> weakRegistry() const noexcept { return registry_; }
    std::shared_ptr<FrameworkPrivate> framework() const noexcept { return framework_.lock(); }

    BundleContext context() const;
    bool isLoaded() const;

    void start();
    void stop();

    /// See `Framework::activate`.
    void activate(const std::string& implementationClass);

    /// Empty unless the bundle is started.
    std::vector<DeferredComponent> deferredComponents();

  private:
    void activateLocked(detail::Component& component);
    void stopLocked();

    const std::weak_ptr<FrameworkPrivate> framework_;
    const std::shared_ptr<ServiceRegistry> registry_;
    const std::filesystem::path file_;
    const detail::BundleManifest manifest_;

    /// Held while components are made and deleted, so that it is waited for; what they do then must not start
    /// or stop their own bundle. Taken before stateMutex_.
    std::mutex lifecycleMutex_;
    // Guarded by lifecycleMutex_.
    std::vector<detail::Component> components_;
    std::vector<detail::Component*> active_;  // in the order of activation

    mutable std::mutex stateMutex_;
    // Guarded by stateMutex_, and written with both mutexes held.
    std::shared_ptr<BundleContextPrivate> context_;  // null unless started
    std::optional<detail::SharedLibrary> library_;
};

}  // namespace cppmicroservices
