#include "cppmicroservices/detail/FrameworkPrivate.hpp"

#include "cppmicroservices/detail/ServiceRegistry.hpp"

#include <stdexcept>

namespace cppmicroservices {
namespace {

/// The plug-in that `file` means, as an absolute path without links.
std::filesystem::path resolve(const std::filesystem::path& file) {
    const std::filesystem::path withEnding = file.string() + ".so";
    for (const auto& candidate : {file, withEnding}) {
        if (std::filesystem::is_regular_file(candidate)) {
            return std::filesystem::canonical(candidate);
        }
    }
    throw std::runtime_error("cannot install the bundle '" + file.string() +
                             "': there is no such file, nor '" + withEnding.string() + "'");
}

}  // namespace

FrameworkPrivate::FrameworkPrivate() : registry_(std::make_shared<ServiceRegistry>()) {}

std::shared_ptr<BundlePrivate> FrameworkPrivate::install(const std::filesystem::path& file) {
    const auto resolved = resolve(file);
    const std::lock_guard lock(mutex_);
    for (const auto& bundle : bundles_) {
        if (bundle->file() == resolved) {
            return bundle;
        }
    }
    auto manifest = detail::readBundleManifest(resolved);
    for (const auto& bundle : bundles_) {
        if (bundle->manifest().symbolicName == manifest.symbolicName) {
            throw std::runtime_error("cannot install the bundle '" + resolved.string() + "': its name '" +
                                     manifest.symbolicName + "' is that of '" + bundle->file().string() +
                                     "'");
        }
    }
    bundles_.push_back(
        std::make_shared<BundlePrivate>(weak_from_this(), registry_, resolved, std::move(manifest)));
    return bundles_.back();
}

std::vector<std::shared_ptr<BundlePrivate>> FrameworkPrivate::bundles() const {
    const std::lock_guard lock(mutex_);
    return bundles_;
}

}  // namespace cppmicroservices
