#pragma once

#include "cppmicroservices/BundleContext.hpp"

#include <atomic>

namespace cppmicroservices {

/// The context of the bundle that the calling code is linked into. Each module has its own definition, made
/// by `CPPMICROSERVICES_INITIALIZE_BUNDLE`. Invalid until the framework has loaded the module.
[[gnu::visibility("hidden")]] BundleContext GetBundleContext();

}  // namespace cppmicroservices

/// Stands once in each plug-in, at global scope, with the bundle's symbolic name: defines the function
/// through which the framework hands over the bundle context, and `cppmicroservices::GetBundleContext` to
/// read it.
#define CPPMICROSERVICES_INITIALIZE_BUNDLE(symbolicName)                                           \
    static std::atomic<cppmicroservices::BundleContextPrivate*> bundleContextInstance{nullptr};    \
    extern "C" [[gnu::visibility("default")]] void _us_set_bundle_context_instance_##symbolicName( \
        cppmicroservices::BundleContextPrivate* context) {                                         \
        bundleContextInstance.exchange(context);                                                   \
    }                                                                                              \
    cppmicroservices::BundleContext cppmicroservices::GetBundleContext() {                         \
        return cppmicroservices::bundleContextOf(bundleContextInstance.load());                    \
    }                                                                                              \
    static_assert(true, "takes the semicolon")
