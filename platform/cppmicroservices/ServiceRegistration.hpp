#pragma once

#include "cppmicroservices/ServiceProperties.hpp"
#include "cppmicroservices/ServiceReference.hpp"

#include <memory>

namespace cppmicroservices {

class ServiceRegistry;

/// The registrar's handle on one service. Dropping it does not unregister the service, which stays until
/// `Unregister` or until its bundle stops.
class ServiceRegistration {
  public:
    ServiceRegistration() = default;
    /// The framework makes these.
    ServiceRegistration(std::weak_ptr<ServiceRegistry> registry, std::shared_ptr<ServiceRecord> record);

    explicit operator bool() const noexcept;

    ServiceReferenceU GetReference() const;

    /// Replaces the properties ("objectClass" and "service.id" stay) and tells listeners: MODIFIED to
    /// those whose filter matches now, MODIFIED_ENDMATCH to those whose filter matched only before. Throws
    /// `std::logic_error` if the service is not registered.
    void SetProperties(ServiceProperties properties);

    /// Tells listeners UNREGISTERING, then makes the service invisible and lets go of the implementation.
    /// Harmless if the service is gone already.
    void Unregister();

  private:
    std::weak_ptr<ServiceRegistry> registry_;
    std::shared_ptr<ServiceRecord> record_;
};

}  // namespace cppmicroservices
