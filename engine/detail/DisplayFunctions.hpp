#pragma once

#include <pybind11/pybind11.h>

namespace yvm::engine {

class EngineThread;

/// Adds to `module` the functions by which the engine's Python side tells clients of displayed values,
/// figures, progress and the workspace. `engine` must outlive the use of the interpreter. With the GIL held.
void addDisplayFunctions(pybind11::module_& module, EngineThread& engine);

}  // namespace yvm::engine
