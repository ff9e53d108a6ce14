#pragma once

#include "cppmicroservices/ServiceRegistration.hpp"
#include "cppmicroservices/detail/BundleManifest.hpp"
#include "cppmicroservices/detail/SharedLibrary.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstance.hpp"

#include <functional>
#include <memory>
#include <optional>

namespace cppmicroservices::detail {

/// One declared component of a bundle, standing or not. Not safe for use from two threads at once; its bundle
/// holds a lock.
class Component {
  public:
    explicit Component(ComponentDescription description) : description_(std::move(description)) {}

    const ComponentDescription& description() const noexcept { return description_; }
    bool isActive() const noexcept { return instance_ != nullptr; }

    /// Makes the implementation and registers its services through `context`. Nothing stands if it throws.
    void activate(const SharedLibrary& library, BundleContext context);

    /// Unregisters the services and deletes the implementation, if the component stands.
    void deactivate();

  private:
    using Instance = service::component::detail::ComponentInstance;

    const ComponentDescription description_;
    std::unique_ptr<Instance, std::function<void(Instance*)>> instance_;
    std::optional<ServiceRegistration> registration_;
};

}  // namespace cppmicroservices::detail
