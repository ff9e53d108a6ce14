#pragma once

#include "cppmicroservices/BundleContext.hpp"
#include "cppmicroservices/LDAPFilter.hpp"
#include "cppmicroservices/detail/ServiceListeners.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundlePrivate;
struct ServiceRecord;

/// The services of a framework and those who listen for them. Safe for use from any thread; listeners are
/// called with no lock held.
class ServiceRegistry {
  public:
    std::shared_ptr<ServiceRecord> add(const std::shared_ptr<BundlePrivate>& bundle,
                                       InterfaceMap implementation, ServiceProperties properties);
    void setProperties(const std::shared_ptr<ServiceRecord>& record, ServiceProperties properties);
    void remove(const std::shared_ptr<ServiceRecord>& record);

    /// Removes the bundle's services, last registered first.
    void removeAllOf(const std::shared_ptr<BundlePrivate>& bundle);

    std::vector<ServiceReferenceU> find(const std::string& interfaceId, const LDAPFilter& filter) const;

    ServiceListeners& listeners() noexcept { return listeners_; }

  private:
    ServiceListeners listeners_;
    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::uint64_t lastId_ = 0;
    std::vector<std::shared_ptr<ServiceRecord>> records_;  // in the order of registration
};

}  // namespace cppmicroservices
