#pragma once

#include <filesystem>

namespace fl::filesystem {

/// The folder that relative module paths start from; always absolute.
///
/// By default the folder above that of the running program: programs sit in `<root>/bin`. The host or
/// a test may choose another; a relative one counts from the current folder. Safe from any thread.
std::filesystem::path installationRoot();
void setInstallationRoot(const std::filesystem::path& root);

}  // namespace fl::filesystem
