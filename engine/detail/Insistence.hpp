#pragma once

#include <pybind11/pybind11.h>

namespace yvm::engine {

class Command;

/// Raises the interrupt of a command anew before each line of its code while this lives, so that no `except`
/// clause of it holds the interrupt up. Commands that nest above it are left alone.
///
/// By a trace function in C: one in Python would be removed by the exception that it raises. The trace
/// function that was installed before, such as a coverage tool's, is asleep meanwhile and comes back.
///
/// On the engine thread with the GIL held, from beginning to end.
class Insistence {
  public:
    /// `command` must outlive this. Throws Python's MemoryError.
    explicit Insistence(Command& command);
    ~Insistence();
    Insistence(const Insistence&) = delete;
    Insistence& operator=(const Insistence&) = delete;

  private:
    const Py_tracefunc functionBefore_;
    const pybind11::object argumentBefore_;
};

}  // namespace yvm::engine
