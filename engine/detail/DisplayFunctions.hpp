#pragma once

#include <pybind11/pybind11.h>

namespace yvm::engine {

class EngineEvents;

/// Adds to `module` the functions by which the engine's Python side tells clients of displayed values,
/// figures, progress and the workspace. `events` must outlive the use of the interpreter. With the GIL held.
void addDisplayFunctions(pybind11::module_& module, EngineEvents& events);

}  // namespace yvm::engine
