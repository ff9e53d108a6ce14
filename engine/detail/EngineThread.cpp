#include "engine/detail/EngineThread.hpp"

#include "engine/Engine.hpp"
#include "engine/detail/CommandIsolation.hpp"
#include "engine/detail/CommandReports.hpp"
#include "engine/detail/EngineModule.hpp"
#include "engine/detail/EngineSignalNumbers.hpp"
#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/ImportFrames.hpp"
#include "engine/detail/Interpreter.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "services/prompt/InputRequestEvent.hpp"

#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <variant>

namespace yvm::engine {

namespace py = pybind11;
using cmddistributor::FEvalResult;
using cmddistributor::RuntimeException;

namespace {

std::vector<std::string> toTexts(const std::vector<EngineThread::IDType>& ids) {
    std::vector<std::string> texts;
    std::transform(ids.begin(), ids.end(), std::back_inserter(texts), toText);
    return texts;
}

/// How many commands run at one pre-emption point, so that the command beneath goes on, if slowly, however
/// many come. Many, since another point may be a repeated signal away.
constexpr int preemptionBatch = 16;

void leaveSignalsToTheServer() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    sigemptyset(&signals);
    sigaddset(&signals, interruptSignal());
    sigaddset(&signals, preemptionSignal());
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

std::string describeStartupFailure(const std::filesystem::path& file, const RuntimeException& error) {
    std::ostringstream text;
    text << "the start-up script " << file.string() << " failed";
    if (!error.getStackFrames().empty()) {
        const auto& frame = error.getStackFrames().back();
        text << " in line " << frame.lineNumber << " of " << frame.fileName;
    }
    text << ": " << error.GetID() << ": " << error.what();
    return text.str();
}

}  // namespace

EngineThread::EngineThread(const ConsoleBuffer::Console& console, std::shared_ptr<OutputGate> gate,
                           cmddistributor::CommandObserver commandEnded)
    : releases_(std::make_shared<ReleaseQueue>([this] { wake(); })),
      commands_(std::make_shared<CommandTable>()),
      output_(*this, console, std::move(gate)),
      events_(output_),
      prompt_(events_),
      inputs_([this] { wake(); }),
      debugControl_(*this, events_),
      debugger_(std::make_shared<EngineDebugger>([this] {
          requestPreemption();
          wake();
      })),
      queue_(cmddistributor::CommandQueue::create(*this, std::move(commandEnded))) {}

EngineThread::~EngineThread() = default;

void EngineThread::run(const std::optional<std::filesystem::path>& venv,
                       const std::optional<std::filesystem::path>& startupFile, std::promise<void>& ready,
                       std::promise<void>& ended) {
    pthread_setname_np(pthread_self(), "engine");
    leaveSignalsToTheServer();
    try {
        startPython(venv, startupFile);
    } catch (...) {
        ready.set_exception(std::current_exception());
        ended.set_value();
        return;
    }
    {
        const WithoutGil released;
        stack_.arm();
        ready.set_value();
        serve(Moment::Boot, std::nullopt);
        serve(Moment::TopPrompt, std::nullopt);
        stack_.disarm();
        output_.pending().stop();
    }
    {
        const WithoutGil released;
        debugger_->close();
    }
    runner_->runExitFunctions();
    {
        const WithoutGil released;
        output_.synchroniseDefaults();
    }
    // The GIL is never given up again: no thread of the user runs Python code from here on, whatever the
    // process does to the objects that such code would call.
    ended.set_value();
}

void EngineThread::startPython(const std::optional<std::filesystem::path>& venv,
                               const std::optional<std::filesystem::path>& startupFile) {
    thread_ = pthread_self();
    startInterpreter(*this, venv);
    output_.pending().start();
    debugControl_.attach();
    runner_ = std::make_unique<CommandRunner>(ArrayConversion(releases_), debugControl_, events_);
    if (startupFile) {
        try {
            runner_->runFile(*startupFile);
        } catch (const RuntimeException& error) {
            throw std::runtime_error(describeStartupFailure(*startupFile, error));
        }
    }
    const WithoutGil released;
    output_.synchroniseDefaults();
}

void EngineThread::endWaits() {
    unattended_ = true;
    inputs_.close();
    wake();
}

void EngineThread::requestStop() {
    stopping_ = true;
    wake();
}

void EngineThread::interruptAll() {
    stack_.interruptAll();
    wake();
}

void EngineThread::interruptPrompt() {
    if (stack_.interruptPrompt()) {
        wake();
    }
}

void EngineThread::interrupt(const IDType& id) {
    stack_.interrupt(id);
    wake();
}

void EngineThread::breakInDebugger() {
    if (stack_.requestBreak()) {
        requestPreemption();
        wake();
    }
}

void EngineThread::interruptIfUnattended() {
    if (unattended_ && !stack_.isEmpty()) {
        stack_.interrupt(stack_.innermost().id());
    }
}

void EngineThread::wake() {
    if (ForkedChild::isThis()) {
        return;
    }
    if (!wakeRequested_.exchange(true)) {
        woken_.release();
    }
}

void EngineThread::requestPreemption() {
    stack_.requestPreemption(CommandStack::Sending::AtOnce);
}

void EngineThread::pause(double seconds) {
    if (!isEngineThread() || ForkedChild::isThis()) {
        throw std::runtime_error("yvm.pause is for the engine's own thread: elsewhere, use time.sleep");
    }
    // Longer than a process lives; beyond it the clock would overflow.
    constexpr double forEver = 1e9;
    Deadline deadline;
    if (seconds < forEver) {
        deadline = Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    }
    {
        const WithoutGil released;
        if (!stack_.isEmpty()) {
            stack_.innermost().output().synchroniseAll();
        }
        const Prompt::Stay stay(prompt_, Prompt::State::paused);
        serve(Moment::Pause, deadline);
        if (!deadline) {
            interruptIfUnattended();
        }
    }
    raiseDueInterrupt();
}

InputRequests::Answer EngineThread::askForLine(const std::u16string& prompt, bool password) {
    using services::prompt::InputRequestEvent;
    if (!CommandScope::allows("input")) {
        throw std::runtime_error("the command may not ask for input: its run options give it no \"input\"");
    }
    if (!events_.isWanted<InputRequestEvent>()) {
        raiseEndOfInput("the engine has no input to read: nobody answers requests for a line");
    }
    std::optional<InputRequests::Answer> answer;
    {
        const WithoutGil released;
        const InputRequests::Wait wait(inputs_, prompt, password);
        if (isEngineThread()) {
            const Prompt::Stay stay(prompt_, Prompt::State::paused);
            events_.fire<InputRequestEvent>(wait.id(), prompt, password);
            answer = serveUntilAnswered(wait);
        } else {
            events_.fire<InputRequestEvent>(wait.id(), prompt, password);
            answer = wait.awaitAnswer();
        }
    }
    if (!answer) {
        if (isEngineThread()) {
            raiseDueInterrupt();
        }
        raiseEndOfInput("the engine stops");
    }
    return *answer;
}

std::optional<InputRequests::Answer> EngineThread::serveUntilAnswered(const InputRequests::Wait& wait) {
    serveUntil(Moment::Input, std::nullopt,
               [&] { return stopping_ || unattended_ || stack_.isInterruptRequested() || wait.answer(); });
    return wait.answer();
}

std::vector<std::string> EngineThread::runningIds() const {
    if (ForkedChild::isThis()) {
        return {};
    }
    const WithoutGil released;
    return toTexts(queue_->running());
}

std::vector<std::string> EngineThread::waitingIds() const {
    if (ForkedChild::isThis()) {
        return {};
    }
    const WithoutGil released;
    return toTexts(queue_->waiting());
}

void EngineThread::raiseDueInterrupt() {
    if (stack_.isEmpty() || !stack_.innermost().isInterruptible() || !stack_.innermost().takeInterrupt()) {
        return;
    }
    if (stack_.innermost().mustNotSwallow()) {
        stack_.innermost().insist(debugControl_.tracing());
    }
    raiseInterrupt();
}

bool EngineThread::repeatInterrupt() {
    if (!isEngineThread() || ForkedChild::isThis() || stack_.isEmpty() ||
        !stack_.innermost().wasInterrupted() || !stack_.innermost().isInterruptible()) {
        return false;
    }
    stack_.returnInterrupt();
    return true;
}

void EngineThread::onInterruptSignal(const py::object& frame) {
    // At the work of the debugger, a repeated signal comes when that is over.
    if (ForkedChild::isThis() || stack_.isEmpty() || !stack_.innermost().isInterruptRequested() ||
        debugControl_.isBusy()) {
        return;
    }
    const bool hasFrame = frame && !frame.is_none();
    if (hasFrame && isOfImportSystem(reinterpret_cast<PyFrameObject*>(frame.ptr()))) {
        // Python asks again at its next look at the signals.
        PyErr_SetInterruptEx(interruptSignal());
    } else {
        raiseDueInterrupt();
    }
}

void EngineThread::onPreemptionSignal(const py::object& frame) {
    if (ForkedChild::isThis()) {
        return;
    }
    {
        const WithoutGil released;
        output_.pending().synchroniseDue();
    }
    if (!stack_.isEmpty() && isInImport(frame, stack_.innermost().frameBeneath())) {
        // Commands wait: their request stands, and its signal is repeated until the import is over.
        if (!isOfImportSystem(reinterpret_cast<PyFrameObject*>(frame.ptr()))) {
            const WithoutGil released;
            serveDebugger();
        }
        onInterruptSignal(frame);
        return;
    }
    stack_.endPreemption();
    {
        const WithoutGil released;
        serveDebugger();
    }
    // At the limit nothing is lost: the level beneath takes what still waits when this one has ended.
    if (!stack_.isEmpty() && stack_.preemptionDepth() < Engine::maxPreemptionDepth) {
        const WithoutGil released;
        const Command& beneath = stack_.innermost();
        if (!takePreemptionBatch(beneath)) {
            // Sent at once while the command cannot be interrupted, the signal would come before its every
            // bytecode, and the command would never get on to where it can.
            using Sending = CommandStack::Sending;
            stack_.requestPreemption(beneath.isInterruptRequested() ? Sending::AfterAWhile : Sending::AtOnce);
        }
    }
    // An interrupt of the command beneath may have come meanwhile. Python looks at each signal once before it
    // goes back to a system call that the pre-emption broke into, and may have passed this one already.
    onInterruptSignal(frame);
}

bool EngineThread::takePreemptionBatch(const Command& beneath) {
    for (int taken = 0; taken < preemptionBatch && !beneath.isInterruptRequested(); ++taken) {
        const auto command = takeNext(Moment::PreemptionPoint);
        if (command == nullptr) {
            return true;
        }
        runCommand(command);
    }
    return false;
}

void EngineThread::serve(Moment moment, Deadline deadline) {
    serveUntil(moment, deadline, [&] { return isOver(moment, deadline); });
}

template <typename IsOver>
void EngineThread::serveUntil(Moment moment, const Deadline& deadline, const IsOver& isOver) {
    while (!isOver()) {
        serveDebugger();
        if (isOver()) {
            return;
        }
        if (const auto command = takeNext(moment)) {
            runCommand(command);
        } else if (moment == Moment::Boot) {
            return;
        } else {
            prompt_.waitsForCommands(moment);
            // What a signal stands for that has not reached its handler is done, or the wait ends at once.
            stack_.endPreemption();
            releaseWhatWasLent();
            waitForWork(deadline);
        }
    }
}

void EngineThread::serveDebugger() {
    // One change at a time, though the next may break into the code that carries it out.
    if (!isChangingBreakpoints_ && debugger_->hasChanges()) {
        isChangingBreakpoints_ = true;
        debugger_->carryOut([this](const EngineDebugger::Change& change) {
            const WithGil gil;
            debugControl_.changeBreakpoints(change);
        });
        isChangingBreakpoints_ = false;
        if (debugger_->hasChanges()) {
            requestPreemption();
            wake();
        }
    }
    // Code of the engine or of the debugger goes on until it has come back to that of the user.
    if (!stack_.isEmpty() && stack_.innermost().isInterruptible() && !debugControl_.isAtOwnWork() &&
        stack_.innermost().takeBreak()) {
        const WithGil gil;
        debugControl_.breakIn(PyEval_GetFrame());
    }
}

void EngineThread::serveDebugPrompt(const DebugPrompt& prompt) {
    Command& command = *prompt.command();
    command.beginStop();
    const foundation::core::util::scope_guard ends([&command] {
        command.endStop();
        // Whoever breaks in now means the command that goes on, and who did so before has his stop.
        command.takeBreak();
    });
    const Prompt::Stay stay(prompt_, Prompt::State::debug);
    serveUntil(Moment::DebugPrompt, std::nullopt, [&] {
        return stopping_ || unattended_ || prompt.action() != DebugPrompt::Action::Stay ||
               command.isInterruptRequested();
    });
    if (prompt.action() == DebugPrompt::Action::Stay) {
        interruptIfUnattended();
    }
}

bool EngineThread::isEngineThread() const noexcept {
    return pthread_equal(pthread_self(), thread_) != 0;
}

bool EngineThread::waitUntilMayWrite(OutputGate::Way way, const IDType& command) {
    const auto isInterrupted = [this] { return stack_.isInterruptRequested(); };
    const auto isOver = [&] { return stopping_ || isInterrupted() || output_.gate().mayWrite(way, command); };
    if (mayServeWhileWriting()) {
        serveUntil(Moment::Pause, std::nullopt, isOver);
    } else {
        while (!isOver()) {
            waitForWork(std::nullopt);
        }
    }
    return !isInterrupted();
}

bool EngineThread::mayServeWhileWriting() const {
    // Each of those above may have to wait for the gate in its turn.
    if (stack_.size() > Engine::maxPreemptionDepth) {
        return false;
    }
    const WithGil gil;
    return !isInImport(py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(PyEval_GetFrame())),
                       stack_.isEmpty() ? nullptr : stack_.innermost().frameBeneath());
}

