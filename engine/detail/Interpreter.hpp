#pragma once

#include <filesystem>
#include <optional>

namespace yvm::engine {

class EngineThread;

/// Starts the interpreter on the calling thread, which becomes its main thread and holds the GIL, and sets up
/// the engine's Python side: streams, display, threads, processes and the two signals. NumPy is imported.
///
/// Throws `std::runtime_error` when `venv` is no environment of this Python, or NumPy cannot be imported. To
/// be called once in a process.
void startInterpreter(EngineThread& engine, const std::optional<std::filesystem::path>& venv);

}  // namespace yvm::engine
