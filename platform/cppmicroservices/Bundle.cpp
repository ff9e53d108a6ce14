#include "cppmicroservices/Bundle.hpp"

#include "cppmicroservices/detail/BundlePrivate.hpp"

#include <stdexcept>

namespace cppmicroservices {
namespace {

BundlePrivate& requirePlugin(const std::shared_ptr<BundlePrivate>& bundle) {
    if (bundle == nullptr) {
        throw std::logic_error("the bundle is invalid");
    }
    if (bundle->file().empty()) {
        throw std::logic_error("the framework is started and stopped by its owner, not as a bundle");
    }
    return *bundle;
}

}  // namespace

BundleContext Bundle::GetBundleContext() const {
    return d_ != nullptr ? d_->context() : BundleContext();
}

const std::string& Bundle::GetSymbolicName() const noexcept {
    static const std::string none;
    return d_ != nullptr ? d_->manifest().symbolicName : none;
}

const foundation::json::Object& Bundle::GetManifest() const noexcept {
    static const foundation::json::Object none;
    return d_ != nullptr ? d_->manifest().json : none;
}

const std::filesystem::path& Bundle::GetLocation() const noexcept {
    static const std::filesystem::path none;
    return d_ != nullptr ? d_->file() : none;
}

bool Bundle::IsStarted() const noexcept {
    return static_cast<bool>(GetBundleContext());
}

bool Bundle::IsLoaded() const noexcept {
    return d_ != nullptr && d_->isLoaded();
}

void Bundle::Start() {
    requirePlugin(d_).start();
}

void Bundle::Stop() {
    requirePlugin(d_).stop();
}

}  // namespace cppmicroservices
