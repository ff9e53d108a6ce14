#pragma once

#include "engine/detail/Command.hpp"

#include <pybind11/pybind11.h>

#include <atomic>
#include <cstddef>
#include <utility>
#include <vector>

namespace yvm::engine {

/// One stop in the debugger: where a command stands, and how it is to go on.
///
/// On the engine thread with the GIL held, save where said otherwise.
class DebugPrompt {
  public:
    /// How the command goes on, or that it does not yet.
    enum class Action { Stay, Resume, Step, StepIn, StepOut, Quit };

    struct Frame {
        pybind11::object frame;  ///< none for a place that has no frame any more
        pybind11::object code;
        int line = 0;
    };

    /// `frames` are those of the command, innermost last.
    DebugPrompt(std::shared_ptr<Command> command, std::size_t level, std::vector<Frame> frames)
        : command_(std::move(command)),
          level_(level),
          frames_(std::move(frames)),
          selected_(frames_.empty() ? 0 : frames_.size() - 1) {}

    /// The one that has stopped. Any thread.
    const std::shared_ptr<Command>& command() const noexcept { return command_; }
    /// Counts from 1; the prompt of level 1 is the outermost.
    std::size_t level() const noexcept { return level_; }

    const std::vector<Frame>& frames() const noexcept { return frames_; }
    /// The frame in which commands of the prompt are evaluated, at first the innermost.
    std::size_t selected() const noexcept { return selected_; }
    void select(std::size_t index) noexcept { selected_ = index; }

    /// From any thread. The last one counts that came before the prompt noticed.
    void leave(Action action) noexcept { action_ = action; }
    Action action() const noexcept { return action_; }

  private:
    const std::shared_ptr<Command> command_;
    const std::size_t level_;
    const std::vector<Frame> frames_;
    std::size_t selected_;
    std::atomic<Action> action_{Action::Stay};
};

}  // namespace yvm::engine
