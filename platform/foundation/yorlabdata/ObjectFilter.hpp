#pragma once

#include <cstdint>

namespace foundation::yorlabdata {

/// Which objects of the engine a conversion to JSON leaves out. There is nothing to leave out.
enum class ObjectFilter : std::int32_t { none = 0 };

}  // namespace foundation::yorlabdata
