#include "engine/detail/ImportFrames.hpp"

namespace yvm::engine {

namespace py = pybind11;

// By the interpreter's own interface, as a deep recursion has many frames.

bool isOfImportSystem(PyFrameObject* frame) {
    const auto code = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(PyFrame_GetCode(frame)));
    auto* const file = reinterpret_cast<PyCodeObject*>(code.ptr())->co_filename;
    return PyUnicode_CompareWithASCIIString(file, "<frozen importlib._bootstrap>") == 0 ||
           PyUnicode_CompareWithASCIIString(file, "<frozen importlib._bootstrap_external>") == 0;
}

bool isInImport(py::object frame, const PyFrameObject* beneath) {
    while (frame && !frame.is_none()) {
        auto* const raw = reinterpret_cast<PyFrameObject*>(frame.ptr());
        if (raw == beneath) {
            return false;
        }
        if (isOfImportSystem(raw)) {
            return true;
        }
        frame = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(PyFrame_GetBack(raw)));
    }
    return false;
}

}  // namespace yvm::engine
