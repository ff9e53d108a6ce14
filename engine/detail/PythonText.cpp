#include "engine/detail/PythonText.hpp"

#include "fl/i18n/ustring.hpp"

#include <algorithm>
#include <cstdint>

namespace yvm::engine {

namespace py = pybind11;

namespace {

/// Makes the string's data readable.
py::handle checkText(py::handle text) {
    if (!PyUnicode_Check(text.ptr())) {
        PyErr_Format(PyExc_TypeError, "a value of type %.200s stands where a str is needed",
                     Py_TYPE(text.ptr())->tp_name);
        throw py::error_already_set();
    }
    if (PyUnicode_READY(text.ptr()) != 0) {
        throw py::error_already_set();
    }
    return text;
}

/// As 16-bit units.
void encode(const Py_UCS4* characters, std::size_t count, std::u16string& result) {
    result.clear();
    result.reserve(count + count / 2);
    for (std::size_t i = 0; i < count; ++i) {
        const Py_UCS4 character = characters[i];
        if (character > 0xFFFF) {
            result += Py_UNICODE_HIGH_SURROGATE(character);
            result += Py_UNICODE_LOW_SURROGATE(character);
        } else {
            result += static_cast<char16_t>(character);
        }
    }
}

}  // namespace

std::u16string toUtf16(py::handle text) {
    checkText(text);
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
            std::u16string result;
            encode(PyUnicode_4BYTE_DATA(text.ptr()), length, result);
            return result;
        }
    }
}

std::optional<std::basic_string_view<unsigned char>> asLatin1(py::handle text) noexcept {
    if (!PyUnicode_Check(text.ptr()) || !PyUnicode_IS_READY(text.ptr()) ||
        PyUnicode_KIND(text.ptr()) != PyUnicode_1BYTE_KIND) {
        return std::nullopt;
    }
    return std::basic_string_view<unsigned char>(PyUnicode_1BYTE_DATA(text.ptr()),
                                                 static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.ptr())));
}

PythonTextPieces::PythonTextPieces(py::handle text, std::size_t size)
    : kind_(PyUnicode_KIND(checkText(text).ptr())),
      data_(PyUnicode_DATA(text.ptr())),
      length_(static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.ptr()))),
      size_(size) {}

void PythonTextPieces::forEach(const std::function<void(std::u16string_view)>& take) const {
    // A character beyond 16 bits makes two units.
    const std::size_t step = kind_ == PyUnicode_4BYTE_KIND ? size_ / 2 : size_;
    std::u16string piece;
    for (std::size_t begin = 0; begin < length_;) {
        const std::size_t count = std::min(step, length_ - begin);
        if (kind_ == PyUnicode_1BYTE_KIND) {
            const auto* units = static_cast<const Py_UCS1*>(data_) + begin;
            piece.assign(units, units + count);
        } else if (kind_ == PyUnicode_2BYTE_KIND) {
            const auto* units = static_cast<const Py_UCS2*>(data_) + begin;
            piece.assign(units, units + count);
        } else {
            encode(static_cast<const Py_UCS4*>(data_) + begin, count, piece);
        }
        begin += count;
        take(piece);
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
