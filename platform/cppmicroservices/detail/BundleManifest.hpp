#pragma once

#include "cppmicroservices/ServiceProperties.hpp"
#include "foundation/json/Value.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cppmicroservices::detail {

/// One entry of a manifest's `scr.components`.
struct ComponentDescription {
    std::string implementationClass;
    std::vector<std::string> interfaces;
    ServiceProperties properties;
    /// Set for a deferred component only, and then not empty.
    std::optional<std::vector<std::string>> startTriggers;
};

/// What a plug-in says of itself. A dot in a key named here may be a part of the key or stand for nesting:
///
///     {"bundle.symbolic_name": "com_yorworks_X",
///      "scr": {"version": 1, "components": [
///        {"implementation-class": "a::B", "service": {"interfaces": ["a::C"]},
///         "properties": {"yw": {"embeddedConnector": {"startTriggers": {
///           "messageServiceChannels": ["/a/*"]}}}}}]}}
///
/// Without `scr`, a bundle has no components.
struct BundleManifest {
    std::string symbolicName;
    std::vector<ComponentDescription> components;
    foundation::json::Object json;
};

/// Reads the manifest out of a plug-in without loading it. Throws `std::runtime_error` "cannot install the
/// bundle '<file>': " and what is wrong.
BundleManifest readBundleManifest(const std::filesystem::path& file);

}  // namespace cppmicroservices::detail
