#include "cppmicroservices/ServiceProperties.hpp"

#include "cppmicroservices/detail/asciiCase.hpp"

namespace cppmicroservices {

const Any* findProperty(const ServiceProperties& properties, std::string_view name) noexcept {
    const auto found = std::ranges::find_if(
        properties, [name](const auto& property) { return detail::equalIgnoringCase(property.first, name); });
    return found != properties.end() ? &found->second : nullptr;
}

}  // namespace cppmicroservices
