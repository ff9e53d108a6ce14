#include "foundation/cppmicroservices/framework.hpp"

#include <mutex>
#include <stdexcept>

namespace foundation::cppmicroservices {
namespace {

std::mutex mutex;

std::shared_ptr<::cppmicroservices::Framework>& currentLocked() {
    // Never destroyed: a framework that its host forgot must not stop its plug-ins among static destructors.
    static auto* const current = new std::shared_ptr<::cppmicroservices::Framework>;
    return *current;
}

}  // namespace

std::shared_ptr<::cppmicroservices::Framework> getFramework() {
    const std::lock_guard lock(mutex);
    return currentLocked();
}

void setFramework(std::shared_ptr<::cppmicroservices::Framework> framework) {
    {
        const std::lock_guard lock(mutex);
        currentLocked().swap(framework);
    }
    // The old one may go here, with its bundles, which ask for the framework while they stop.
}

std::vector<::cppmicroservices::Bundle> installAndStart(const fl::filesystem::basic_path& path) {
    const auto framework = getFramework();
    if (framework == nullptr) {
        throw std::runtime_error("cannot install the bundle '" + path.string() +
                                 "': there is no service framework");
    }
    auto bundles = framework->GetBundleContext().InstallBundles(path.native());
    for (auto& bundle : bundles) {
        bundle.Start();
    }
    return bundles;
}

}  // namespace foundation::cppmicroservices
