#include "engine/detail/EngineThread.hpp"

#include "engine/Engine.hpp"
#include "engine/detail/EngineModule.hpp"
#include "engine/detail/EngineSignalNumbers.hpp"
#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/ImportFrames.hpp"
#include "engine/detail/Interpreter.hpp"
#include "engine/detail/PythonText.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "services/prompt/InputRequestEvent.hpp"
#include "ylutil/io/PrintableErrorEvent.hpp"

#include <boost/make_shared.hpp>
#include <pthread.h>

#include <algorithm>
#include <array>
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

/// Keeps the exception that is being handled from a command above, where it would become the context of every
/// error, and from those that follow a command which left one behind: its code was interrupted for good on
/// the way out of an `except` clause.
class HandledException {
  public:
    HandledException() : handled_(py::reinterpret_steal<py::object>(PyErr_GetHandledException())) {
        PyErr_SetHandledException(nullptr);
    }
    ~HandledException() { PyErr_SetHandledException(handled_.ptr()); }
    HandledException(const HandledException&) = delete;
    HandledException& operator=(const HandledException&) = delete;

  private:
    const py::object handled_;
};

/// Keeps from a nested command the redirections of text and input that the one beneath it has set up for
/// itself.
///
/// By the interpreter's own table of `sys`, which knows no error when a user has deleted a name, and with
/// names that are there already: these must not be lost where memory is short.
class NestedState {
  public:
    NestedState() {
        for (std::size_t i = 0; i < saved_.size(); ++i) {
            const auto& name = table().names[i];
            saved_[i] = get(name.used);
            set(name.used, get(name.original));
        }
    }
    ~NestedState() {
        for (std::size_t i = 0; i < saved_.size(); ++i) {
            set(table().names[i].used, saved_[i]);
        }
    }
    NestedState(const NestedState&) = delete;
    NestedState& operator=(const NestedState&) = delete;

  private:
    struct Name {
        explicit Name(const char* name)
            : used(PyUnicode_InternFromString(name)),
              original(PyUnicode_InternFromString(("__" + std::string(name) + "__").c_str())) {}
        PyObject* used;
        PyObject* original;
    };
    /// Never given back.
    struct Table {
        PyObject* sys = py::module_::import("sys").attr("__dict__").cast<py::object>().release().ptr();
        std::array<Name, 4> names{Name("stdin"), Name("stdout"), Name("stderr"), Name("displayhook")};
    };

    static const Table& table() {
        static const Table made;
        return made;
    }
    static py::object get(PyObject* name) {
        return py::reinterpret_borrow<py::object>(PyDict_GetItem(table().sys, name));
    }
    static void set(PyObject* name, const py::object& value) {
        const int failed = value ? PyDict_SetItem(table().sys, name, value.ptr())
                                 : (get(name) ? PyDict_DelItem(table().sys, name) : 0);
        if (failed != 0) {
            PyErr_Clear();
        }
    }

    std::array<py::object, 4> saved_;
};

/// The source as it would stand at Python's own prompt.
std::u16string withPrompts(std::u16string_view source) {
    const std::size_t end = source.find_last_not_of(u"\r\n");
    source = source.substr(0, end == std::u16string_view::npos ? 0 : end + 1);
    std::u16string result = u">>> ";
    for (const char16_t unit : source) {
        result += unit;
        if (unit == u'\n') {
            result += u"... ";
        }
    }
    return result + u'\n';
}

/// Shows the source of a command on the streams whose destination wants it.
void echo(Command& command) {
    const auto* eval = std::get_if<cmddistributor::EvalIIP>(&*command.request().getIIP());
    if (eval == nullptr) {
        return;
    }
    for (const auto stream : {OutputStreams::Stream::Output, OutputStreams::Stream::Error}) {
        if (command.output().traits(stream).useEcho()) {
            command.output().write(stream, withPrompts(eval->command));
        }
    }
}

