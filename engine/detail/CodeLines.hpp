#pragma once

#include <pybind11/pybind11.h>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace yvm::engine {

// What the debugger asks of compiled code. With the GIL held; throw Python's exceptions.

/// The lines on which a trace function is told of this code itself, without the functions in it, in order.
std::vector<int> tracedLines(pybind11::handle code);

/// Line and column, of its first instruction that stands in the source. Tells lambdas of one line apart,
/// which share names and first lines.
std::optional<std::pair<int, int>> startOfBody(pybind11::handle code);

/// Calls `visit` for the code and for all functions, classes and comprehensions in it.
void forEachCode(pybind11::handle code, const std::function<void(pybind11::handle)>& visit);

bool isLambda(pybind11::handle code);

}  // namespace yvm::engine
