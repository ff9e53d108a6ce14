#pragma once

#include <pybind11/pybind11.h>

namespace yvm::engine {

/// The place where code of the user is evaluated that is not part of the frame: a command of a debug prompt,
/// the condition of a breakpoint. What it changes among the local variables is in the frame when this ends.
///
/// With the GIL held.
class FrameScope {
  public:
    /// Throws Python's exception.
    explicit FrameScope(pybind11::object frame);
    ~FrameScope();
    FrameScope(FrameScope&&) noexcept = default;
    FrameScope& operator=(FrameScope&&) = delete;

    /// Brings the changes into the frame now.
    void store() const;

    const pybind11::object& frame() const noexcept { return frame_; }
    const pybind11::object& globals() const noexcept { return globals_; }
    const pybind11::object& locals() const noexcept { return locals_; }

  private:
    pybind11::object frame_;  ///< null when moved from
    pybind11::object globals_;
    pybind11::object locals_;
};

}  // namespace yvm::engine
