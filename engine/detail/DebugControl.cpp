#include "engine/detail/DebugControl.hpp"

#include "cmddistributor/RuntimeException.hpp"
#include "engine/detail/CodeLines.hpp"
#include "engine/detail/CommandReports.hpp"
#include "engine/detail/EngineModule.hpp"
#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/PythonText.hpp"
#include "engine/detail/RecursionHeadroom.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "yvm/BreakpointsChangedEvent.hpp"
#include "yvm/DebuggerResumedEvent.hpp"

#include <opcode.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace yvm::engine {

namespace py = pybind11;
using cmddistributor::StackFrame;

namespace {

/// Lets commands be traced that run while the trace function waits.
class TracedAgain {
  public:
    TracedAgain() : state_(PyThreadState_Get()), wasTracing_(state_->tracing != 0) {
        if (wasTracing_) {
            PyThreadState_LeaveTracing(state_);
        }
    }
    ~TracedAgain() {
        if (wasTracing_) {
            PyThreadState_EnterTracing(state_);
        }
    }
    TracedAgain(const TracedAgain&) = delete;
    TracedAgain& operator=(const TracedAgain&) = delete;

  private:
    PyThreadState* const state_;
    const bool wasTracing_;
};

/// Those of the command that runs.
DebugFrames framesOfCommand(PyFrameObject* innermost) {
    return framesFrom(innermost, CommandScope::current()->frameBeneath());
}

py::module_ helpers() {
    return py::module_::import("yvm._debugging");
}

}  // namespace

class DebugControl::OwnWork {
  public:
    explicit OwnWork(DebugControl& control) : control_(control) { ++control_.ownWork_; }
    ~OwnWork() { --control_.ownWork_; }
    OwnWork(const OwnWork&) = delete;
    OwnWork& operator=(const OwnWork&) = delete;

  private:
    DebugControl& control_;
};

class DebugControl::BusyWork {
  public:
    explicit BusyWork(DebugControl& control) : own_(control), control_(control) { ++control_.busy_; }
    ~BusyWork() { --control_.busy_; }
    BusyWork(const BusyWork&) = delete;
    BusyWork& operator=(const BusyWork&) = delete;

  private:
    const OwnWork own_;
    DebugControl& control_;
};

DebugControl::DebugControl(DebugHost& host, EngineEvents& events)
    : host_(host), events_(events), tracing_(*this) {}

void DebugControl::attach() {
    tracing_.attach();
    // What users would wait for at their first stop.
    helpers();
}

void DebugControl::changeBreakpoints(const std::function<bool(BreakpointTable&)>& change) {
    const BusyWork busy(*this);
    try {
        if (!change(breakpoints_)) {
            return;
        }
    } catch (py::error_already_set& error) {
        throw cmddistributor::RuntimeException(cmddistributor::RuntimeException::Status::CommandFailed,
                                               std::string(error.what()));
    }
    tracing_.codeChanged();
    updateNeed();
    updateConditions();
    auto event = std::make_shared<const BreakpointsChangedEvent>(std::nullopt, breakpoints_.entries());
    const WithoutGil released;
    events_.manager()->deliver(std::move(event), foundation::msg_svc::eventmgr::DeliveryMode::synchronous);
}

void DebugControl::updateNeed() {
    using Need = TraceFunction::Need;
    if (step_.isPending() || breakpoints_.has(Condition::CaughtError)) {
        tracing_.setNeed(Need::AllCode);
    } else {
        tracing_.setNeed(breakpoints_.hasPlaces() ? Need::CodeOfInterest : Need::Nothing);
    }
}

void DebugControl::updateConditions() {
    try {
        const auto conditions = py::module_::import("yvm._conditions");
        conditions.attr("watch_warnings")(breakpoints_.has(Condition::Warning));
        conditions.attr("watch_nans")(breakpoints_.has(Condition::NanInf));
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable("the debugger");
    }
}

void DebugControl::commandBegins() {
    tracing_.claim();
    if (breakpoints_.has(Condition::NanInf)) {
        updateConditions();
    }
}

void DebugControl::commandEnds(const Command& command) {
    std::erase_if(entered_, [&command](const Call& call) { return call.command == &command; });
    if (step_.isOf(command)) {
        step_.cancel();
        updateNeed();
    }
}

