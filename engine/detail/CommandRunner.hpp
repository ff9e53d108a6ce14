#pragma once

#include "cmddistributor/CmdRequest.hpp"
#include "cmddistributor/FEvalResult.hpp"
#include "cmddistributor/RuntimeException.hpp"
#include "engine/detail/ArrayConversion.hpp"
#include "engine/detail/Command.hpp"
#include "engine/detail/DebugControl.hpp"
#include "engine/detail/WorkspaceWatch.hpp"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>

namespace yvm::engine {

/// What became of a command.
struct Outcome {
    std::variant<cmddistributor::FEvalResult, cmddistributor::RuntimeException> value;
    bool stoppedByInterrupt = false;  ///< an interrupt, and not the command itself, ended it
};

/// Runs the code of commands in Python and turns what comes out into plain data. On the engine thread, with
/// the GIL held.
class CommandRunner {
  public:
    /// The engine's Python side must be importable. What is looked up here lives as long as the process, and
    /// so do `debug` and `events`.
    CommandRunner(ArrayConversion conversion, DebugControl& debug, const EngineEvents& events);

    /// Never throws for a failure of the command, SystemExit among them.
    Outcome run(Command& command);

    /// The file name of the next command with exactly this text.
    std::string nameCommand(const std::u16string& text);

    /// Runs a file in the workspace. Figures that it opens are not sent. Throws RuntimeException when it
    /// raises or cannot be read.
    void runFile(const std::filesystem::path& file);

    /// Calls what users registered with `atexit`. Failures are reported on standard error. A child that one
    /// of these functions forked ends here.
    void runExitFunctions() const;

  private:
    static constexpr std::size_t maxGivenNames = 1000;

    Outcome runInThisProcess(Command& command);
    /// In a child that the command forked: the end of the process, as Python would end it. Here the road
    /// ends for the child, which must not go on to the server's own work.
    void endIfForked(pybind11::handle exception) const;
    /// Sends and closes the figures that the command has opened, unless it was stopped. An interrupt while
    /// they are drawn becomes its outcome.
    void endFigures(Command& command, Outcome& outcome) const;
    void eval(Command& command, const cmddistributor::EvalIIP& iip);
    cmddistributor::FEvalResult feval(Command& command, const cmddistributor::FEvalIIP& iip);
    cmddistributor::FEvalResult convertOutputs(pybind11::handle value, std::uint64_t numOutputs) const;
    std::string takeName(const std::u16string& text);
    std::string newName();
    /// In the workspace, unless there is a scope.
    pybind11::object execute(pybind11::handle code, const std::optional<FrameScope>& scope) const;
    /// Displays the value of a last bare expression.
    static void show(pybind11::handle value);
    Outcome describe(Command& command, pybind11::error_already_set& error) const;
    /// The outcome of a command whose exception could not be described as a whole.
    Outcome describeBriefly(pybind11::handle exception, bool stopped) const;
    cmddistributor::RuntimeException toRuntimeException(
        pybind11::handle exception, ylutil::cmddistributor::inExecutionStatus status) const;

    const ArrayConversion conversion_;
    DebugControl& debug_;
    // Handles that own their reference for the life of the process: it outlives this object, and to give
    // them back would take the GIL at a time when nobody may have it any more.
    pybind11::handle workspace_;
    pybind11::handle compileCommand_;
    pybind11::handle remember_;
    pybind11::handle resolve_;
    pybind11::handle describe_;
    pybind11::handle describeInterrupt_;
    pybind11::handle isInterrupt_;
    pybind11::handle runExitFunctions_;
    pybind11::handle openFigures_;
    pybind11::handle endFigures_;
    WorkspaceWatch workspaceWatch_;
    std::uint64_t evalCount_ = 0;
    /// Of texts that were given a name before they run.
    std::unordered_map<std::u16string, std::string> givenNames_;
};

}  // namespace yvm::engine
