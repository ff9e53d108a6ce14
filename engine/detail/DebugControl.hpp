#pragma once

#include "engine/detail/BreakpointTable.hpp"
#include "engine/detail/DebugFrames.hpp"
#include "engine/detail/DebugStep.hpp"
#include "engine/detail/EngineEvents.hpp"
#include "engine/detail/FrameScope.hpp"
#include "engine/detail/TraceFunction.hpp"
#include "yvm/DebuggerStoppedEvent.hpp"

#include <pybind11/pybind11.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace yvm::engine {

/// What the engine's thread does for its debugger.
class DebugHost {
  public:
    virtual ~DebugHost() = default;

    /// Any thread.
    virtual bool isEngineThread() const noexcept = 0;
    /// Runs the commands of a debug prompt until the stop is over: by an action, or as the stopped command is
    /// to be interrupted or the engine stops. Without the GIL.
    virtual void serveDebugPrompt(const DebugPrompt& prompt) = 0;
    /// Lets that look again at its prompt. Any thread.
    virtual void wake() = 0;
    /// Raises the interrupt of the running command if one is due, as `pybind11::error_already_set`.
    virtual void raiseDueInterrupt() = 0;
};

/// Decides where commands stop, and keeps them there.
///
/// A command stops at a breakpoint, at the end of a step, or when somebody breaks into it. The engine's
/// thread then stays where it is, inside the trace function or whatever noticed, and serves commands in the
/// frame that is selected. Such a command may stop in its turn. Only commands with the capability "debugger"
/// stop, and no code of other threads does.
///
/// A line is stopped at as `bdb` would.
///
/// On the engine thread with the GIL held.
class DebugControl final : public TraceFunction::Client {
  public:
    using Action = DebugPrompt::Action;
    using Condition = BreakpointTable::Condition;
    using Reason = DebuggerStoppedEvent::Reason;

    /// Stops one above the other; beyond, nothing stops.
    static constexpr std::size_t maxLevels = 8;

    DebugControl(DebugHost& host, EngineEvents& events);

    /// Once, when Python has started.
    void attach();
    TraceFunction& tracing() noexcept { return tracing_; }
    const BreakpointTable& breakpoints() const noexcept { return breakpoints_; }
    /// Whether code of the debugger runs that an interrupt must not break into.
    bool isBusy() const noexcept { return busy_ > 0; }
    /// Whether code that the debugger itself runs, such as a condition, cannot be stopped now. Engine thread.
    bool isAtOwnWork() const noexcept { return ownWork_ > 0; }

    /// Changes the table, arms what it needs, and tells of it. What `change` throws leaves the table as it
    /// was. False from `change` says that there is nothing to tell.
    void changeBreakpoints(const std::function<bool(BreakpointTable&)>& change);

    void commandBegins();
    void commandEnds(const Command& command);

    /// Where a command of a debug prompt is evaluated; empty for others, and where the place has no frame.
    std::optional<FrameScope> scopeOf(const Command& command) const;

    // What may stop the command that runs. They return when it is to go on, or to be interrupted: that one is
    // still due.

    /// Somebody breaks into it. `frame` is its innermost one, maybe null.
    void breakIn(PyFrameObject* frame);
    /// An exception has left the outermost frame of the command. One that had no frame does not stop.
    void stopAtError(pybind11::handle exception);
    /// The value of an expression is about to be displayed; `code` is that of the expression, and
    /// `scope` where it was evaluated, if not in the workspace. Raises the interrupt that ended the stop.
    void stopAtOutput(pybind11::handle code, const std::optional<FrameScope>& scope);

    // From Python code.
    /// A condition has arisen in the code that calls.
    void stopAtCondition(Condition condition, const std::vector<std::string>& identifiers,
                         const pybind11::str& message);
    /// Throw `std::runtime_error` when nothing is stopped, or the running command may not use the debugger.
    void leave(Action action);
    /// Selects the frame that many further out, or in when negative, as far as there are frames.
    void select(int outwards);
    /// Of the innermost prompt.
    const DebugPrompt& prompt() const;
    /// Stops the command that calls.
    void stopHere();

    bool isOfInterest(PyCodeObject* code) noexcept override;
    int onTrace(PyFrameObject* frame, int event, PyObject* argument) noexcept override;

  private:
    struct Call {
        const Command* command;
        const PyFrameObject* frame;  ///< only compared
    };

    /// Keeps code that the debugger itself runs from being stopped.
    class OwnWork;
    /// The same, and from being interrupted: the interrupt waits for the code that it is meant for.
    class BusyWork;

    bool mayStop() const;
    static void checkCapability();

    // True when the command has been stopped.
    bool onCall(PyFrameObject* frame);
    bool onLine(PyFrameObject* frame);
    void onReturn(PyFrameObject* frame, PyObject* value);
    bool onException(PyFrameObject* frame, PyObject* exception);

    /// Whether it is the frame of a call whose first line was still to come.
    bool takeEntry(const PyFrameObject* frame);
    static bool entersFile(PyFrameObject* frame, const pybind11::object& code);
    /// Whether one of them holds; `message` tells of conditions that fail.
    bool holds(const PlacedBreakpoints& breakpoints, PyFrameObject* frame, std::u16string& message);
    bool holds(const PlacedBreakpoint& breakpoint, PyFrameObject* frame, std::u16string& message);

    void stop(Reason reason, DebugFrames frames, std::u16string message = {});
    void updateNeed();
    void updateConditions();

    DebugHost& host_;
    EngineEvents& events_;
    BreakpointTable breakpoints_;
    TraceFunction tracing_;
    std::vector<DebugPrompt*> prompts_;  ///< innermost last
    DebugStep step_;
    /// The calls whose first line is still to come. Python looks at its signals between the two: their
    /// handlers may run there, and commands of a pre-emption point.
    std::vector<Call> entered_;
    int ownWork_ = 0;
    int busy_ = 0;
};

}  // namespace yvm::engine
