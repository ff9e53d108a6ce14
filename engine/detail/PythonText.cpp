#include "engine/detail/PythonText.hpp"

#include "fl/i18n/ustring.hpp"

#include <cstdint>

namespace yvm::engine {

namespace py = pybind11;

std::u16string toUtf16(py::handle text) {
    if (!PyUnicode_Check(text.ptr())) {
        PyErr_Format(PyExc_TypeError, "a value of type %.200s stands where a str is needed",
                     Py_TYPE(text.ptr())->tp_name);
        throw py::error_already_set();
    }
    if (PyUnicode_READY(text.ptr()) != 0) {
        throw py::error_already_set();
    }
    const auto length = static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.ptr()));
    switch (PyUnicode_KIND(text.ptr())) {
        case PyUnicode_1BYTE_KIND: {
            const Py_UCS1* units = PyUnicode_1BYTE_DATA(text.ptr());
            return {units, units + length};
        }
        case PyUnicode_2BYTE_KIND: {
            const Py_UCS2* units = PyUnicode_2BYTE_DATA(text.ptr());
            return {units, units + length};
        }
        default: {
            const Py_UCS4* characters = PyUnicode_4BYTE_DATA(text.ptr());
            std::u16string result;
            result.reserve(length + length / 2);
            for (std::size_t i = 0; i < length; ++i) {
                const Py_UCS4 character = characters[i];
                if (character > 0xFFFF) {
                    result += Py_UNICODE_HIGH_SURROGATE(character);
                    result += Py_UNICODE_LOW_SURROGATE(character);
                } else {
                    result += static_cast<char16_t>(character);
                }
            }
            return result;
        }
    }
}

std::string toUtf8(py::handle text) {
    return fl::i18n::to_string(toUtf16(text));
}

py::str toPythonText(std::u16string_view text) {
    int littleEndian = -1;
    PyObject* result = PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text.data()),
                                             static_cast<Py_ssize_t>(text.size() * sizeof(char16_t)),
                                             "surrogatepass", &littleEndian);
    if (result == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(result);
}

}  // namespace yvm::engine
