#include "engine/detail/FrameScope.hpp"

#include <utility>

namespace yvm::engine {

namespace py = pybind11;

FrameScope::FrameScope(py::object frame) : frame_(std::move(frame)) {
    auto* const rawFrame = reinterpret_cast<PyFrameObject*>(frame_.ptr());
    globals_ = py::reinterpret_steal<py::object>(PyFrame_GetGlobals(rawFrame));
    locals_ = py::reinterpret_steal<py::object>(PyFrame_GetLocals(rawFrame));
    if (!locals_) {
        throw py::error_already_set();
    }
}

FrameScope::~FrameScope() {
    if (frame_) {
        store();
    }
}

void FrameScope::store() const {
    PyFrame_LocalsToFast(reinterpret_cast<PyFrameObject*>(frame_.ptr()), 1);
}

}  // namespace yvm::engine
