#pragma once

#include <cstdint>

namespace foundation::yorlabjson {

/// How arrays are written as JSON; the numbers are fixed.
enum class ToJsonMode : std::int32_t {
    /// Every array as an object with `ywtype`, `ywsize` and `ywdata`; only null stays null.
    alwaysYDALong = 0,
    /// Where one exists, the plain JSON value.
    preferYDAShort = 1,
};

/// How numbers that are not finite are written. There is one way: as the strings "NaN", "Inf" and "-Inf".
enum class NanType : std::int32_t { text = 0 };

}  // namespace foundation::yorlabjson
