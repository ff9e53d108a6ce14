#include "engine/detail/CommandIsolation.hpp"

#include <cstddef>
#include <string>

namespace yvm::engine {

namespace py = pybind11;

namespace {

struct Name {
    explicit Name(const char* name)
        : used(PyUnicode_InternFromString(name)),
          original(PyUnicode_InternFromString(("__" + std::string(name) + "__").c_str())) {}
    PyObject* used;
    PyObject* original;
};

/// The interpreter's own table of `sys`, which knows no error when a user has deleted a name, and names that
/// are there already: these must not be lost where memory is short. Never given back.
struct Table {
    PyObject* sys = py::module_::import("sys").attr("__dict__").cast<py::object>().release().ptr();
    std::array<Name, 4> names{Name("stdin"), Name("stdout"), Name("stderr"), Name("displayhook")};
};

const Table& table() {
    static const Table made;
    return made;
}

py::object get(PyObject* name) {
    return py::reinterpret_borrow<py::object>(PyDict_GetItem(table().sys, name));
}

void set(PyObject* name, const py::object& value) {
    const int failed = value ? PyDict_SetItem(table().sys, name, value.ptr())
                             : (get(name) ? PyDict_DelItem(table().sys, name) : 0);
    if (failed != 0) {
        PyErr_Clear();
    }
}

}  // namespace

CommandIsolation::CommandIsolation(Beneath beneath)
    : beneath_(beneath), handledException_(py::reinterpret_steal<py::object>(PyErr_GetHandledException())) {
    if (beneath_ == Beneath::ACommand) {
        for (std::size_t i = 0; i < redirections_.size(); ++i) {
            const auto& name = table().names[i];
            redirections_[i] = get(name.used);
            set(name.used, get(name.original));
        }
    }
    // Behind what may throw, as the destructor does not run then.
    PyErr_SetHandledException(nullptr);
}

CommandIsolation::~CommandIsolation() {
    if (beneath_ == Beneath::ACommand) {
        for (std::size_t i = 0; i < redirections_.size(); ++i) {
            set(table().names[i].used, redirections_[i]);
        }
    }
    PyErr_SetHandledException(handledException_.ptr());
}

}  // namespace yvm::engine
