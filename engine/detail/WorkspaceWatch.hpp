#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>

namespace yvm::engine {

class EngineEvents;

/// Tells clients which names of the workspace the commands of prompts have changed, if any client wants to
/// know. Engine thread, with the GIL held.
class WorkspaceWatch {
  public:
    /// The engine's Python side must be importable. What is looked up here lives as long as the process.
    WorkspaceWatch(const EngineEvents& events, pybind11::dict workspace);

    // Failures are reported on standard error.

    /// Before a command.
    void begin();
    /// Of each code that a command is about to run.
    void noteAssignments(pybind11::handle code);
    /// Behind a command.
    void end();

  private:
    static constexpr std::uint64_t noVersion = 0;

    std::uint64_t version() const;

    const EngineEvents& events_;
    // Handles that own their reference for the life of the process, as those of CommandRunner.
    const pybind11::handle workspace_;
    const pybind11::handle begin_;
    const pybind11::handle noteAssignments_;
    const pybind11::handle end_;
    const pybind11::handle forget_;
    /// Whether the Python side knows the names as they were in `version_`.
    bool isWatching_ = false;
    std::uint64_t version_ = noVersion;
};

}  // namespace yvm::engine
