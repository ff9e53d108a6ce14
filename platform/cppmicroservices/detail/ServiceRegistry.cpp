#include "cppmicroservices/detail/ServiceRegistry.hpp"

#include "cppmicroservices/ServiceException.hpp"
#include "cppmicroservices/detail/ServiceRecord.hpp"

#include <algorithm>
#include <ranges>
#include <stdexcept>

namespace cppmicroservices {
namespace {

/// Adds what every service has. The registrar's own spelling or value of these names is dropped.
ServiceProperties withFrameworkProperties(ServiceProperties properties, const ServiceRecord& record) {
    for (const auto* name : {"objectClass", "service.id"}) {
        while (const Any* given = findProperty(properties, name)) {
            std::erase_if(properties, [given](const auto& property) { return &property.second == given; });
        }
    }
    foundation::json::Array interfaces;
    for (const auto& id : record.implementation | std::views::keys) {
        interfaces.emplace_back(id);
    }
    properties.emplace("objectClass", std::move(interfaces));
    properties.emplace("service.id", record.id);
    return properties;
}

ServiceProperties snapshot(const ServiceRecord& record) {
    const std::lock_guard lock(record.mutex);
    return record.properties;
}

}  // namespace

std::shared_ptr<ServiceRecord> ServiceRegistry::add(const std::shared_ptr<BundlePrivate>& bundle,
                                                    InterfaceMap implementation,
                                                    ServiceProperties properties) {
    if (implementation.empty()) {
        throw ServiceException("a service needs at least one interface");
    }
    for (const auto& [interfaceId, object] : implementation) {
        detail::requireInterfaceId(interfaceId);
        if (object == nullptr) {
            throw ServiceException("the implementation of the service '" + interfaceId + "' is empty");
        }
    }
    std::shared_ptr<ServiceRecord> record;
    {
        const std::lock_guard lock(mutex_);
        record = std::make_shared<ServiceRecord>(++lastId_, bundle);
        record->implementation = std::move(implementation);
        record->properties = withFrameworkProperties(std::move(properties), *record);
        records_.push_back(record);
    }
    listeners_.notify(ServiceEvent::SERVICE_REGISTERED, ServiceReferenceU({record, ""}), snapshot(*record));
    return record;
}

void ServiceRegistry::setProperties(const std::shared_ptr<ServiceRecord>& record,
                                    ServiceProperties properties) {
    ServiceProperties now;
    ServiceProperties before;
    {
        const std::lock_guard lock(record->mutex);
        if (!record->registered) {
            throw std::logic_error("the service is not registered any more");
        }
        now = withFrameworkProperties(std::move(properties), *record);
        before = std::exchange(record->properties, now);
    }
    listeners_.notify(ServiceEvent::SERVICE_MODIFIED, ServiceReferenceU({record, ""}), now, &before);
}

void ServiceRegistry::remove(const std::shared_ptr<ServiceRecord>& record) {
    {
        const std::lock_guard lock(record->mutex);
        if (std::exchange(record->unregistering, true)) {
            return;
        }
    }
    listeners_.notify(ServiceEvent::SERVICE_UNREGISTERING, ServiceReferenceU({record, ""}),
                      snapshot(*record));
    {
        const std::lock_guard lock(mutex_);
        std::erase(records_, record);
    }
    InterfaceMap released;  // destroyed after the lock: the last owner's destructor may be anything
    const std::lock_guard lock(record->mutex);
    record->registered = false;
    released.swap(record->implementation);
}

void ServiceRegistry::removeAllOf(const std::shared_ptr<BundlePrivate>& bundle) {
    std::vector<std::shared_ptr<ServiceRecord>> records;
    {
        const std::lock_guard lock(mutex_);
        std::ranges::copy_if(records_, std::back_inserter(records),
                             [&bundle](const auto& record) { return record->bundle.lock() == bundle; });
    }
    for (const auto& record : records | std::views::reverse) {
        remove(record);
    }
}

std::vector<ServiceReferenceU> ServiceRegistry::find(const std::string& interfaceId,
                                                     const LDAPFilter& filter) const {
    std::vector<ServiceReferenceU> found;
    const std::lock_guard lock(mutex_);
    for (const auto& record : records_) {
        const std::lock_guard recordLock(record->mutex);
        if ((interfaceId.empty() || record->implementation.contains(interfaceId)) &&
            filter.Match(record->properties)) {
            found.emplace_back(ServiceReferenceBase(record, interfaceId));
        }
    }
    return found;
}

}  // namespace cppmicroservices
