#pragma once

#include "cppmicroservices/BundleContext.hpp"
#include "cppmicroservices/ServiceProperties.hpp"

#include <cstdint>
#include <memory>
#include <mutex>

namespace cppmicroservices {

class BundlePrivate;

/// One registered service. Its mutex is a leaf: nothing is called with it held.
struct ServiceRecord {
    ServiceRecord(std::uint64_t serviceId, std::weak_ptr<BundlePrivate> registrar)
        : id(serviceId), bundle(std::move(registrar)) {}

    const std::uint64_t id;
    const std::weak_ptr<BundlePrivate> bundle;

    mutable std::mutex mutex;
    // Guarded by mutex.
    InterfaceMap implementation;
    ServiceProperties properties;
    /// From the registration to the end of the UNREGISTERING event.
    bool registered = true;
    /// Set by the first that unregisters the service.
    bool unregistering = false;
};

}  // namespace cppmicroservices