std::shared_ptr<Command> EngineThread::commandOfPrompt() const {
    return stack_.commandOfPrompt();
}

void EngineThread::raiseInterruptOfWriter() {
    onInterruptSignal(py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(PyEval_GetFrame())));
}

bool EngineThread::isOver(Moment moment, const Deadline& deadline) const {
    if (stopping_) {
        return true;
    }
    if (moment != Moment::Pause) {
        return false;
    }
    const bool isPast = deadline ? Clock::now() >= *deadline : unattended_.load();
    return isPast || stack_.isInterruptRequested();
}

void EngineThread::waitForWork(Deadline deadline) {
    output_.pending().synchroniseDue();
    const auto due = output_.pending().nextDue();
    if (due && (!deadline || *due < *deadline)) {
        deadline = due;
    }
    if (!deadline) {
        woken_.acquire();
    } else if (!woken_.try_acquire_until(*deadline)) {
        return;
    }
    // Before the caller looks for work: who finds it still set has left the work there already.
    wakeRequested_.exchange(false);
}

void EngineThread::releaseWhatWasLent() {
    if (!releases_->isEmpty()) {
        const WithGil gil;
        releases_->drain();
    }
}

std::shared_ptr<Command> EngineThread::takeNext(Moment moment) {
    stack_.beginTaking();
    auto taken = queue_->take(moment);
    std::shared_ptr<Command> command;
    if (taken) {
        command = commands_->create(std::move(*taken), moment, output_.defaults());
    }
    stack_.endTaking(command);
    return command;
}

void EngineThread::runCommand(const std::shared_ptr<Command>& command) {
    Outcome outcome;
    {
        const CommandScope scope(command);
        if (command->isOfPrompt()) {
            prompt_.takesCommand();
        }
        echo(*command);
        outcome = runInPython(*command);
        if (command->isOfPrompt()) {
            output_.drainDescriptors();
        }
        command->output().synchroniseAll();
        fireFailure(events_, outcome);
    }
    stack_.pop();
    if (auto* result = std::get_if<FEvalResult>(&outcome.value)) {
        queue_->finish(command->id(), std::move(*result));
    } else {
        queue_->fail(command->id(), std::get<RuntimeException>(outcome.value), outcome.stoppedByInterrupt);
    }
}

Outcome EngineThread::runInPython(Command& command) {
    const WithGil gil;
    releases_->drain();
    using Beneath = CommandIsolation::Beneath;
    const CommandIsolation isolation(stack_.size() > 1 ? Beneath::ACommand : Beneath::Nothing);
    return runner_->run(command);
}

}  // namespace yvm::engine
