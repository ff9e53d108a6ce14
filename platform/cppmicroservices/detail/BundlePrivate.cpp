#include "cppmicroservices/detail/BundlePrivate.hpp"

#include "cppmicroservices/detail/BundleContextPrivate.hpp"
#include "cppmicroservices/detail/ServiceRegistry.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {

BundlePrivate::BundlePrivate(std::weak_ptr<FrameworkPrivate> framework,
                             std::shared_ptr<ServiceRegistry> registry, std::filesystem::path file,
                             detail::BundleManifest manifest)
    : framework_(std::move(framework)),
      registry_(std::move(registry)),
      file_(std::move(file)),
      manifest_(std::move(manifest)) {
    for (const auto& description : manifest_.components) {
        components_.emplace_back(description);
    }
}

BundleContext BundlePrivate::context() const {
    const std::lock_guard lock(stateMutex_);
    return BundleContext(context_);
}

bool BundlePrivate::isLoaded() const {
    const std::lock_guard lock(stateMutex_);
    return library_.has_value();
}

void BundlePrivate::start() {
    const std::lock_guard lock(lifecycleMutex_);
    if (context_ != nullptr) {
        return;
    }
    {
        const std::lock_guard stateLock(stateMutex_);
        context_ = std::make_shared<BundleContextPrivate>(weak_from_this());
    }
    try {
        for (auto& component : components_) {
            if (!component.description().startTriggers) {
                activateLocked(component);
            }
        }
    } catch (...) {
        stopLocked();
        throw;
    }
}

void BundlePrivate::stop() {
    const std::lock_guard lock(lifecycleMutex_);
    if (context_ != nullptr) {
        stopLocked();
    }
}

void BundlePrivate::stopLocked() {
    for (; !active_.empty(); active_.pop_back()) {
        active_.back()->deactivate();
    }
    registry_->removeAllOf(shared_from_this());
    registry_->listeners().removeAllOf(this);
    const std::lock_guard stateLock(stateMutex_);
    context_->invalidate();
    context_.reset();
}

void BundlePrivate::activate(const std::string& implementationClass) {
    const std::lock_guard lock(lifecycleMutex_);
    if (context_ == nullptr) {
        throw std::runtime_error("the bundle '" + manifest_.symbolicName + "' is not started");
    }
    const auto found = std::ranges::find_if(components_, [&](const detail::Component& component) {
        return component.description().implementationClass == implementationClass;
    });
    if (found == components_.end()) {
        throw std::runtime_error("the bundle '" + manifest_.symbolicName + "' has no component '" +
                                 implementationClass + "'");
    }
    if (!found->isActive()) {
        activateLocked(*found);
    }
}

void BundlePrivate::activateLocked(detail::Component& component) {
    if (!library_) {
        const detail::SharedLibrary library(file_);
        const std::lock_guard stateLock(stateMutex_);
        library_ = library;
    }
    // Each time, since an earlier framework of this process or an earlier start may have set another.
    library_->function<void(BundleContextPrivate*)>("_us_set_bundle_context_instance_" +
                                                    manifest_.symbolicName)(
        shareBundleContext(BundleContext(context_)));
    component.activate(*library_, BundleContext(context_));
    active_.push_back(&component);
}

std::vector<DeferredComponent> BundlePrivate::deferredComponents() {
    std::vector<DeferredComponent> found;
    if (!context()) {
        return found;
    }
    for (const auto& description : manifest_.components) {
        if (description.startTriggers) {
            found.push_back(
                {Bundle(shared_from_this()), description.implementationClass, *description.startTriggers});
        }
    }
    return found;
}

}  // namespace cppmicroservices
