#pragma once

#include "foundation/json/Value.hpp"

#include <string_view>

namespace cppmicroservices {

/// One property value. Manifests are JSON, so are the properties that come out of them and the ones that
/// code gives.
using Any = foundation::json::Value;

/// Properties of a service by name, for example `{{"user-yvm", true}}`. Names are looked up without
/// regard to case. The framework adds "objectClass", the array of the interface ids, and "service.id", a
/// number that counts registrations from 1.
using ServiceProperties = foundation::json::Object;

/// The property of that name, letter case aside; null if there is none.
const Any* findProperty(const ServiceProperties& properties, std::string_view name) noexcept;

}  // namespace cppmicroservices
