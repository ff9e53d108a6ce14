#pragma once

#include "cppmicroservices/BundleContext.hpp"
#include "cppmicroservices/ServiceReferenceBase.hpp"

#include <memory>

namespace cppmicroservices {

/// Yields the instances behind a reference.
class ServiceObjectsBase {
  public:
    /// Throws `std::runtime_error` "The bundle context is no longer valid".
    ServiceObjectsBase(const BundleContext& context, const ServiceReferenceBase& reference);

    /// A pointer of the interface that the reference names; empty if the service is gone or has no such
    /// interface. Each call gives an owner of its own, and the service is released when the last owner
    /// goes, even if it was unregistered in between.
    std::shared_ptr<void> GetService() const;

  private:
    ServiceReferenceBase reference_;
};

}  // namespace cppmicroservices
