#include "engine/detail/TraceFunction.hpp"

#include "engine/detail/Command.hpp"
#include "engine/detail/EngineModule.hpp"
#include "engine/detail/ImportFrames.hpp"

// Of this version of Python alone, as the build demands: there is no other way to learn of a frame's code
// before it runs.
#include <internal/pycore_frame.h>
#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace yvm::engine {

namespace py = pybind11;

namespace {

/// What Python's loop has to find to trace its frames.
constexpr std::uint8_t traced = 255;

/// The one that is attached. Python hands no argument to the function that evaluates frames.
TraceFunction* attached = nullptr;

/// What C code may still need of the stack where Python code gets no more of it.
constexpr std::size_t stackReserve = std::size_t{512} << 10U;

std::uintptr_t findLowestFrame() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    void* lowest = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    // Users may give their threads stacks that are smaller than the reserve.
    return reinterpret_cast<std::uintptr_t>(lowest) + std::min(stackReserve, size / 4);
}

/// The address on the calling thread's stack below which no Python code is called.
std::uintptr_t lowestFrame() {
    thread_local const std::uintptr_t lowest = findLowestFrame();
    return lowest;
}

bool isToBeInterrupted(const Command* insistent, PyFrameObject* frame) {
    const auto& command = CommandScope::current();
    return command.get() == insistent && command->isInterruptible() && !isOfImportSystem(frame);
}

}  // namespace

void TraceFunction::attach() {
    attached = this;
    state_ = PyThreadState_Get();
    verdictIndex_ = _PyEval_RequestCodeExtraIndex(nullptr);
}

void TraceFunction::setNeed(Need need) {
    clientNeed_ = need;
    update();
}

void TraceFunction::codeChanged() {
    ++codeGeneration_;
    update();
}

void TraceFunction::claim() {
    if (need_ != Need::Nothing && !isInstalled()) {
        update();
    }
}

void TraceFunction::reclaim() {
    if (need_ != Need::Nothing && state_->c_tracefunc == nullptr && state_->tracing == 0) {
        update();
    }
}

void TraceFunction::insist(const Command& command) {
    insistent_.push_back(&command);
    update();
}

void TraceFunction::relent(const Command& command) {
    std::erase(insistent_, &command);
    update();
}

void TraceFunction::update() {
    need_ = insistent_.empty() ? clientNeed_ : Need::AllCode;
    if (need_ == Need::Nothing) {
        uninstall();
    } else {
        install();
    }
    auto* const interpreter = PyThreadState_GetInterpreter(state_);
    _PyInterpreterState_SetEvalFrameFunc(interpreter,
                                         need_ == Need::Nothing ? &_PyEval_EvalFrameDefault : &evaluate);
    ++generation_;
    updateLoops();
    updateLoopsLater();
}

void TraceFunction::updateLoopsLater() noexcept {
    if (state_->tracing != 0) {
        // Python traces the loop on in which the trace function runs that this is called from. Where it
        // cannot be noted, that loop is only slower than it could be.
        Py_AddPendingCall(
            [](void* self) {
                static_cast<TraceFunction*>(self)->updateLoops();
                return 0;
            },
            this);
    }
}

bool TraceFunction::isInstalled() const noexcept {
    return state_->c_tracefunc == &trace;
}

void TraceFunction::install() {
    if (!isInstalled()) {
        functionBefore_ = state_->c_tracefunc;
        argumentBefore_ = py::reinterpret_borrow<py::object>(state_->c_traceobj);
        // With an argument that `sys.gettrace` may give to a user, and `sys.settrace` be given back.
        PyEval_SetTrace(&trace, Py_None);
    }
}

void TraceFunction::uninstall() {
    if (isInstalled()) {
        PyEval_SetTrace(functionBefore_, argumentBefore_.ptr());
        functionBefore_ = nullptr;
        argumentBefore_ = py::object();
    }
}

bool TraceFunction::isOfInterest(PyCodeObject* code) noexcept {
    auto* const object = reinterpret_cast<PyObject*>(code);
    void* known = nullptr;
    _PyCode_GetExtra(object, verdictIndex_, &known);
    const auto verdict = reinterpret_cast<std::uintptr_t>(known);
    if (verdict >> 1U == codeGeneration_) {
        return (verdict & 1U) != 0;
    }
    // The frame that is about to run may be told of an exception, as a generator is.
    const py::error_scope keepsIt;
    const bool isWanted = client_.isOfInterest(code);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the slot takes pointers, and a number is all that is kept
    auto* const kept = reinterpret_cast<void*>(codeGeneration_ << 1U | (isWanted ? 1U : 0U));
    if (_PyCode_SetExtra(object, verdictIndex_, kept) != 0) {
        PyErr_Clear();  // Out of memory: it is asked again.
    }
    return isWanted;
}

bool TraceFunction::wantsLoop(const _PyCFrame& loop) noexcept {
    if (need_ != Need::CodeOfInterest) {
        return need_ == Need::AllCode;
    }
    for (const auto* frame = loop.current_frame; frame != nullptr; frame = frame->previous) {
        if (isOfInterest(frame->f_code)) {
            return true;
        }
        if (frame->is_entry) {
            break;
        }
    }
    return false;
}

void TraceFunction::updateLoops() noexcept {
    if (!isInstalled() || state_->c_profilefunc != nullptr) {
        return;  // It is Python's own to decide.
    }
    for (auto* loop = state_->cframe; loop != nullptr; loop = loop->previous) {
        loop->use_tracing = wantsLoop(*loop) ? traced : 0;
    }
}

int TraceFunction::trace(PyObject* /*self*/, PyFrameObject* frame, int event, PyObject* argument) {
    const auto& insistent = attached->insistent_;
    if (event == PyTrace_LINE &&
        std::any_of(insistent.begin(), insistent.end(),
                    [frame](const auto* command) { return isToBeInterrupted(command, frame); })) {
        setInterrupt();
        return -1;
    }
    return attached->client_.onTrace(frame, event, argument);
}

PyObject* TraceFunction::evaluate(PyThreadState* state, _PyInterpreterFrame* frame, int throwing) {
    // Each call of Python code takes some of the stack here, which Python's own way does not, and users may
    // have set a limit of recursion that counts on that. All threads and all code call this way.
    if (reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) < lowestFrame()) {
        PyErr_SetString(PyExc_RecursionError,
                        "the stack is used up, of which calls need more under breakpoints");
        return nullptr;
    }
    TraceFunction& self = *attached;
    if (state != self.state_) {
        return _PyEval_EvalFrameDefault(state, frame, throwing);
    }
    self.reclaim();
    // A profiler wants all code. While code of a trace function runs, none is traced.
    if (!self.isInstalled() || state->c_profilefunc != nullptr || state->tracing != 0) {
        return _PyEval_EvalFrameDefault(state, frame, throwing);
    }
    const auto before = state->cframe->use_tracing;
    const auto generation = self.generation_;
    const bool isWanted = self.need_ == Need::AllCode || self.isOfInterest(frame->f_code);
    state->cframe->use_tracing = isWanted ? traced : 0;
    PyObject* const result = _PyEval_EvalFrameDefault(state, frame, throwing);
    self.reclaim();
    // The loop that ends leaves its own state to the one beneath it, which is right where it has installed a
    // tracer or profiler of the user's.
    if (!self.isInstalled() || state->c_profilefunc != nullptr) {
        return result;
    }
    if (generation == self.generation_) {
        state->cframe->use_tracing = before;
    } else {
        state->cframe->use_tracing = self.wantsLoop(*state->cframe) ? traced : 0;
    }
    return result;
}

}  // namespace yvm::engine
