#include "cppmicroservices/ServiceInterface.hpp"

#include "cppmicroservices/ServiceException.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace cppmicroservices {

std::string detail::GetDemangledName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return name != nullptr ? name.get() : type.name();
}

void detail::requireInterfaceId(const std::string& interfaceId) {
    if (interfaceId.empty()) {
        throw ServiceException(
            "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
    }
}

template <>
const std::string& us_service_interface_iid<void>() {
    static const std::string none;
    return none;
}

}  // namespace cppmicroservices
