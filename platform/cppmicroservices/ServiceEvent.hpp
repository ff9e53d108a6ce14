#pragma once

#include "cppmicroservices/ServiceReference.hpp"

#include <cstdint>
#include <functional>

namespace cppmicroservices {

/// What a service listener hears. The numbers are the framework's contract.
class ServiceEvent {
  public:
    enum Type : std::uint32_t {
        SERVICE_REGISTERED = 1,         ///< the service is visible to lookups already
        SERVICE_MODIFIED = 2,           ///< its properties changed and match the listener's filter
        SERVICE_UNREGISTERING = 4,      ///< it is still valid, and goes after the event
        SERVICE_MODIFIED_ENDMATCH = 8,  ///< its properties changed and match no more
    };

    ServiceEvent(Type type, ServiceReferenceU reference) : type_(type), reference_(std::move(reference)) {}

    Type GetType() const noexcept { return type_; }
    const ServiceReferenceU& GetServiceReference() const noexcept { return reference_; }

  private:
    Type type_;
    ServiceReferenceU reference_;
};

using ServiceListener = std::function<void(const ServiceEvent&)>;

}  // namespace cppmicroservices
