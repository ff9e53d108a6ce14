#include "cppmicroservices/Framework.hpp"

#include "cppmicroservices/detail/FrameworkPrivate.hpp"

#include <ranges>
#include <stdexcept>

namespace cppmicroservices {

Framework::Framework() : framework_(std::make_shared<FrameworkPrivate>()) {
    detail::BundleManifest manifest;
    manifest.symbolicName = "system_bundle";
    d_ = std::make_shared<BundlePrivate>(framework_, framework_->registry(), std::filesystem::path(),
                                         std::move(manifest));
}

Framework::~Framework() {
    Stop();
}

void Framework::Start() {
    d_->start();
}

void Framework::Stop() {
    for (const auto& bundle : framework_->bundles() | std::views::reverse) {
        bundle->stop();
    }
    d_->stop();
}

std::vector<DeferredComponent> Framework::deferredComponents() const {
    std::vector<DeferredComponent> found;
    for (const auto& bundle : framework_->bundles()) {
        for (auto& component : bundle->deferredComponents()) {
            found.push_back(std::move(component));
        }
    }
    return found;
}

void Framework::activate(const DeferredComponent& component) {
    if (!component.bundle) {
        throw std::runtime_error("the component '" + component.implementationClass + "' names no bundle");
    }
    component.bundle.d_->activate(component.implementationClass);
}

}  // namespace cppmicroservices
