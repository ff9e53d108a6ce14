#pragma once

#include "cppmicroservices/Framework.hpp"
#include "fl/filesystem/basic_path.hpp"

#include <memory>
#include <vector>

namespace foundation::cppmicroservices {

// Inside this namespace the framework's own has to be named from the root.

/// The framework of this process; empty if there is none. Safe for use from any thread.
std::shared_ptr<::cppmicroservices::Framework> getFramework();

/// Called by the host, or a test, with a framework that is started; with an empty pointer before the
/// framework is destroyed. Safe for use from any thread.
void setFramework(std::shared_ptr<::cppmicroservices::Framework> framework);

/// Installs and starts the bundle of the module at `path`, which may lack its ending ".so", and returns it.
/// A module that is started already is only returned. Throws `std::runtime_error` if there is no framework,
/// and as `BundleContext::InstallBundles` and `Bundle::Start`; a later call tries again.
std::vector<::cppmicroservices::Bundle> installAndStart(const fl::filesystem::basic_path& path);

}  // namespace foundation::cppmicroservices
