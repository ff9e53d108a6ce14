#include "connector/PluginHost.hpp"

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace connector {

namespace {

std::vector<std::filesystem::path> pluginFiles(const std::filesystem::path& folder) {
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (auto entry = std::filesystem::recursive_directory_iterator(folder, error);
         !error && entry != std::filesystem::recursive_directory_iterator(); entry.increment(error)) {
        if (entry->path().extension() == ".so" && !entry->is_directory()) {
            files.push_back(entry->path());
        }
    }
    if (error) {
        throw std::runtime_error("cannot read the plug-in folder '" + folder.string() +
                                 "': " + error.message());
    }
    std::ranges::sort(files);
    return files;
}

}  // namespace

PluginHost::PluginHost(std::shared_ptr<cppmicroservices::Framework> framework,
                       std::shared_ptr<message_service::Broker> broker)
    : framework_(std::move(framework)), broker_(std::move(broker)) {}

std::vector<cppmicroservices::Bundle> PluginHost::installFolder(const std::filesystem::path& folder) {
    std::vector<cppmicroservices::Bundle> bundles;
    for (const auto& file : pluginFiles(folder)) {
        std::ranges::move(framework_->GetBundleContext().InstallBundles(file), std::back_inserter(bundles));
    }
    for (auto& bundle : bundles) {
        bundle.Start();
    }
    for (const auto& component : framework_->deferredComponents()) {
        if (std::ranges::find(bundles, component.bundle) == bundles.end()) {
            continue;
        }
        for (const auto& pattern : component.channelPatterns) {
            // Weak: a trigger that nobody pulls stays in the broker, which may outlive the framework.
            broker_->addStartTrigger(pattern, [framework = std::weak_ptr(framework_), component] {
                const auto live = framework.lock();
                if (!live) {
                    throw std::runtime_error("the service framework has ended");
                }
                live->activate(component);
            });
        }
    }
    return bundles;
}

}  // namespace connector
