#include "cppmicroservices/ServiceReferenceBase.hpp"

#include "cppmicroservices/Bundle.hpp"
#include "cppmicroservices/detail/ServiceRecord.hpp"

#include <utility>

namespace cppmicroservices {

ServiceReferenceBase::ServiceReferenceBase(std::shared_ptr<ServiceRecord> record, std::string interfaceId)
    : record_(std::move(record)), interfaceId_(std::move(interfaceId)) {}

ServiceReferenceBase& ServiceReferenceBase::operator=(std::nullptr_t) noexcept {
    record_.reset();
    interfaceId_.clear();
    return *this;
}

ServiceReferenceBase::operator bool() const noexcept {
    if (record_ == nullptr) {
        return false;
    }
    const std::lock_guard lock(record_->mutex);
    return record_->registered;
}

Bundle ServiceReferenceBase::GetBundle() const {
    return *this ? Bundle(record_->bundle.lock()) : Bundle();
}

Any ServiceReferenceBase::GetProperty(std::string_view name) const {
    if (!*this) {
        return {};
    }
    const std::lock_guard lock(record_->mutex);
    const Any* value = findProperty(record_->properties, name);
    return value != nullptr ? *value : Any();
}

bool ServiceReferenceBase::IsConvertibleTo(const std::string& interfaceId) const {
    if (record_ == nullptr) {
        return false;
    }
    const std::lock_guard lock(record_->mutex);
    return record_->implementation.contains(interfaceId);
}

}  // namespace cppmicroservices
