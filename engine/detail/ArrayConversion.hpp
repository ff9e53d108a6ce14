#pragma once

#include "foundation/yorlabdata/Array.hpp"

#include <pybind11/pybind11.h>

#include <memory>
#include <stdexcept>

namespace yvm::engine {

class ReleaseQueue;

/// Why a value cannot cross between Python and a client: which value, and what is accepted.
class ConversionError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Values between the engine's clients and Python. On a thread that holds the GIL.
///
/// | Array                                  | Python                                                        |
/// |----------------------------------------|---------------------------------------------------------------|
/// | null                                   | None                                                          |
/// | float64, bool, complex128, int64 scalar| float, bool, complex, int                                     |
/// | scalar of another kind                 | NumPy scalar of that type; an int beyond int64 is uint64      |
/// | numeric with a shape                   | `numpy.ndarray` over the same memory                          |
/// | text                                   | str                                                           |
/// | list                                   | list; from Python also tuple                                  |
/// | record                                 | dict with keys of text                                        |
///
/// An array that comes in may be written to when nobody else holds its memory, else it is read-only. A
/// NumPy array that goes out is shared when it lies in C order, aligned and in the machine's byte order, and
/// copied otherwise; whoever writes into a shared one afterwards changes what the client gets. float16 goes
/// out as float32. A masked array is refused: its mask would be lost.
class ArrayConversion {
  public:
    /// `releases` takes the NumPy arrays whose memory was lent; it is kept alive by them.
    explicit ArrayConversion(std::shared_ptr<ReleaseQueue> releases) : releases_(std::move(releases)) {}

    /// `array` must be the only copy of its holder for the result to be writable.
    pybind11::object toPython(const foundation::yorlabdata::Array& array) const;

    /// Throws ConversionError for a value that no kind can hold and for one nested deeper than 200 levels.
    foundation::yorlabdata::Array fromPython(pybind11::handle value) const { return fromPython(value, 0); }

  private:
    foundation::yorlabdata::Array fromPython(pybind11::handle value, int depth) const;
    foundation::yorlabdata::Array fromNumPy(pybind11::handle value) const;

    const std::shared_ptr<ReleaseQueue> releases_;
};

}  // namespace yvm::engine
