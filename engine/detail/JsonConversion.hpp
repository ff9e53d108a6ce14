#pragma once

#include "foundation/json/Value.hpp"

#include <pybind11/pybind11.h>

namespace yvm::engine {

/// The JSON of what Python's `json` module reads: None, bool, int, float, str, list and dict with keys of
/// str. An int beyond 64 bits becomes the nearest double, as it does for whoever reads it in JavaScript.
/// With the GIL held. Throws Python's TypeError for a value of another type, and RecursionError.
foundation::json::Value toJson(pybind11::handle value);

}  // namespace yvm::engine
