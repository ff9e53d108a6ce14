#include "engine/detail/CommandRunner.hpp"

#include "engine/detail/EngineModule.hpp"
#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/PythonText.hpp"
#include "fl/i18n/ustring.hpp"

#include <new>
#include <string>
#include <utility>
#include <vector>

namespace yvm::engine {

namespace py = pybind11;
using cmddistributor::EvalIIP;
using cmddistributor::FEvalIIP;
using cmddistributor::FEvalResult;
using cmddistributor::RuntimeException;
using cmddistributor::StackFrame;
using foundation::yorlabdata::Array;
using Status = ylutil::cmddistributor::inExecutionStatus;

namespace {

/// Lets interrupts of the command be raised while the scope lasts: code of the user runs.
class UserCode {
  public:
    explicit UserCode(Command& command) : command_(command) {
        command_.setInterruptible(true);
        // It may have come before there was code that it could break into.
        if (command_.takeInterrupt()) {
            command_.setInterruptible(false);
            raiseInterrupt();
        }
    }
    ~UserCode() { command_.setInterruptible(false); }
    UserCode(const UserCode&) = delete;
    UserCode& operator=(const UserCode&) = delete;

  private:
    Command& command_;
};

py::handle lookUp(const char* module, const char* name) {
    return py::module_::import(module).attr(name).cast<py::object>().release();
}

/// The exception object with its traceback, which travels apart from it until somebody catches it in Python.
py::object exceptionOf(const py::error_already_set& error) {
    if (error.trace()) {
        PyException_SetTraceback(error.value().ptr(), error.trace().ptr());
    }
    return error.value();
}

/// The Python side bounds how many frames and causes there are, and so the depth of this recursion.
RuntimeException fromDescription(const py::tuple& description, Status status) {
    std::vector<StackFrame> frames;
    for (const py::handle item : py::reinterpret_borrow<py::list>(description[3])) {
        const auto frame = py::reinterpret_borrow<py::tuple>(item);
        frames.push_back(
            {toUtf8(frame[0]), toUtf8(frame[1]), frame[2].cast<std::uint64_t>(), toUtf8(frame[3])});
    }
    std::vector<RuntimeException> causes;
    if (const py::object cause = description[4]; !cause.is_none()) {
        causes.push_back(fromDescription(cause, status));
    }
    return {status,
            toUtf16(description[1]),
            toUtf8(description[0]),
            toUtf8(description[2]),
            std::move(frames),
            std::move(causes)};
}

}  // namespace

CommandRunner::CommandRunner(ArrayConversion conversion, DebugControl& debug, const EngineEvents& events)
    : conversion_(std::move(conversion)),
      debug_(debug),
      workspace_(py::module_::import("__main__").attr("__dict__").cast<py::object>().release()),
      compileCommand_(lookUp("yvm._source", "compile_command")),
      remember_(lookUp("yvm._helpers", "remember")),
      resolve_(lookUp("yvm._names", "resolve")),
      describe_(lookUp("yvm._errors", "describe")),
      describeInterrupt_(lookUp("yvm._errors", "describe_interrupt")),
      isInterrupt_(lookUp("yvm._errors", "is_interrupt")),
      runExitFunctions_(lookUp("atexit", "_run_exitfuncs")),
      openFigures_(lookUp("yvm._figures", "opened")),
      endFigures_(lookUp("yvm._figures", "end_command")),
      workspaceWatch_(events, py::reinterpret_borrow<py::dict>(workspace_)) {}

Outcome CommandRunner::run(Command& command) {
    if (command.isOfPrompt()) {
        workspaceWatch_.begin();
    }
    command.setFrameBeneath(PyEval_GetFrame());
    debug_.commandBegins();
    Outcome outcome = runInThisProcess(command);
    debug_.commandEnds(command);
    endIfForked(py::none());
    endFigures(command, outcome);
    if (command.isOfPrompt()) {
        workspaceWatch_.end();
    }
    return outcome;
}

void CommandRunner::endIfForked(py::handle exception) const {
    if (ForkedChild::isThis()) {
        endForkedChild(exception);
    }
}

Outcome CommandRunner::runInThisProcess(Command& command) {
    try {
        const auto& iip = *command.request().getIIP();
        if (const auto* evalIip = std::get_if<EvalIIP>(&iip)) {
            eval(command, *evalIip);
            return {FEvalResult(), false};
        }
        return {feval(command, std::get<FEvalIIP>(iip)), false};
    } catch (py::error_already_set& error) {
        return describe(command, error);
    } catch (const ConversionError& error) {
        return {RuntimeException(Status::CommandFailed, error.what(), "TypeError"), false};
    } catch (const std::bad_alloc&) {
        return {RuntimeException(Status::CommandFailed, "out of memory", "MemoryError"), false};
    } catch (const RuntimeException& error) {
        return {error, false};
    } catch (const std::exception& error) {
        return {RuntimeException(Status::Unclassified, error.what()), false};
    }
}

void CommandRunner::runFile(const std::filesystem::path& file) {
    try {
        const py::object source = py::module_::import("io").attr("open_code")(file.string());
        const py::object text = source.attr("read")();
        source.attr("close")();
        const py::object code =
            py::module_::import("builtins").attr("compile")(text, file.string(), "exec", 0, true);
        execute(code, std::nullopt);
        endIfForked(py::none());
        endFigures_(false);
    } catch (py::error_already_set& error) {
        const py::object exception = exceptionOf(error);
        endIfForked(exception);
        throw toRuntimeException(exception, Status::CommandFailed);
    }
}

void CommandRunner::runExitFunctions() const {
    try {
        runExitFunctions_();
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable("at the exit");
    }
    endIfForked(py::none());
}

void CommandRunner::endFigures(Command& command, Outcome& outcome) const {
    if (PyList_GET_SIZE(openFigures_.ptr()) == 0) {
        return;
    }
    try {
        const UserCode userCode(command);
        endFigures_(!outcome.stoppedByInterrupt);
    } catch (py::error_already_set& error) {
        // A command that has failed keeps the error that it failed by.
        if (std::holds_alternative<FEvalResult>(outcome.value)) {
            outcome = describe(command, error);
        }
    }
}

void CommandRunner::eval(Command& command, const EvalIIP& iip) {
    const py::str text = toPythonText(iip.command);
    if (iip.isUserEval) {
        remember_(text);
    }
    const py::tuple compiled = compileCommand_(text, takeName(iip.command));
    const auto scope = debug_.scopeOf(command);
    for (const py::handle code : {compiled[0], compiled[1]}) {
        if (!code.is_none()) {
            workspaceWatch_.noteAssignments(code);
        }
    }
    const UserCode userCode(command);
    if (!compiled[0].is_none()) {
        execute(compiled[0], scope);
    }
    if (!compiled[1].is_none()) {
        const py::object value = execute(compiled[1], scope);
        if (compiled[2].cast<bool>()) {
            if (!value.is_none()) {
                debug_.stopAtOutput(compiled[1], scope);
            }
            show(value);
        }
    }
}

void CommandRunner::show(py::handle value) {
    // Looked up anew, since users may install their own, or delete it.
    const auto hook = py::reinterpret_borrow<py::object>(PySys_GetObject("displayhook"));
    if (!hook) {
        throw RuntimeException(Status::CommandFailed, "lost sys.displayhook", "RuntimeError");
    }
    hook(value);
}

FEvalResult CommandRunner::feval(Command& command, const FEvalIIP& iip) {
    const UserCode userCode(command);
    const py::object function = resolve_(toPythonText(fl::i18n::to_ustring(iip.function)));
    py::tuple arguments(iip.arguments.size());
    for (std::size_t i = 0; i < iip.arguments.size(); ++i) {
        arguments[i] = conversion_.toPython(iip.arguments[i]);
    }
    const py::object value = function(*arguments);
    return convertOutputs(value, iip.numOutputs);
}

FEvalResult CommandRunner::convertOutputs(py::handle value, std::uint64_t numOutputs) const {
    std::vector<Array> outputs;
    if (numOutputs == 1) {
        outputs.push_back(conversion_.fromPython(value));
    } else if (numOutputs > 1) {
        const bool isSequence = PyTuple_Check(value.ptr()) || PyList_Check(value.ptr());
        const std::string asked = std::to_string(numOutputs) + " outputs were asked for, ";
        if (!isSequence) {
            throw RuntimeException(Status::CommandFailed,
                                   asked + "and the function returned a value of type " +
                                       toUtf8(py::type::handle_of(value).attr("__qualname__")) +
                                       ": a tuple or list of at least as many is accepted",
                                   "TypeError");
        }
        const auto sequence = py::reinterpret_borrow<py::sequence>(value);
        if (sequence.size() < numOutputs) {
            throw RuntimeException(Status::CommandFailed,
                                   asked + "and the function returned " + std::to_string(sequence.size()),
                                   "ValueError");
        }
        for (std::uint64_t i = 0; i < numOutputs; ++i) {
            outputs.push_back(conversion_.fromPython(sequence[i]));
        }
    }
    return FEvalResult(std::move(outputs));
}

std::string CommandRunner::nameCommand(const std::u16string& text) {
    // Of texts that never run.
    if (givenNames_.size() >= maxGivenNames) {
        givenNames_.clear();
    }
    auto& name = givenNames_[text];
    if (name.empty()) {
        name = newName();
    }
    return name;
}

std::string CommandRunner::takeName(const std::u16string& text) {
    if (!givenNames_.empty()) {
        if (const auto given = givenNames_.extract(text)) {
            return given.mapped();
        }
    }
    return newName();
}

std::string CommandRunner::newName() {
    return "<command " + std::to_string(++evalCount_) + ">";
}

py::object CommandRunner::execute(py::handle code, const std::optional<FrameScope>& scope) const {
    PyObject* value = PyEval_EvalCode(code.ptr(), scope ? scope->globals().ptr() : workspace_.ptr(),
                                      scope ? scope->locals().ptr() : workspace_.ptr());
    if (value == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(value);
}

Outcome CommandRunner::describe(Command& command, py::error_already_set& error) const {
    const py::object exception = exceptionOf(error);
    endIfForked(exception);
    // The texts of exceptions are made by code of the user, which may be slow or fail in its turn.
    bool stopped = false;
    try {
        // An interrupt of another command, kept and raised again, or one of the user's own making is an error
        // like any other.
        stopped = command.wasInterrupted() && isInterrupt_(exception).cast<bool>();
        if (!stopped && !error.matches(PyExc_SystemExit)) {
            debug_.stopAtError(exception);
        }
        // One that comes now has been obeyed or is too late: the error must not fall to it.
        command.takeInterrupt();
        const UserCode userCode(command);
        return {toRuntimeException(exception, stopped ? Status::Cancelled : Status::CommandFailed), stopped};
    } catch (const std::exception&) {
        // Python's error, a further interrupt, or a description that a hand-made exception has filled with
        // what is no line or text.
        return describeBriefly(exception, stopped);
    }
}

Outcome CommandRunner::describeBriefly(py::handle exception, bool stopped) const {
    const Status status = stopped ? Status::Cancelled : Status::CommandFailed;
    try {
        if (const py::object description = stopped ? describeInterrupt_(exception) : py::none();
            !description.is_none()) {
            return {fromDescription(description, status), stopped};
        }
    } catch (const std::exception&) {
        // Out of memory, and the least that can be said is below.
    }
    return {RuntimeException(status, "the error could not be described", Py_TYPE(exception.ptr())->tp_name),
            stopped};
}

RuntimeException CommandRunner::toRuntimeException(py::handle exception, Status status) const {
    return fromDescription(describe_(exception), status);
}

}  // namespace yvm::engine