std::optional<FrameScope> DebugControl::scopeOf(const Command& command) const {
    if (prompts_.empty() || !command.isOfDebugPrompt()) {
        return std::nullopt;
    }
    const DebugPrompt& prompt = *prompts_.back();
    if (prompt.frames().empty() || prompt.frames()[prompt.selected()].frame.is_none()) {
        return std::nullopt;
    }
    return FrameScope(prompt.frames()[prompt.selected()].frame);
}

bool DebugControl::mayStop() const {
    const auto& command = CommandScope::current();
    return command != nullptr && !command->isLeavingStop() && ownWork_ == 0 && prompts_.size() < maxLevels &&
           host_.isEngineThread() && !ForkedChild::isThis() && CommandScope::allows("debugger");
}

void DebugControl::checkCapability() {
    if (!CommandScope::allows("debugger")) {
        throw std::runtime_error(
            "this command may not use the debugger: its options lack the capability debugger");
    }
}

void DebugControl::breakIn(PyFrameObject* frame) {
    if (mayStop()) {
        stop(Reason::Break, framesOfCommand(frame));
    }
}

void DebugControl::stopAtError(py::handle exception) {
    if (!breakpoints_.has(Condition::Error) || !mayStop()) {
        return;
    }
    std::u16string message;
    DebugFrames frames;
    try {
        const OwnWork own(*this);
        const auto names = helpers().attr("identifiers")(exception).cast<std::vector<std::string>>();
        if (!breakpoints_.has(Condition::Error, names)) {
            return;
        }
        message = toUtf16(helpers().attr("describe_exception")(exception));
        frames = framesOf(exception.attr("__traceback__"));
    } catch (const std::exception&) {
        // Out of memory. The command ends without this stop, by the error that it has.
        PyErr_Clear();
        return;
    }
    // At a debug prompt, what the command sees is what its prompt sees already.
    const bool isOfPromptOnly = CommandScope::current()->isOfDebugPrompt() && frames.size() == 1 &&
                                (raw(frames.front().code)->co_flags & CO_OPTIMIZED) == 0;
    if (!frames.empty() && !isOfPromptOnly) {
        stop(Reason::Error, std::move(frames), std::move(message));
    }
}

void DebugControl::stopAtOutput(py::handle code, const std::optional<FrameScope>& scope) {
    if (!breakpoints_.has(Condition::UnsuppressedOutput) || !mayStop()) {
        return;
    }
    int line = 1;
    if (const auto start = startOfBody(code)) {
        line = start->first;
    }
    py::object frame = py::none();
    if (scope) {
        scope->store();
        frame = scope->frame();
    }
    stop(Reason::Output, {{std::move(frame), py::reinterpret_borrow<py::object>(code), line}});
    host_.raiseDueInterrupt();
}

void DebugControl::stopAtCondition(Condition condition, const std::vector<std::string>& identifiers,
                                   const py::str& message) {
    if (!mayStop() || !breakpoints_.has(condition, identifiers)) {
        return;
    }
    const auto reason = condition == Condition::Warning ? Reason::Warning : Reason::NanInf;
    auto frames = framesOfCommand(PyEval_GetFrame());
    // Python's own module that gives warnings, where they come out of Python code.
    while (!frames.empty() && toUtf8(raw(frames.back().code)->co_filename).ends_with("/warnings.py")) {
        frames.pop_back();
    }
    stop(reason, std::move(frames), toUtf16(message));
    host_.raiseDueInterrupt();
}

const DebugPrompt& DebugControl::prompt() const {
    checkCapability();
    if (prompts_.empty() || ForkedChild::isThis()) {
        throw std::runtime_error("no command is stopped in the debugger");
    }
    return *prompts_.back();
}

void DebugControl::leave(Action action) {
    prompt();
    prompts_.back()->leave(action);
    host_.wake();
}

void DebugControl::select(int outwards) {
    const auto& frames = prompt().frames();
    if (!frames.empty()) {
        const auto index = static_cast<long long>(prompts_.back()->selected()) - outwards;
        const auto last = static_cast<long long>(frames.size()) - 1;
        prompts_.back()->select(static_cast<std::size_t>(std::clamp(index, 0LL, last)));
    }
}

