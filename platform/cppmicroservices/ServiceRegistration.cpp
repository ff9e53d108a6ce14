#include "cppmicroservices/ServiceRegistration.hpp"

#include "cppmicroservices/detail/ServiceRegistry.hpp"

#include <stdexcept>
#include <utility>

namespace cppmicroservices {

ServiceRegistration::ServiceRegistration(std::weak_ptr<ServiceRegistry> registry,
                                         std::shared_ptr<ServiceRecord> record)
    : registry_(std::move(registry)), record_(std::move(record)) {}

ServiceRegistration::operator bool() const noexcept {
    return static_cast<bool>(GetReference());
}

ServiceReferenceU ServiceRegistration::GetReference() const {
    return ServiceReferenceBase(record_, "");
}

void ServiceRegistration::SetProperties(ServiceProperties properties) {
    const auto registry = registry_.lock();
    if (registry == nullptr) {
        throw std::logic_error("the service is not registered any more");
    }
    registry->setProperties(record_, std::move(properties));
}

void ServiceRegistration::Unregister() {
    if (const auto registry = registry_.lock()) {
        registry->remove(record_);
    }
}

}  // namespace cppmicroservices
