#include "engine/detail/DebugStep.hpp"

#include "engine/detail/DebugFrames.hpp"

#include <opcode.h>

#include <utility>

namespace yvm::engine {

namespace py = pybind11;

void DebugStep::begin(const DebugPrompt& prompt) {
    using Action = DebugPrompt::Action;
    py::object frame = py::none();
    switch (prompt.action()) {
        case Action::StepIn:
            break;
        case Action::Step:
        case Action::StepOut:
            if (!prompt.frames().empty()) {
                frame = prompt.frames()[prompt.selected()].frame;
            }
            if (prompt.action() == Action::StepOut) {
                if (prompt.selected() == 0) {
                    return;  // The command has no caller.
                }
                frame = prompt.frames()[prompt.selected() - 1].frame;
            }
            break;
        default:
            return;
    }
    step_ = Step{prompt.command(), std::move(frame)};
}

void DebugStep::onReturn(PyFrameObject* frame, const PyObject* value) {
    if (!step_ || !isIn(frame)) {
        return;
    }
    // A generator that yields comes back.
    if (value == nullptr || instructionOf(frame).first == RETURN_VALUE) {
        step_->frame = py::none();
    }
}

}  // namespace yvm::engine