/// For those who watch commands: who sent this one has the error as its answer. That it was stopped is no
/// error.
void fireFailure(EngineEvents& events, const Outcome& outcome) {
    using ylutil::io::PrintableErrorEvent;
    const auto* error = std::get_if<RuntimeException>(&outcome.value);
    if (error == nullptr || outcome.stoppedByInterrupt || !events.isWanted<PrintableErrorEvent>()) {
        return;
    }
    std::vector<PrintableErrorEvent::Frame> stack;
    for (const auto& frame : error->getStackFrames()) {
        stack.push_back({frame.fileName, frame.functionName, frame.lineNumber, frame.sourceLine});
    }
    events.fire<PrintableErrorEvent>(error->GetID(), error->GetUnicodeMessageTxt(), std::move(stack));
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
        {
            const std::lock_guard lock(framesMutex_);
            repeater_.emplace(preemptionSignal());
            armed_ = true;
        }
        ready.set_value();
        serve(Moment::Boot, std::nullopt);
        serve(Moment::TopPrompt, std::nullopt);
        const std::lock_guard lock(framesMutex_);
        armed_ = false;
        repeater_.reset();
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

void EngineThread::requestStop() {
    stopping_ = true;
    wake();
}

void EngineThread::interruptAll() {
    {
        const std::lock_guard lock(framesMutex_);
        for (const auto& frame : frames_) {
            requestInterruptLocked(*frame);
        }
    }
    wake();
}

void EngineThread::interruptPrompt() {
    {
        const std::lock_guard lock(framesMutex_);
        auto* const command = interactiveCommandLocked();
        if (command == nullptr) {
            return;
        }
        requestInterruptLocked(*command);
    }
    wake();
}

void EngineThread::breakInDebugger() {
    {
        const std::lock_guard lock(framesMutex_);
        auto* const command = interactiveCommandLocked();
        if (command == nullptr || command->isStopped()) {
            return;
        }
        command->requestBreak();
    }
    requestPreemption();
    wake();
}

Command* EngineThread::interactiveCommandLocked() const {
    const auto frame = std::find_if(frames_.rbegin(), frames_.rend(), [](const auto& candidate) {
        return candidate->isOfPrompt() || candidate->isStopped();
    });
    return frame != frames_.rend() ? frame->get() : nullptr;
}

void EngineThread::requestInterruptLocked(Command& command) {
    // Who asked before has sent the signal, and it is repeated; a second would only fill the kernel's queue.
    if (command.requestInterrupt()) {
        sendLocked(interruptSignal());
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
    requestPreemption(Sending::AtOnce);
}

void EngineThread::requestPreemption(Sending sending) {
    const std::lock_guard lock(framesMutex_);
    // One signal runs all commands that are due.
    if (std::exchange(preemptionRequested_, true)) {
        return;
    }
    if (sending == Sending::AtOnce) {
        sendLocked(preemptionSignal());
    } else if (armed_) {
        repeater_->start();
    }
}

void EngineThread::interrupt(const IDType& id) {
    {
        const std::lock_guard lock(framesMutex_);
        const auto frame = std::find_if(frames_.begin(), frames_.end(),
                                        [&id](const auto& candidate) { return candidate->id() == id; });
        if (frame != frames_.end()) {
            requestInterruptLocked(**frame);
        } else if (taking_) {
            earlyInterrupts_.push_back(id);
        }
        // Otherwise it has ended by itself in the meantime.
    }
    wake();
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
        if (!frames_.empty()) {
            frames_.back()->output().synchroniseAll();
        }
        const Prompt::Stay stay(prompt_, Prompt::State::paused);
        serve(Moment::Pause, deadline);
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
        raiseDueInterrupt();
        raiseEndOfInput("the engine stops");
    }
    return *answer;
}

std::optional<InputRequests::Answer> EngineThread::serveUntilAnswered(const InputRequests::Wait& wait) {
    serveUntil(Moment::Input, std::nullopt, [&] {
        return stopping_ || (!frames_.empty() && frames_.back()->isInterruptRequested()) || wait.answer();
    });
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
    if (frames_.empty() || !frames_.back()->isInterruptible() || !frames_.back()->takeInterrupt()) {
        return;
    }
    if (frames_.back()->mustNotSwallow()) {
        frames_.back()->insist(debugControl_.tracing());
    }
    raiseInterrupt();
}

bool EngineThread::repeatInterrupt() {
    if (!isEngineThread() || ForkedChild::isThis() || frames_.empty() || !frames_.back()->wasInterrupted() ||
        !frames_.back()->isInterruptible()) {
        return false;
    }
    const std::lock_guard lock(framesMutex_);
    frames_.back()->returnInterrupt();
    if (armed_) {
        repeater_->start();
    }
    return true;
}

void EngineThread::onInterruptSignal(const py::object& frame) {
    // At the work of the debugger, a repeated signal comes when that is over.
    if (ForkedChild::isThis() || frames_.empty() || !frames_.back()->isInterruptRequested() ||
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
    if (!frames_.empty() && isInImport(frame, frames_.back()->frameBeneath())) {
        // Commands wait: their request stands, and its signal is repeated until the import is over.
        if (!isOfImportSystem(reinterpret_cast<PyFrameObject*>(frame.ptr()))) {
            const WithoutGil released;
            serveDebugger();
        }
        onInterruptSignal(frame);
        return;
    }
    {
        const std::lock_guard lock(framesMutex_);
        preemptionRequested_ = false;
        stopRepeatingLocked();
    }
    {
        const WithoutGil released;
        serveDebugger();
    }
    const auto depth = std::count_if(frames_.begin(), frames_.end(),
                                     [](const auto& command) { return command->isOfPreemption(); });
    // At the limit nothing is lost: the level beneath takes what still waits when this one has ended.
    if (!frames_.empty() && depth < Engine::maxPreemptionDepth) {
        const WithoutGil released;
        const Command& beneath = *frames_.back();
        if (!takePreemptionBatch(beneath)) {
            // Sent at once while the command cannot be interrupted, the signal would come before its every
            // bytecode, and the command would never get on to where it can.
            requestPreemption(beneath.isInterruptRequested() ? Sending::AfterAWhile : Sending::AtOnce);
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
            forgetSignals();
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
    if (!frames_.empty() && frames_.back()->isInterruptible() && !debugControl_.isAtOwnWork() &&
        frames_.back()->takeBreak()) {
        const WithGil gil;
        debugControl_.breakIn(PyEval_GetFrame());
    }
}

void EngineThread::showStop(Command& command, const std::vector<cmddistributor::StackFrame>& frames,
                            const std::u16string& message) {
    if (!command.runOptions().getSuppressDebugControlOutput() && !frames.empty()) {
        const auto& place = frames.back();
        std::string text = "> " + place.fileName + "(" + std::to_string(place.lineNumber) + ")" +
                           place.functionName + "()\n";
        if (!place.sourceLine.empty()) {
            text += "-> " + place.sourceLine + "\n";
        }
        std::u16string shown = fl::i18n::to_ustring(text);
        if (!message.empty()) {
            shown += message + u"\n";
        }
        command.output().write(OutputStreams::Stream::Output, shown);
    }
    command.output().synchroniseAll();
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
        return stopping_ || prompt.action() != DebugPrompt::Action::Stay || command.isInterruptRequested();
    });
}

bool EngineThread::isEngineThread() const noexcept {
    return pthread_equal(pthread_self(), thread_) != 0;
}

bool EngineThread::waitUntilMayWrite(OutputGate::Way way, const IDType& command) {
    const auto isInterrupted = [this] { return !frames_.empty() && frames_.back()->isInterruptRequested(); };
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
    if (frames_.size() > Engine::maxPreemptionDepth) {
        return false;
    }
    const WithGil gil;
    return !isInImport(py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(PyEval_GetFrame())),
                       frames_.empty() ? nullptr : frames_.back()->frameBeneath());
}

std::shared_ptr<Command> EngineThread::commandOfPrompt() const {
    const std::lock_guard lock(framesMutex_);
    const auto frame = std::find_if(frames_.rbegin(), frames_.rend(),
                                    [](const auto& candidate) { return candidate->isOfPrompt(); });
    return frame != frames_.rend() ? *frame : nullptr;
}

void EngineThread::raiseInterruptOfWriter() {
    onInterruptSignal(py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(PyEval_GetFrame())));
}

