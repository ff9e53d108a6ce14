#pragma once

#include <pybind11/pybind11.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace yvm::engine {

/// The 16-bit text of a Python string. Lone surrogates stay what they are. With the GIL held. Throws
/// Python's TypeError when `text` is no `str`.
std::u16string toUtf16(pybind11::handle text);

/// The characters of a Python string that has none beyond Latin-1; empty for any other object. With the GIL
/// held, and to be used while the string lives.
std::optional<std::basic_string_view<unsigned char>> asLatin1(pybind11::handle text) noexcept;

/// The 16-bit text of a Python string in pieces, without a copy of the whole.
///
/// Made with the GIL held; throws Python's TypeError when `text` is no `str`. Whoever makes it keeps the
/// string, which never changes: so it is read without the GIL.
class PythonTextPieces {
  public:
    /// No piece is longer than `size` units, which is at least 2. No pair of surrogates is cut.
    PythonTextPieces(pybind11::handle text, std::size_t size);

    void forEach(const std::function<void(std::u16string_view)>& take) const;

  private:
    const int kind_;
    const void* const data_;
    const std::size_t length_;
    const std::size_t size_;
};

/// The text as UTF-8; each lone surrogate becomes U+FFFD.
std::string toUtf8(pybind11::handle text);

/// A Python string; pairs of surrogates become one character, lone ones stay what they are.
pybind11::str toPythonText(std::u16string_view text);

}  // namespace yvm::engine
