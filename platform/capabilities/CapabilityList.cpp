#include "capabilities/CapabilityList.hpp"

namespace capabilities {

CapabilityList CapabilityList::fromStringVector(const std::vector<std::string>& names) {
    CapabilityList list;
    list.unrestricted_ = false;
    list.names_.insert(names.begin(), names.end());
    return list;
}

bool CapabilityList::allows(std::string_view name) const {
    return unrestricted_ || names_.contains(name);
}

}  // namespace capabilities
