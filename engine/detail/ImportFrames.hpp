#pragma once

#include <pybind11/pybind11.h>

namespace yvm::engine {

/// Whether this is code of Python's import system itself, and not of a module that is being imported.
///
/// An exception out of nowhere could come between its taking a lock and the `try` that gives it back, and
/// no other thread could import or fork any more.
bool isOfImportSystem(PyFrameObject* frame);

/// Whether code of the import system is `frame` or below it, down to `beneath` without that: it holds locks
/// of modules that are half made.
bool isInImport(pybind11::object frame, const PyFrameObject* beneath);

}  // namespace yvm::engine
