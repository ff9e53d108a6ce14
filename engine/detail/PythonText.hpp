#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>

namespace yvm::engine {

/// The 16-bit text of a Python string. Lone surrogates stay what they are. With the GIL held. Throws
/// Python's TypeError when `text` is no `str`.
std::u16string toUtf16(pybind11::handle text);

/// The text as UTF-8; each lone surrogate becomes U+FFFD.
std::string toUtf8(pybind11::handle text);

/// A Python string; pairs of surrogates become one character, lone ones stay what they are.
pybind11::str toPythonText(std::u16string_view text);

}  // namespace yvm::engine
