#include "engine/detail/ArrayConversion.hpp"

#include "engine/detail/PythonText.hpp"
#include "engine/detail/ReleaseQueue.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"

#include <pybind11/complex.h>
#include <pybind11/numpy.h>

#include <complex>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace yvm::engine {

namespace py = pybind11;
using foundation::yorlabdata::Array;
using foundation::yorlabdata::ArrayFactory;
using foundation::yorlabdata::Kind;
using foundation::yorlabdata::List;
using foundation::yorlabdata::Record;
using foundation::yorlabdata::Shape;

namespace {

constexpr int maxDepth = 200;

constexpr const char* acceptedDtypes =
    "float16, float32, float64, int8 to int64, uint8 to uint64, bool, complex64 and complex128 are accepted";

/// Gives the reference back by way of the queue, on whatever thread the last holder dies.
struct LentArray {
    std::shared_ptr<ReleaseQueue> releases;
    PyObject* array;
    void operator()(const void*) const { releases->put(array); }
};

py::dtype dtypeOf(Kind kind) {
    const std::string name(foundation::yorlabdata::nameOf(kind));
    return py::dtype(name == "bool" ? std::string("?") : name);
}

std::optional<Kind> kindOfDtype(char kind, py::ssize_t size) {
    switch (kind) {
        case 'b':
            return Kind::boolean;
        case 'f':
            return size == 8   ? std::optional(Kind::float64)
                   : size == 4 ? std::optional(Kind::float32)
                               : std::nullopt;
        case 'c':
            return size == 16  ? std::optional(Kind::complex128)
                   : size == 8 ? std::optional(Kind::complex64)
                               : std::nullopt;
        case 'i':
        case 'u': {
            const std::string name = (kind == 'i' ? "int" : "uint") + std::to_string(size * 8);
            return foundation::yorlabdata::kindNamed(name);
        }
        default:
            return std::nullopt;
    }
}

std::string typeName(py::handle value) {
    return toUtf8(py::type::handle_of(value).attr("__qualname__"));
}

py::object scalarToPython(const Array& array) {
    switch (array.kind()) {
        case Kind::float64:
            return py::float_(*array.data<double>());
        case Kind::int64:
            return py::int_(*array.data<std::int64_t>());
        case Kind::boolean:
            return py::bool_(*array.data<std::uint8_t>() != 0);
        case Kind::complex128:
            return py::cast(*array.data<std::complex<double>>());
        default: {
            // A copy of one element; indexing with an empty tuple makes it a NumPy scalar.
            const py::array element(dtypeOf(array.kind()), std::vector<py::ssize_t>{}, array.data());
            return element[py::tuple()];
        }
    }
}

py::object numericToPython(const Array& array) {
    const Shape shape = array.shape();
    if (shape.empty()) {
        return scalarToPython(array);
    }
    auto memory = array.buffer();
    // The array's own reference and this one. Memory that NumPy lent is somebody's array already.
    const bool isWritable = memory.use_count() == 2 && std::get_deleter<LentArray>(memory) == nullptr;
    auto* owner = new std::shared_ptr<const void>(std::move(memory));
    const py::capsule keeper(
        owner, [](void* pointer) { delete static_cast<std::shared_ptr<const void>*>(pointer); });
    py::array result(dtypeOf(array.kind()), std::vector<py::ssize_t>(shape.begin(), shape.end()),
                     array.data(), keeper);
    if (!isWritable) {
        result.attr("flags").attr("writeable") = false;
    }
    return result;
}

Array integerFromPython(py::handle value) {
    const ArrayFactory factory;
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow == 0) {
        if (number == -1 && PyErr_Occurred() != nullptr) {
            throw py::error_already_set();
        }
        return factory.createScalar(static_cast<std::int64_t>(number));
    }
    if (overflow > 0) {
        const unsigned long long large = PyLong_AsUnsignedLongLong(value.ptr());
        if (PyErr_Occurred() == nullptr) {
            return factory.createScalar(static_cast<std::uint64_t>(large));
        }
        PyErr_Clear();
    }
    throw ConversionError(
        "an int that needs more than 64 bits cannot be handed to a client: -2**63 to 2**64-1 are accepted");
}

}  // namespace

