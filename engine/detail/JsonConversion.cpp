#include "engine/detail/JsonConversion.hpp"

#include "engine/detail/PythonText.hpp"

#include <cstdint>
#include <string>
#include <utility>

namespace yvm::engine {

namespace py = pybind11;
namespace json = foundation::json;

namespace {

/// Bounds the depth of calls as Python does it for its own.
class PythonRecursion {
  public:
    PythonRecursion() {
        if (Py_EnterRecursiveCall(" while a value is turned into JSON") != 0) {
            throw py::error_already_set();
        }
    }
    ~PythonRecursion() { Py_LeaveRecursiveCall(); }
    PythonRecursion(const PythonRecursion&) = delete;
    PythonRecursion& operator=(const PythonRecursion&) = delete;
};

json::Value toNumber(py::handle value) {
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow == 0) {
        return std::int64_t{number};
    }
    const double nearest = PyLong_AsDouble(value.ptr());
    if (nearest == -1.0 && PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    return nearest;
}

}  // namespace

json::Value toJson(py::handle value) {
    if (value.is_none()) {
        return json::Null();
    }
    if (PyBool_Check(value.ptr())) {
        return value.ptr() == Py_True;
    }
    if (PyLong_Check(value.ptr())) {
        return toNumber(value);
    }
    if (PyFloat_Check(value.ptr())) {
        return PyFloat_AS_DOUBLE(value.ptr());
    }
    if (PyUnicode_Check(value.ptr())) {
        return toUtf8(value);
    }
    const PythonRecursion recursion;
    if (PyList_Check(value.ptr())) {
        json::Array array;
        for (const py::handle item : py::reinterpret_borrow<py::list>(value)) {
            array.push_back(toJson(item));
        }
        return array;
    }
    if (PyDict_Check(value.ptr())) {
        json::Object object;
        for (const auto& [key, item] : py::reinterpret_borrow<py::dict>(value)) {
            object.insert_or_assign(toUtf8(key), toJson(item));
        }
        return object;
    }
    throw py::type_error(std::string("a value of type ") + Py_TYPE(value.ptr())->tp_name +
                         " stands in JSON, where None, bool, int, float, str, list and dict are accepted");
}

}  // namespace yvm::engine
