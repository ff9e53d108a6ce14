#include "engine/detail/DebugFrames.hpp"

#include "engine/detail/PythonText.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

namespace yvm::engine {

namespace py = pybind11;

namespace {

/// A new object, or Python's error. What makes the objects of pybind11 has a failure of Python taken for its
/// own.
py::object made(PyObject* object) {
    if (object == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(object);
}

}  // namespace

py::object callerOf(PyFrameObject* frame) {
    auto* const caller = reinterpret_cast<PyObject*>(PyFrame_GetBack(frame));
    if (caller == nullptr) {
        PyErr_Clear();
    }
    return py::reinterpret_steal<py::object>(caller);
}

bool isHidden(const py::object& code) {
    // Without a text of Python's, for which there may be no memory.
    const auto startsWith = [name = raw(code)->co_filename](std::string_view start) {
        for (std::size_t i = 0; i < start.size(); ++i) {
            const auto at = static_cast<Py_ssize_t>(i);
            if (at >= PyUnicode_GET_LENGTH(name) ||
                PyUnicode_ReadChar(name, at) != static_cast<Py_UCS4>(start[i])) {
                return false;
            }
        }
        return true;
    };
    return startsWith("<yvm") || startsWith("<frozen ");
}

std::pair<int, int> instructionOf(PyFrameObject* frame) {
    const auto code = codeOf(frame);
    const auto bytes = py::reinterpret_steal<py::object>(PyCode_GetCode(raw(code)));
    const int at = PyFrame_GetLasti(frame);
    if (!bytes || at < 0 || at + 1 >= PyBytes_GET_SIZE(bytes.ptr())) {
        PyErr_Clear();
        return {-1, 0};
    }
    const auto* const text = reinterpret_cast<const unsigned char*>(PyBytes_AS_STRING(bytes.ptr()));
    return {text[at], text[at + 1]};
}

DebugFrames framesFrom(PyFrameObject* innermost, const PyFrameObject* beneath) {
    DebugFrames frames;
    py::object frame = innermost != nullptr ? objectOf(innermost) : py::object();
    while (frame && reinterpret_cast<PyFrameObject*>(frame.ptr()) != beneath) {
        auto* const rawFrame = reinterpret_cast<PyFrameObject*>(frame.ptr());
        auto code = codeOf(rawFrame);
        if (!isHidden(code)) {
            frames.push_back({frame, std::move(code), PyFrame_GetLineNumber(rawFrame)});
        }
        frame = callerOf(rawFrame);
    }
    std::reverse(frames.begin(), frames.end());
    return frames;
}

DebugFrames framesOf(py::handle traceback) {
    DebugFrames frames;
    for (auto entry = py::reinterpret_borrow<py::object>(traceback); !entry.is_none();
         entry = entry.attr("tb_next")) {
        const py::object frame = entry.attr("tb_frame");
        py::object code = frame.attr("f_code");
        if (!isHidden(code)) {
            const py::object line = entry.attr("tb_lineno");
            frames.push_back({frame, std::move(code), line.is_none() ? 0 : line.cast<int>()});
        }
    }
    return frames;
}

std::vector<cmddistributor::StackFrame> describe(const DebugFrames& frames) {
    std::vector<cmddistributor::StackFrame> described;
    try {
        const auto places = made(PyList_New(static_cast<Py_ssize_t>(frames.size())));
        for (std::size_t i = 0; i < frames.size(); ++i) {
            auto place = made(Py_BuildValue("(Oi)", frames[i].code.ptr(), frames[i].line));
            PyList_SET_ITEM(places.ptr(), static_cast<Py_ssize_t>(i), place.release().ptr());
        }
        const auto describeFrames = py::module_::import("yvm._debugging").attr("describe_frames");
        for (const py::handle item : py::list(describeFrames(places))) {
            const auto place = py::reinterpret_borrow<py::tuple>(item);
            described.push_back(
                {toUtf8(place[0]), toUtf8(place[1]), place[2].cast<std::uint64_t>(), toUtf8(place[3])});
        }
    } catch (const std::exception&) {
        // Out of memory. It is better to stop without than not at all.
        PyErr_Clear();
        described.clear();
    }
    return described;
}

}  // namespace yvm::engine