py::object ArrayConversion::toPython(const Array& array) const {
    switch (array.kind()) {
        case Kind::null:
            return py::none();
        case Kind::text:
            return toPythonText(array.text());
        case Kind::list: {
            py::list result;
            for (const Array& element : array.list()) {
                result.append(toPython(element));
            }
            return result;
        }
        case Kind::record: {
            py::dict result;
            for (const auto& [key, member] : array.record()) {
                result[toPythonText(fl::i18n::to_ustring(key))] = toPython(member);
            }
            return result;
        }
        default:
            return numericToPython(array);
    }
}

Array ArrayConversion::fromPython(py::handle value, int depth) const {
    if (depth > maxDepth) {
        throw ConversionError("a value nested more than " + std::to_string(maxDepth) +
                              " levels deep, perhaps within itself, cannot be handed to a client");
    }
    const ArrayFactory factory;
    PyObject* const object = value.ptr();
    if (value.is_none()) {
        return {};
    }
    if (PyBool_Check(object)) {
        return factory.createScalar(object == Py_True);
    }
    if (PyUnicode_Check(object)) {
        return Array(toUtf16(value));
    }
    // NumPy's float64 and complex128 are subclasses of Python's types.
    if (!PyLong_CheckExact(object) && !PyFloat_CheckExact(object) && py::hasattr(value, "dtype")) {
        return fromNumPy(value);
    }
    if (PyLong_Check(object)) {
        return integerFromPython(value);
    }
    if (PyFloat_Check(object)) {
        return factory.createScalar(PyFloat_AS_DOUBLE(object));
    }
    if (PyComplex_Check(object)) {
        return factory.createScalar(
            std::complex<double>(PyComplex_RealAsDouble(object), PyComplex_ImagAsDouble(object)));
    }
    if (PyList_Check(object) || PyTuple_Check(object)) {
        List list;
        // Owned each while it is converted: that may run code of the user, which may change the list.
        for (const py::object element : py::reinterpret_borrow<py::sequence>(value)) {
            list.push_back(fromPython(element, depth + 1));
        }
        return Array(std::move(list));
    }
    if (PyDict_Check(object)) {
        Record record;
        const auto copy = py::reinterpret_steal<py::dict>(PyDict_Copy(object));
        if (!copy) {
            throw py::error_already_set();
        }
        for (const auto& [key, member] : copy) {
            if (!PyUnicode_Check(key.ptr())) {
                throw ConversionError("a dict with a key of type " + typeName(key) +
                                      " cannot be handed to a client: keys of type str are accepted");
            }
            record.emplace_back(toUtf8(key), fromPython(member, depth + 1));
        }
        return Array(std::move(record));
    }
    throw ConversionError(
        "a value of type " + typeName(value) +
        " cannot be handed to a client: None, bool, int, float, complex, str, list, tuple, dict "
        "and NumPy arrays and scalars are accepted");
}

Array ArrayConversion::fromNumPy(py::handle value) const {
    const py::module_ numpy = py::module_::import("numpy");
    const bool isArray = py::isinstance<py::array>(value);
    if (!isArray && !py::isinstance(value, numpy.attr("generic"))) {
        throw ConversionError("a value of type " + typeName(value) +
                              " cannot be handed to a client: convert it to a NumPy array first");
    }
    if (py::isinstance(value, numpy.attr("ma").attr("MaskedArray"))) {
        throw ConversionError(
            "a masked array cannot be handed to a client, since its mask would be lost: fill it first");
    }
    auto array = py::reinterpret_borrow<py::array>(numpy.attr("asarray")(value));
    if (array.dtype().kind() == 'f' && array.itemsize() == 2) {
        array = array.attr("astype")("float32");
    }
    const auto kind = kindOfDtype(array.dtype().kind(), array.itemsize());
    if (!kind) {
        throw ConversionError("a NumPy array of dtype " + toUtf8(py::str(array.dtype())) +
                              " cannot be handed to a client: " + acceptedDtypes);
    }
    const py::object nativeOrder = array.dtype().attr("newbyteorder")("=");
    array = numpy.attr("require")(array, nativeOrder, "CA");
    const Shape shape(array.shape(), array.shape() + array.ndim());
    const void* memory = array.data();
    return Array(*kind, shape,
                 std::shared_ptr<const void>(memory, LentArray{releases_, array.release().ptr()}));
}

}  // namespace yvm::engine
