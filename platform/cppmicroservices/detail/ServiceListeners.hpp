#pragma once

#include "cppmicroservices/LDAPFilter.hpp"
#include "cppmicroservices/ServiceEvent.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace cppmicroservices {

class BundlePrivate;

/// The service listeners of a framework; see `BundleContext` for what it promises them.
class ServiceListeners {
  public:
    ServiceListeners();
    ~ServiceListeners();

    /// Returns the listener's id, which is never 0. `owner` only marks it for `removeAllOf`.
    std::uint64_t add(const BundlePrivate* owner, ServiceListener listener, LDAPFilter filter);
    void remove(std::uint64_t id);
    void removeAllOf(const BundlePrivate* owner);

    /// Calls, in the order in which they were added, the listeners whose filter matches `now`. With `before`,
    /// the properties until a change, those whose filter matched only `before` hear MODIFIED_ENDMATCH.
    void notify(ServiceEvent::Type type, const ServiceReferenceU& reference, const ServiceProperties& now,
                const ServiceProperties* before = nullptr);

  private:
    struct Entry;

    static void end(const std::shared_ptr<Entry>& entry);

    std::mutex mutex_;
    // Guarded by mutex_.
    std::uint64_t lastId_ = 0;
    std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace cppmicroservices
