#pragma once

#include "cppmicroservices/ServiceInterface.hpp"
#include "cppmicroservices/ServiceReferenceBase.hpp"

namespace cppmicroservices {

/// A reference through which a service is reached as an `Interface`.
template <typename Interface>
class ServiceReference : public ServiceReferenceBase {
  public:
    ServiceReference() = default;
    ServiceReference(std::nullptr_t) {}

    /// Takes the reference over if the service implements `Interface`; otherwise this one is invalid.
    ServiceReference(const ServiceReferenceBase& other) : ServiceReferenceBase(other) {
        const std::string& wanted = us_service_interface_iid<Interface>();
        if (GetInterfaceId() == wanted) {
            return;
        }
        if (IsConvertibleTo(wanted)) {
            SetInterfaceId(wanted);
        } else {
            ServiceReferenceBase::operator=(nullptr);
        }
    }

    using ServiceReferenceBase::operator=;
};

/// A reference whose interface is only known by its id.
template <>
class ServiceReference<void> : public ServiceReferenceBase {
  public:
    ServiceReference() = default;
    ServiceReference(std::nullptr_t) {}
    ServiceReference(const ServiceReferenceBase& other) : ServiceReferenceBase(other) {}

    using ServiceReferenceBase::operator=;
};

using ServiceReferenceU = ServiceReference<void>;

}  // namespace cppmicroservices
