#pragma once

#include "cmddistributor/RuntimeException.hpp"
#include "engine/detail/DebugPrompt.hpp"

#include <pybind11/pybind11.h>

#include <utility>
#include <vector>

namespace yvm::engine {

// What the debugger asks of Python's frames. With the GIL held.

using DebugFrames = std::vector<DebugPrompt::Frame>;

inline pybind11::object codeOf(PyFrameObject* frame) {
    return pybind11::reinterpret_steal<pybind11::object>(reinterpret_cast<PyObject*>(PyFrame_GetCode(frame)));
}

inline PyCodeObject* raw(const pybind11::object& code) {
    return reinterpret_cast<PyCodeObject*>(code.ptr());
}

inline pybind11::object objectOf(PyFrameObject* frame) {
    return pybind11::reinterpret_borrow<pybind11::object>(reinterpret_cast<PyObject*>(frame));
}

/// Null for the outermost one, and where there is no memory to tell.
pybind11::object callerOf(PyFrameObject* frame);

/// Whether this is the engine's own code, or that of Python which has no source to show.
bool isHidden(const pybind11::object& code);

/// The opcode and the argument of the instruction that the frame has begun; -1 where there is none, or no
/// memory to tell.
std::pair<int, int> instructionOf(PyFrameObject* frame);

/// The frames from this one, maybe null, out to that of `beneath` without it; innermost last, and none that
/// are hidden.
DebugFrames framesFrom(PyFrameObject* innermost, const PyFrameObject* beneath);
/// Those that an exception has left, by its traceback, which may be None; innermost last, and none that are
/// hidden. Throws Python's exceptions.
DebugFrames framesOf(pybind11::handle traceback);

/// As people read them; empty when there is no memory for it.
std::vector<cmddistributor::StackFrame> describe(const DebugFrames& frames);

}  // namespace yvm::engine
