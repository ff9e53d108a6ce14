#include "cppmicroservices/detail/BundleContextPrivate.hpp"

#include <stdexcept>

namespace cppmicroservices {

std::shared_ptr<BundlePrivate> BundleContextPrivate::requireBundle(
    const std::shared_ptr<BundleContextPrivate>& context) {
    auto bundle = context != nullptr && context->valid_.load() ? context->bundle_.lock() : nullptr;
    if (bundle == nullptr) {
        throw std::runtime_error("The bundle context is no longer valid");
    }
    return bundle;
}

}  // namespace cppmicroservices
