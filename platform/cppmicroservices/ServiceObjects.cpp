#include "cppmicroservices/ServiceObjects.hpp"

#include "cppmicroservices/detail/BundleContextPrivate.hpp"
#include "cppmicroservices/detail/ServiceRecord.hpp"

namespace cppmicroservices {

ServiceObjectsBase::ServiceObjectsBase(const BundleContext& context, const ServiceReferenceBase& reference)
    : reference_(reference) {
    BundleContextPrivate::requireBundle(context.d_);
}

std::shared_ptr<void> ServiceObjectsBase::GetService() const {
    if (reference_.record_ == nullptr) {
        return nullptr;
    }
    const auto& record = *reference_.record_;
    const std::lock_guard lock(record.mutex);
    const auto found = record.implementation.find(reference_.GetInterfaceId());
    if (found == record.implementation.end()) {
        return nullptr;
    }
    void* const object = found->second.get();
    return {object, [owner = found->second](void*) {}};
}

}  // namespace cppmicroservices
