#pragma once

#include <pybind11/pybind11.h>

#include <array>

namespace yvm::engine {

/// Keeps from a command, while it runs, what the interpreter's own state has of the one beneath it: the
/// exception that is being handled, which would become the context of every error, and the redirections of
/// text and input.
///
/// The exception is also kept from those that follow a command which left one behind: its code was
/// interrupted for good on the way out of an `except` clause.
///
/// On the engine thread with the GIL held, from beginning to end.
class CommandIsolation {
  public:
    enum class Beneath { Nothing, ACommand };

    explicit CommandIsolation(Beneath beneath);
    ~CommandIsolation();
    CommandIsolation(const CommandIsolation&) = delete;
    CommandIsolation& operator=(const CommandIsolation&) = delete;

  private:
    const Beneath beneath_;
    const pybind11::object handledException_;
    /// What stands in `sys` for the streams and the display hook; null for what was deleted there.
    std::array<pybind11::object, 4> redirections_;
};

}  // namespace yvm::engine
