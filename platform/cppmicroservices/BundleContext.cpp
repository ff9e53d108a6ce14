#include "cppmicroservices/BundleContext.hpp"

#include "cppmicroservices/Bundle.hpp"
#include "cppmicroservices/ServiceObjects.hpp"
#include "cppmicroservices/detail/BundleContextPrivate.hpp"
#include "cppmicroservices/detail/FrameworkPrivate.hpp"
#include "cppmicroservices/detail/ServiceRegistry.hpp"

#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {
namespace {

std::shared_ptr<FrameworkPrivate> frameworkOf(const BundlePrivate& bundle) {
    auto framework = bundle.framework();
    if (framework == nullptr) {
        throw std::runtime_error("The bundle context is no longer valid");
    }
    return framework;
}

}  // namespace

BundleContext::operator bool() const noexcept {
    return d_ != nullptr && d_->isValid();
}

Bundle BundleContext::GetBundle() const {
    return Bundle(BundleContextPrivate::requireBundle(d_));
}

std::vector<Bundle> BundleContext::InstallBundles(const std::filesystem::path& file) {
    const auto bundle = BundleContextPrivate::requireBundle(d_);
    return {Bundle(frameworkOf(*bundle)->install(file))};
}

std::vector<Bundle> BundleContext::GetBundles() const {
    const auto bundle = BundleContextPrivate::requireBundle(d_);
    std::vector<Bundle> bundles;
    for (auto& installed : frameworkOf(*bundle)->bundles()) {
        bundles.emplace_back(std::move(installed));
    }
    return bundles;
}

ListenerToken BundleContext::AddServiceListener(ServiceListener listener, const std::string& filter) {
    const auto bundle = BundleContextPrivate::requireBundle(d_);
    return ListenerToken(
        bundle->registry().listeners().add(bundle.get(), std::move(listener), LDAPFilter(filter)));
}

void BundleContext::RemoveListener(ListenerToken&& token) {
    const auto bundle = BundleContextPrivate::requireBundle(d_);
    const ListenerToken taken = std::move(token);
    bundle->registry().listeners().remove(taken.id());
}

std::vector<ServiceReferenceU> BundleContext::GetServiceReferences(const std::string& interfaceId,
                                                                   const std::string& filter) const {
    const auto bundle = BundleContextPrivate::requireBundle(d_);
    return bundle->registry().find(interfaceId, LDAPFilter(filter));
}

std::shared_ptr<void> BundleContext::GetService(const ServiceReferenceBase& reference) const {
    return ServiceObjectsBase(*this, reference).GetService();
}

ServiceRegistration BundleContext::RegisterService(InterfaceMap implementation,
                                                   ServiceProperties properties) {
    const auto bundle = BundleContextPrivate::requireBundle(d_);
    return {bundle->weakRegistry(),
            bundle->registry().add(bundle, std::move(implementation), std::move(properties))};
}

BundleContextPrivate* shareBundleContext(const BundleContext& context) {
    static std::mutex mutex;
    static auto* const shared = new std::set<std::shared_ptr<BundleContextPrivate>>;
    const std::lock_guard lock(mutex);
    shared->insert(context.d_);
    return context.d_.get();
}

BundleContext bundleContextOf(BundleContextPrivate* shared) {
    return shared != nullptr ? BundleContext(shared->shared_from_this()) : BundleContext();
}

}  // namespace cppmicroservices
