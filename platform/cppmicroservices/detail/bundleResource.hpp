#pragma once

#include <filesystem>
#include <string>

namespace cppmicroservices::detail {

/// The manifest of a plug-in as it stands in the file, not parsed.
struct BundleResource {
    /// The folder of the archive that holds the manifest; equals the bundle's symbolic name.
    std::string folder;
    std::string manifestText;
};

/// Reads `<symbolic name>/manifest.json` out of the ZIP archive in the ELF section "US_RESOURCES" of a shared
/// object, without loading it. Throws `std::runtime_error` that tells what is wrong with the file; its name
/// is added by the caller.
BundleResource readBundleResource(const std::filesystem::path& file);

}  // namespace cppmicroservices::detail
