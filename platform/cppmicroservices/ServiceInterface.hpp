#pragma once

#include <string>
#include <typeinfo>

namespace cppmicroservices {
namespace detail {

/// The qualified name of a type as the source spells it, for example "yvm::YVM".
std::string GetDemangledName(const std::type_info& type);

/// Throws `ServiceException` "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE
/// macro" if the id is empty.
void requireInterfaceId(const std::string& interfaceId);

}  // namespace detail

/// The id of a service interface: the qualified name of its class. `void` stands for no interface and has
/// an empty id.
template <typename Interface>
const std::string& us_service_interface_iid() {
    static const std::string id = detail::GetDemangledName(typeid(Interface));
    return id;
}

template <>
const std::string& us_service_interface_iid<void>();

}  // namespace cppmicroservices