bool EngineThread::isOver(Moment moment, const Deadline& deadline) const {
    if (stopping_) {
        return true;
    }
    return moment == Moment::Pause && ((deadline && Clock::now() >= *deadline) ||
                                       (!frames_.empty() && frames_.back()->isInterruptRequested()));
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
    {
        const std::lock_guard lock(framesMutex_);
        taking_ = true;
    }
    // Without the mutex, as the queue may ask for a pre-emption in this call.
    auto taken = queue_->take(moment);
    std::shared_ptr<Command> command;
    if (taken) {
        command = commands_->create(std::move(*taken), moment, output_.defaults());
    }
    const std::lock_guard lock(framesMutex_);
    taking_ = false;
    if (command != nullptr) {
        if (std::find(earlyInterrupts_.begin(), earlyInterrupts_.end(), command->id()) !=
            earlyInterrupts_.end()) {
            command->requestInterrupt();
        }
        frames_.push_back(command);
    }
    earlyInterrupts_.clear();
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
    popFrame();
    if (auto* result = std::get_if<FEvalResult>(&outcome.value)) {
        queue_->finish(command->id(), std::move(*result));
    } else {
        queue_->fail(command->id(), std::get<RuntimeException>(outcome.value), outcome.stoppedByInterrupt);
    }
}

Outcome EngineThread::runInPython(Command& command) {
    const WithGil gil;
    releases_->drain();
    const HandledException handled;
    std::optional<NestedState> nested;
    if (frames_.size() > 1) {
        nested.emplace();
    }
    return runner_->run(command);
}

void EngineThread::popFrame() {
    const std::lock_guard lock(framesMutex_);
    frames_.pop_back();
    // Their signals came while the command above it ran.
    if (!frames_.empty() && frames_.back()->isInterruptRequested()) {
        sendLocked(interruptSignal());
    }
    if (!frames_.empty() && frames_.back()->isBreakRequested()) {
        preemptionRequested_ = true;
        sendLocked(preemptionSignal());
    }
}

void EngineThread::sendLocked(int signalNumber) {
    if (armed_) {
        pthread_kill(thread_, signalNumber);
        repeater_->start();
    }
}

void EngineThread::stopRepeatingLocked() {
    const bool isAwaited =
        preemptionRequested_ ||
        (!frames_.empty() && (frames_.back()->isInterruptRequested() || frames_.back()->isBreakRequested()));
    if (!isAwaited && armed_) {
        repeater_->stop();
    }
}

void EngineThread::forgetSignals() {
    const std::lock_guard lock(framesMutex_);
    preemptionRequested_ = false;
    stopRepeatingLocked();
}

}  // namespace yvm::engine
