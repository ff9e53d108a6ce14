#include "engine/detail/CodeLines.hpp"

#include <algorithm>

namespace yvm::engine {

namespace py = pybind11;

namespace {

/// Of the instruction that begins the function's work, in code units; what stands before it is not traced.
int firstTraced(py::handle code) {
    return reinterpret_cast<PyCodeObject*>(code.ptr())->_co_firsttraceable;
}

}  // namespace

std::vector<int> tracedLines(py::handle code) {
    const int firstByte = (firstTraced(code) + 1) * static_cast<int>(sizeof(_Py_CODEUNIT));
    std::vector<int> lines;
    for (const py::handle item : py::iter(code.attr("co_lines")())) {
        const auto range = py::reinterpret_borrow<py::tuple>(item);
        if (range[1].cast<int>() > firstByte && !range[2].is_none() && range[2].cast<int>() > 0) {
            lines.push_back(range[2].cast<int>());
        }
    }
    std::sort(lines.begin(), lines.end());
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    return lines;
}

std::optional<std::pair<int, int>> startOfBody(py::handle code) {
    int index = 0;
    for (const py::handle item : py::iter(code.attr("co_positions")())) {
        const auto position = py::reinterpret_borrow<py::tuple>(item);
        if (index++ > firstTraced(code) && !position[0].is_none() && !position[2].is_none()) {
            return std::pair(position[0].cast<int>(), position[2].cast<int>());
        }
    }
    return std::nullopt;
}

void forEachCode(py::handle code, const std::function<void(py::handle)>& visit) {
    visit(code);
    for (const py::handle constant : py::reinterpret_borrow<py::tuple>(code.attr("co_consts"))) {
        if (PyCode_Check(constant.ptr())) {
            forEachCode(constant, visit);
        }
    }
}

bool isLambda(py::handle code) {
    return PyUnicode_CompareWithASCIIString(reinterpret_cast<PyCodeObject*>(code.ptr())->co_name,
                                            "<lambda>") == 0;
}

}  // namespace yvm::engine
