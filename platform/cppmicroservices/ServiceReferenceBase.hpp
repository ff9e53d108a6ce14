#pragma once

#include "cppmicroservices/ServiceProperties.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace cppmicroservices {

class Bundle;
struct ServiceRecord;

/// Points to a registered service without keeping its implementation alive.
///
/// Copies are cheap. Valid from the registration until the end of the UNREGISTERING event; a
/// default-constructed one is never valid. A reference outlives its framework harmlessly. Distinct
/// objects may be used from different threads.
class ServiceReferenceBase {
  public:
    ServiceReferenceBase() = default;
    ServiceReferenceBase(std::nullptr_t) {}
    /// The framework makes these.
    ServiceReferenceBase(std::shared_ptr<ServiceRecord> record, std::string interfaceId);

    /// Makes the reference invalid.
    ServiceReferenceBase& operator=(std::nullptr_t) noexcept;

    /// Whether the service is registered at this moment.
    explicit operator bool() const noexcept;

    /// The bundle that registered the service; an invalid bundle once the service is gone.
    Bundle GetBundle() const;

    /// A snapshot of one property; Undefined if there is none or the service is gone.
    Any GetProperty(std::string_view name) const;

    /// The interface that `GetService` will give; empty for none.
    const std::string& GetInterfaceId() const noexcept { return interfaceId_; }
    void SetInterfaceId(const std::string& interfaceId) { interfaceId_ = interfaceId; }

    /// Whether the service implements that interface.
    bool IsConvertibleTo(const std::string& interfaceId) const;

    /// Whether both point to the same registration.
    bool operator==(const ServiceReferenceBase& other) const noexcept { return record_ == other.record_; }

  private:
    friend class ServiceObjectsBase;

    std::shared_ptr<ServiceRecord> record_;
    std::string interfaceId_;
};

}  // namespace cppmicroservices
