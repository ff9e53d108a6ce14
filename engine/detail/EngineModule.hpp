#pragma once

#include <pybind11/pybind11.h>

namespace yvm::engine {

class EngineThread;

/// Makes the module `_yvm`, by which the engine's Python side reaches the engine, and enters it in
/// `sys.modules`. `engine` must outlive the use of the interpreter. With the GIL held.
void createEngineModule(EngineThread& engine);

/// Raises the engine's interrupt: a class of its own below KeyboardInterrupt, so that users see the usual
/// type and the engine can tell it from one that they raise themselves. With the GIL held.
[[noreturn]] void raiseInterrupt();
/// The same for callers in C: sets it as Python's current error.
void setInterrupt() noexcept;
bool isInterrupt(const pybind11::error_already_set& error);

/// Raises Python's EOFError. With the GIL held.
[[noreturn]] void raiseEndOfInput(const char* reason);

/// Ends this process, a child whose forked code has come to its end by `exception` or with None, as Python
/// would end it. With the GIL held.
[[noreturn]] void endForkedChild(pybind11::handle exception) noexcept;

}  // namespace yvm::engine