void DebugControl::stopHere() {
    checkCapability();
    if (!host_.isEngineThread()) {
        throw std::runtime_error("only commands stop in the debugger, and no threads that they start");
    }
    breakIn(PyEval_GetFrame());
    host_.raiseDueInterrupt();
}

bool DebugControl::isOfInterest(PyCodeObject* code) noexcept {
    try {
        return breakpoints_.planOf(code) != nullptr;
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable("the debugger");
    } catch (const std::exception&) {
        // Out of memory. The code runs without its breakpoints.
    }
    return false;
}

int DebugControl::onTrace(PyFrameObject* frame, int event, PyObject* argument) noexcept {
    if (ForkedChild::isThis()) {
        return 0;
    }
    try {
        bool hasStopped = false;
        switch (event) {
            case PyTrace_CALL:
                hasStopped = onCall(frame);
                break;
            case PyTrace_LINE:
                hasStopped = onLine(frame);
                break;
            case PyTrace_RETURN:
                onReturn(frame, argument);
                break;
            case PyTrace_EXCEPTION:
                hasStopped = onException(frame, argument);
                break;
            default:
                break;
        }
        if (hasStopped) {
            host_.raiseDueInterrupt();
        }
    } catch (py::error_already_set& error) {
        if (isInterrupt(error)) {
            error.restore();
            return -1;
        }
        error.discard_as_unraisable("the debugger");
    } catch (const std::exception&) {
        // Out of memory. The code runs on without this stop.
        PyErr_Clear();
    }
    return 0;
}

bool DebugControl::onCall(PyFrameObject* frame) {
    const auto code = codeOf(frame);
    if (!breakpoints_.hasPlaces() || !tracing_.isOfInterest(raw(code))) {
        return false;
    }
    const auto plan = breakpoints_.planOf(raw(code));
    // A generator that goes on is called as well.
    const auto [opcode, argument] = instructionOf(frame);
    if (plan != nullptr && !(plan->atEntry.empty() && plan->atFileEntry.empty()) && opcode == RESUME &&
        (argument & 3) == 0) {
        entered_.push_back({CommandScope::current().get(), frame});
    }
    return false;
}

bool DebugControl::onLine(PyFrameObject* frame) {
    const bool isEntry = takeEntry(frame);
    const auto code = codeOf(frame);
    const bool mayHaveBreakpoints = breakpoints_.hasPlaces() && tracing_.isOfInterest(raw(code));
    const bool mayEndStep = step_.endsIn(frame);
    if (!(mayHaveBreakpoints || mayEndStep) || !mayStop() || isHidden(code)) {
        return false;
    }
    std::u16string message;
    bool isBreakpoint = false;
    if (const auto plan = mayHaveBreakpoints ? breakpoints_.planOf(raw(code)) : nullptr) {
        const auto atLine = plan->atLine.find(PyFrame_GetLineNumber(frame));
        isBreakpoint = (atLine != plan->atLine.end() && holds(atLine->second, frame, message)) ||
                       (isEntry && holds(plan->atEntry, frame, message)) ||
                       (isEntry && entersFile(frame, code) && holds(plan->atFileEntry, frame, message));
    }
    if (isBreakpoint || mayEndStep) {
        stop(isBreakpoint ? Reason::Breakpoint : Reason::Step, framesOfCommand(frame), std::move(message));
        return true;
    }
    // Somebody may have broken in while the conditions were evaluated, as every time where they take long.
    if (CommandScope::current()->takeBreak()) {
        stop(Reason::Break, framesOfCommand(frame));
        return true;
    }
    return false;
}

bool DebugControl::takeEntry(const PyFrameObject* frame) {
    return std::erase_if(entered_, [frame](const Call& call) { return call.frame == frame; }) > 0;
}

bool DebugControl::entersFile(PyFrameObject* frame, const py::object& code) {
    const py::object caller = callerOf(frame);
    if (!caller ||
        reinterpret_cast<PyFrameObject*>(caller.ptr()) == CommandScope::current()->frameBeneath()) {
        return true;
    }
    const auto callersCode = codeOf(reinterpret_cast<PyFrameObject*>(caller.ptr()));
    return PyUnicode_Compare(raw(callersCode)->co_filename, raw(code)->co_filename) != 0;
}

