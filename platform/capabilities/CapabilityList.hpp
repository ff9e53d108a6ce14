#pragma once

#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace capabilities {

/// What a command may make use of. A value.
///
/// A default-constructed list allows everything. A list made from names allows those alone, so that
/// an empty list of names allows nothing. Names that nobody asks for have no effect. The engine asks
/// for "input" (reading a line from the client), "debugger" and "figures".
class CapabilityList {
  public:
    CapabilityList() = default;

    static CapabilityList fromStringVector(const std::vector<std::string>& names);

    bool allows(std::string_view name) const;
    bool isUnrestricted() const noexcept { return unrestricted_; }

    friend bool operator==(const CapabilityList&, const CapabilityList&) = default;

  private:
    bool unrestricted_ = true;
    std::set<std::string, std::less<>> names_;
};

}  // namespace capabilities
