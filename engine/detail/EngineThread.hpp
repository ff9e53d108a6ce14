#pragma once

#include "cmddistributor/CommandQueue.hpp"
#include "engine/detail/Command.hpp"
#include "engine/detail/CommandRunner.hpp"
#include "engine/detail/CommandStack.hpp"
#include "engine/detail/DebugControl.hpp"
#include "engine/detail/EngineDebugger.hpp"
#include "engine/detail/EngineEvents.hpp"
#include "engine/detail/EngineOutput.hpp"
#include "engine/detail/InputRequests.hpp"
#include "engine/detail/Prompt.hpp"
#include "engine/detail/ReleaseQueue.hpp"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

namespace yvm::engine {

/// The thread that owns the interpreter, is its main thread, and alone runs commands and completions.
///
/// It serves commands in one loop, `serve`, that is entered anew wherever the engine may take a command: at
/// the prompt, in a pause of a command, between two bytecodes of one. Each entry may push a further command
/// on the stack, and the one on top is the one that runs.
///
/// Completions run without GIL and locks.
class EngineThread final : public cmddistributor::EngineSignals, public OutputHost, public DebugHost {
  public:
    using IDType = cmddistributor::CmdDistributor::IDType;
    using Moment = cmddistributor::Moment;
    using Clock = std::chrono::steady_clock;

    EngineThread(const ConsoleBuffer::Console& console, std::shared_ptr<OutputGate> gate,
                 cmddistributor::CommandObserver commandEnded);
    ~EngineThread() override;

    const boost::shared_ptr<cmddistributor::CommandQueue>& queue() const noexcept { return queue_; }
    const std::shared_ptr<CommandTable>& commands() const noexcept { return commands_; }
    EngineOutput& output() noexcept { return output_; }
    const Prompt& prompt() const noexcept { return prompt_; }
    InputRequests& inputs() noexcept { return inputs_; }
    const std::shared_ptr<EngineDebugger>& debugger() const noexcept { return debugger_; }

    /// The body of the thread. Reports to `ready` when commands can run, or why they never will, and to
    /// `ended` at its end, from where on the GIL is held for good.
    void run(const std::optional<std::filesystem::path>& venv,
             const std::optional<std::filesystem::path>& startupFile, std::promise<void>& ready,
             std::promise<void>& ended);

    /// See `Engine::endWaits`. Any thread.
    void endWaits();
    /// Ends `run` after the command that runs. Any thread.
    void requestStop();
    /// Interrupts every command that runs. Any thread.
    void interruptAll();
    /// Interrupts the innermost command that a prompt took; without one does nothing. Any thread.
    void interruptPrompt();
    /// Stops the innermost command that a prompt took in the debugger, where it is; does nothing without one,
    /// and where that one is stopped already. Any thread.
    void breakInDebugger();

    // From the queue, on any thread; `wake` also from the output and the debugger.
    void wake() override;
    void requestPreemption() override;
    void interrupt(const IDType& id) override;

    // From the output.
    bool isEngineThread() const noexcept override;
    bool waitUntilMayWrite(OutputGate::Way way, const IDType& command) override;
    std::shared_ptr<Command> commandOfPrompt() const override;
    void raiseInterruptOfWriter() override;
    EngineEvents& events() noexcept override { return events_; }

    // From the debugger.
    void serveDebugPrompt(const DebugPrompt& prompt) override;
    /// Raises the interrupt of the innermost command if one is due.
    void raiseDueInterrupt() override;

    // From Python, with the GIL held.
    DebugControl& debugControl() noexcept { return debugControl_; }
    /// See `CommandRunner`.
    std::string nameCommand(const std::u16string& text) { return runner_->nameCommand(text); }
    /// Serves commands for that long. Throws `std::runtime_error` off the engine thread, and Python's
    /// exception when the command is interrupted.
    void pause(double seconds);
    /// Asks whoever takes input requests for a line, and waits for it; on the engine thread, serves commands
    /// meanwhile. Throws Python's EOFError when nobody takes them or the engine stops, `std::runtime_error`
    /// when the command may not ask, and Python's exception when it is interrupted.
    InputRequests::Answer askForLine(const std::u16string& prompt, bool password);
    /// Empty, like the next, in a forked child.
    std::vector<std::string> runningIds() const;
    std::vector<std::string> waitingIds() const;
    /// Python has dropped the interrupt of the innermost command where it drops all exceptions: raises it
    /// again, some time later, as a finalizer may come behind another. False where nothing is there to be
    /// interrupted.
    bool repeatInterrupt();
    void onInterruptSignal(const pybind11::object& frame);
    void onPreemptionSignal(const pybind11::object& frame);

  private:
    using Deadline = std::optional<Clock::time_point>;

    void startPython(const std::optional<std::filesystem::path>& venv,
                     const std::optional<std::filesystem::path>& startupFile);

    /// Runs commands until there is no reason to go on: at boot no command waits, in a pause the deadline has
    /// come or the pausing command is interrupted, anywhere the engine stops. Without the GIL.
    void serve(Moment moment, Deadline deadline);
    template <typename IsOver>
    void serveUntil(Moment moment, const Deadline& deadline, const IsOver& isOver);
    /// Whether commands may run above the one that waits for the gate. Without the GIL.
    bool mayServeWhileWriting() const;
    bool isOver(Moment moment, const Deadline& deadline) const;
    /// Until somebody calls `wake`, text is to be synchronised, or the deadline.
    void waitForWork(Deadline deadline);
    void releaseWhatWasLent();

    /// Takes the next command and pushes it on the stack; null when none may run.
    std::shared_ptr<Command> takeNext(Moment moment);
    void runCommand(const std::shared_ptr<Command>& command);
    /// False when some may be left, as there were many or `beneath` is to stop. Without the GIL.
    bool takePreemptionBatch(const Command& beneath);
    Outcome runInPython(Command& command);
    /// The answer to a request that was fired, empty when something else ended the wait. Without the GIL.
    std::optional<InputRequests::Answer> serveUntilAnswered(const InputRequests::Wait& wait);
    /// If nobody is left to end the wait of the innermost command.
    void interruptIfUnattended();
    /// Carries out what clients want of breakpoints, and stops the innermost command if somebody breaks into
    /// it. Without the GIL.
    void serveDebugger();

    const std::shared_ptr<ReleaseQueue> releases_;
    const std::shared_ptr<CommandTable> commands_;
    EngineOutput output_;
    EngineEvents events_;
    Prompt prompt_;
    InputRequests inputs_;
    DebugControl debugControl_;
    bool isChangingBreakpoints_ = false;  ///< of the engine thread
    const std::shared_ptr<EngineDebugger> debugger_;
    const boost::shared_ptr<cmddistributor::CommandQueue> queue_;

    std::unique_ptr<CommandRunner> runner_;  // engine thread; made when Python has started

    pthread_t thread_{};  // constant after the start
    CommandStack stack_;

    // A semaphore, since a condition variable's mutex costs each wait a system call more.
    std::binary_semaphore woken_{0};
    /// Whether somebody has released the semaphore, or is about to.
    std::atomic<bool> wakeRequested_{false};
    std::atomic<bool> stopping_{false};
    /// Whether nobody is left who could answer a command, resume or interrupt it.
    std::atomic<bool> unattended_{false};
};

}  // namespace yvm::engine