bool DebugControl::holds(const PlacedBreakpoints& breakpoints, PyFrameObject* frame,
                         std::u16string& message) {
    return std::any_of(breakpoints.begin(), breakpoints.end(),
                       [&](const auto& breakpoint) { return holds(*breakpoint, frame, message); });
}

bool DebugControl::holds(const PlacedBreakpoint& breakpoint, PyFrameObject* frame, std::u16string& message) {
    if (breakpoint.condition.is_none()) {
        return true;
    }
    const OwnWork own(*this);
    try {
        const FrameScope scope(objectOf(frame));
        const auto value = py::reinterpret_steal<py::object>(
            PyEval_EvalCode(breakpoint.condition.ptr(), scope.globals().ptr(), scope.locals().ptr()));
        const int truth = value ? PyObject_IsTrue(value.ptr()) : -1;
        if (truth < 0) {
            throw py::error_already_set();
        }
        return truth != 0;
    } catch (py::error_already_set& error) {
        if (isInterrupt(error)) {
            throw;
        }
        const RecursionHeadroom headroom;
        message = u"the condition " + *breakpoint.breakpoint.expression() + u" failed: " +
                  toUtf16(helpers().attr("describe_exception")(error.value()));
        return true;
    }
}

void DebugControl::onReturn(PyFrameObject* frame, PyObject* value) {
    takeEntry(frame);
    step_.onReturn(frame, value);
}

bool DebugControl::onException(PyFrameObject* frame, PyObject* exception) {
    if (!breakpoints_.has(Condition::CaughtError) || !mayStop()) {
        return false;
    }
    const auto parts = py::reinterpret_borrow<py::tuple>(exception);
    const py::object value = parts[1];
    const py::object traceback = parts[2];
    const py::object code = codeOf(frame);
    // It comes by in each frame that it leaves; this is where it was raised.
    if (traceback.is_none() || !traceback.attr("tb_next").is_none() || isHidden(code)) {
        return false;
    }
    std::u16string message;
    {
        const OwnWork own(*this);
        const RecursionHeadroom headroom;
        const auto names = helpers().attr("identifiers")(value).cast<std::vector<std::string>>();
        if (!breakpoints_.has(Condition::CaughtError, names) ||
            helpers().attr("is_of_loops")(value).cast<bool>() || names.front() == "yvm.Interrupt") {
            return false;
        }
        const auto* const beneath = CommandScope::current()->frameBeneath();
        const auto end = beneath != nullptr ? objectOf(const_cast<PyFrameObject*>(beneath)) : py::none();
        if (!helpers().attr("is_caught")(objectOf(frame), end).cast<bool>()) {
            return false;
        }
        message = toUtf16(helpers().attr("describe_exception")(value));
    }
    stop(Reason::CaughtError, framesOfCommand(frame), std::move(message));
    return true;
}

void DebugControl::stop(Reason reason, DebugFrames frames, std::u16string message) {
    const auto command = CommandScope::current();
    const py::error_scope keepsIt;
    DebugPrompt prompt(command, prompts_.size() + 1, std::move(frames));
    step_.cancel();
    updateNeed();
    {
        const RecursionHeadroom headroom;
        std::vector<StackFrame> places;
        {
            const BusyWork busy(*this);
            places = describe(prompt.frames());
        }
        prompts_.push_back(&prompt);
        const foundation::core::util::scope_guard leaves(
            [this, ownWork = std::exchange(ownWork_, 0), busy = std::exchange(busy_, 0)] {
                prompts_.pop_back();
                ownWork_ = ownWork;
                busy_ = busy;
            });
        {
            const TracedAgain traced;
            const WithoutGil released;
            showStop(*command, places, message);
            events_.fire<DebuggerStoppedEvent>(reason, prompt.level(), std::move(places), std::move(message));
            host_.serveDebugPrompt(prompt);
            events_.fire<DebuggerResumedEvent>(prompt.level());
        }
    }
    if (prompt.action() == Action::Quit || command->isInterruptRequested()) {
        command->leaveStop();
        command->requestInterrupt();
    } else if (reason != Reason::Error && reason != Reason::Output) {
        step_.begin(prompt);
        if (step_.isPending()) {
            updateNeed();
        }
    }
    // The commands of the prompt have taken what was noted before.
    tracing_.updateLoopsLater();
}

}  // namespace yvm::engine
