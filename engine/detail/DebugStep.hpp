#pragma once

#include "engine/detail/DebugPrompt.hpp"

#include <pybind11/pybind11.h>

#include <memory>
#include <optional>

namespace yvm::engine {

/// The step that a stopped command goes on by, if it does: where it ends.
///
/// One that comes to the end of its frame ends on the next line, wherever that is, and not at the return
/// itself. A step ends with its command.
///
/// On the engine thread with the GIL held.
class DebugStep {
  public:
    bool isPending() const noexcept { return step_.has_value(); }
    bool isOf(const Command& command) const noexcept { return step_ && step_->command.get() == &command; }

    /// By what the prompt was left with; no step if that was none, or a step out of the outermost frame.
    void begin(const DebugPrompt& prompt);
    void cancel() noexcept { step_.reset(); }

    /// Whether it ends at the line that the running command has come to in this frame.
    bool endsIn(const PyFrameObject* frame) const {
        return step_ && step_->command == CommandScope::current() && (step_->frame.is_none() || isIn(frame));
    }
    /// The frame returns; `value` is null when it does so by an exception.
    void onReturn(PyFrameObject* frame, const PyObject* value);

  private:
    struct Step {
        std::shared_ptr<Command> command;
        /// The frame whose next line ends the step; none for any line.
        pybind11::object frame;
    };

    bool isIn(const PyFrameObject* frame) const {
        return step_->frame.ptr() == reinterpret_cast<const PyObject*>(frame);
    }

    std::optional<Step> step_;
};

}  // namespace yvm::engine
