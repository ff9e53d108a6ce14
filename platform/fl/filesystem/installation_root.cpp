#include "fl/filesystem/installation_root.hpp"

#include <mutex>

namespace fl::filesystem {
namespace {

std::mutex mutex;

std::filesystem::path& rootLocked() {
    static std::filesystem::path root =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
    return root;
}

}  // namespace

std::filesystem::path installationRoot() {
    const std::lock_guard lock(mutex);
    return rootLocked();
}

void setInstallationRoot(const std::filesystem::path& root) {
    auto absolute = std::filesystem::absolute(root).lexically_normal();
    const std::lock_guard lock(mutex);
    rootLocked() = std::move(absolute);
}

}  // namespace fl::filesystem
