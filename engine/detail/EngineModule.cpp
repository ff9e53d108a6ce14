#include "engine/detail/EngineModule.hpp"

#include "engine/detail/Command.hpp"
#include "engine/detail/DebugControl.hpp"
#include "engine/detail/DisplayFunctions.hpp"
#include "engine/detail/EngineThread.hpp"
#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/PythonText.hpp"
#include "services/io/CLCEvent.hpp"
#include "services/io/HomeEvent.hpp"

#include <pthread.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace yvm::engine {

namespace py = pybind11;
using ylutil::io::StreamTypeEnum;

namespace {

// A plain object, not pybind11's, and written once: see createEngineModule.
PyObject* interruptType = nullptr;

/// What a file object writes to.
struct OutputFile {
    EngineOutput& output;
    StreamTypeEnum stream;
};

OutputFile& outputFileOf(PyObject* capsule) {
    return *static_cast<OutputFile*>(PyCapsule_GetPointer(capsule, nullptr));
}

/// Of the destination of what this thread writes to the stream.
ylutil::io::SinkTraits traitsOf(EngineOutput& output, StreamTypeEnum stream) {
    const WithoutGil released;
    return output.ofThisThread().traits(stream);
}

/// Columns and rows of the window that shows what this thread writes. Sizes that no window has stand for the
/// default.
std::pair<std::uint64_t, std::uint64_t> windowOfThisThread() {
    constexpr std::uint64_t largest = 1'000'000;
    const auto use = [](std::uint64_t size, std::uint64_t otherwise) {
        return size == 0 || size > largest ? otherwise : size;
    };
    const cmddistributor::RunOptions defaults;
    const auto& command = CommandScope::current();
    const auto& options = command != nullptr ? command->runOptions() : defaults;
    return {use(options.getCommandWindowColSize(), defaults.getCommandWindowColSize()),
            use(options.getCommandWindowRowSize(), defaults.getCommandWindowRowSize())};
}

/// Runs C++ code for the interpreter, which knows no exceptions of C++.
template <typename Function>
PyObject* callForPython(const Function& function) noexcept {
    try {
        return function();
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const std::exception&) {
        PyErr_NoMemory();  // Nothing else leaves the output.
    }
    return nullptr;
}

PyObject* writeText(PyObject* file, PyObject* text) noexcept {
    return callForPython([&] {
        outputFileOf(file).output.write(outputFileOf(file).stream, text);
        return PyLong_FromSsize_t(PyUnicode_GET_LENGTH(text));
    });
}

PyObject* flushText(PyObject* file, PyObject* /*arguments*/) noexcept {
    return callForPython([&] {
        outputFileOf(file).output.flush(outputFileOf(file).stream);
        return Py_NewRef(Py_None);
    });
}

/// By the interpreter's own means: every piece of text comes through here, and a wrapper of the function
/// would cost more than the text.
void addOutputFile(py::module_& module, EngineOutput& output, StreamTypeEnum stream, const char* write,
                   const char* flush) {
    static PyMethodDef writeDefinition{"write", &writeText, METH_O, "Writes a text; returns its length."};
    static PyMethodDef flushDefinition{"flush", &flushText, METH_NOARGS, "Brings out what was written."};
    // Lives as long as the process, as the functions may.
    const py::capsule file(new OutputFile{output, stream});
    module.attr(write) = py::reinterpret_steal<py::object>(PyCFunction_New(&writeDefinition, file.ptr()));
    module.attr(flush) = py::reinterpret_steal<py::object>(PyCFunction_New(&flushDefinition, file.ptr()));
}

py::list listBreakpoints(const BreakpointTable::Entries& entries) {
    static constexpr std::array<const char*, 5> types{"ERROR", "WARNING", "CAUGHT_ERROR", "NAN_INF",
                                                      "UNSUPPRESSED_OUTPUT"};
    py::list result;
    for (const auto& entry : entries) {
        py::dict item;
        if (const auto* global = std::get_if<YorWorks::lxe::GlobalBreakpoint>(&entry.breakpoint)) {
            item["type"] = types.at(static_cast<std::size_t>(global->condition()));
            if (global->messageId()) {
                item["message_id"] = *global->messageId();
            }
        } else {
            const auto& line = std::get<YorWorks::lxe::LineBreakpoint>(entry.breakpoint);
            item["file"] = toPythonText(line.fileName());
            if (line.location() && line.location()->localFunction()) {
                item["function"] = *line.location()->localFunction();
            }
            if (line.location() && line.location()->anonymousIndex()) {
                item["anonymous_index"] = *line.location()->anonymousIndex();
            }
            if (entry.lineNumber) {
                item["line"] = *entry.lineNumber;
            }
            if (line.expression()) {
                item["condition"] = toPythonText(*line.expression());
            }
        }
        result.append(item);
    }
    return result;
}

/// What is due at the end of a thread of the user, which began in the process `beginner` and ended with
/// `exception` or None.
void endThread(const OutputStreams& output, pid_t beginner, const py::object& exception) {
    if (::getpid() != beginner) {
        // The thread forked, and is what this process began with: at its end the C library would run the
        // destructors of the server. A thread that the child started itself has nothing to end.
        endForkedChild(exception);
    }
    // Its last text has nothing behind it that would bring it out.
    const WithoutGil released;
    output.synchroniseAll();
}

/// Runs a function on a thread of the user, as a part of `command` unless that is null.
py::object runThread(EngineThread& engine, const std::shared_ptr<Command>& command,
                     const py::object& function, const py::tuple& arguments, const py::dict& keywords) {
    std::optional<CommandScope> scope;
    if (command != nullptr) {
        scope.emplace(command);
    }
    const OutputStreams& output = command != nullptr ? command->output() : engine.output().defaults();
    const pid_t beginner = ::getpid();
    try {
        py::object result = function(*arguments, **keywords);
        endThread(output, beginner, py::none());
        return result;
    } catch (py::error_already_set& error) {
        if (::getpid() == beginner && !error.matches(PyExc_SystemExit)) {
            // Python would report it too, but as that of a thread that works for no command any more.
            error.discard_as_unraisable(function);
        }
        endThread(output, beginner, error.value());
        return py::none();
    }
}

/// The engine's debugger, behind `yvm.debug`.
void addDebugger(py::module_& module, DebugControl& control) {
    using Action = DebugPrompt::Action;
    using Condition = BreakpointTable::Condition;
    module.def("debug_leave", [&control](const std::string& action) {
        static const std::map<std::string, Action> actions{{"resume", Action::Resume},
                                                           {"step", Action::Step},
                                                           {"step_in", Action::StepIn},
                                                           {"step_out", Action::StepOut},
                                                           {"quit", Action::Quit}};
        control.leave(actions.at(action));
    });
    module.def("debug_select", [&control](int outwards) { control.select(outwards); });
    // The frames, outermost first, and the index of the selected one.
    module.def("debug_stack", [&control] {
        const DebugPrompt& prompt = control.prompt();
        py::list frames;
        for (const auto& frame : prompt.frames()) {
            frames.append(py::make_tuple(frame.frame, frame.code, frame.line));
        }
        return py::make_tuple(frames, prompt.selected());
    });
    module.def("debug_breakpoints", [&control] { return listBreakpoints(control.breakpoints().entries()); });
    module.def("debug_stop_here", [&control] { control.stopHere(); });
    module.def("debug_stop_at",
               [&control](const std::string& condition, const std::vector<std::string>& identifiers,
                          const py::str& message) {
                   control.stopAtCondition(condition == "warning" ? Condition::Warning : Condition::NanInf,
                                           identifiers, message);
               });
}

/// Lets the server's signals through to this thread, as they are to come to the processes that it starts.
///
/// Not in Python: an interrupt between two of its instructions would leave them so.
class SignalsUnblocked {
  public:
    SignalsUnblocked() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_UNBLOCK, &signals, &before_);
    }
    ~SignalsUnblocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsUnblocked(const SignalsUnblocked&) = delete;
    SignalsUnblocked& operator=(const SignalsUnblocked&) = delete;

  private:
    sigset_t before_{};
};

}  // namespace

void createEngineModule(EngineThread& engine) {
    // Lives as long as the process, as every module's definition must.
    auto* definition = new py::module_::module_def{};
    auto module = py::module_::create_extension_module(
        "_yvm", "How the engine's Python side reaches the engine.", definition);

    interruptType = PyErr_NewExceptionWithDoc("yvm.Interrupt", "The command was interrupted from outside.",
                                              PyExc_KeyboardInterrupt, nullptr);
    if (interruptType == nullptr) {
        throw py::error_already_set();
    }
    module.attr("Interrupt") = py::handle(interruptType);

    addOutputFile(module, engine.output(), StreamTypeEnum::Output, "write_output", "flush_output");
    addOutputFile(module, engine.output(), StreamTypeEnum::Error, "write_error", "flush_error");

    py::class_<Command, std::shared_ptr<Command>>(module, "Command")
        .def_property_readonly("id", [](const Command& command) { return toText(command.id()); });
    module.def("current_command", [] { return CommandScope::current(); });
    module.def("run_thread", [&engine](const std::shared_ptr<Command>& command, const py::object& function,
                                       const py::tuple& arguments, const py::dict& keywords) {
        return runThread(engine, command, function, arguments, keywords);
    });
    module.def("window", &windowOfThisThread);
    // Of values: whether they are formatted, and whether they are paged.
    module.def("how_to_display", [&engine] {
        const auto traits = traitsOf(engine.output(), StreamTypeEnum::Output);
        return std::pair(traits.needsFormattingForDisplay(), traits.supportsMore());
    });
    module.def("links_tracebacks",
               [&engine] { return traitsOf(engine.output(), StreamTypeEnum::Error).supportsHotlinks(); });

    addDisplayFunctions(module, engine);

    module.def("pause", [&engine](double seconds) { engine.pause(seconds); });
    module.def("running", [&engine] { return engine.runningIds(); });
    module.def("waiting", [&engine] { return engine.waitingIds(); });
    module.def("prompt_state", [&engine] { return std::string(toString(engine.prompt().state())); });
    module.def("ask_for_line", [&engine](const py::str& prompt, bool password) {
        const auto line = engine.askForLine(toUtf16(prompt), password);
        return line ? py::object(toPythonText(*line)) : py::none();
    });
    module.def("answer", [&engine](const std::string& id, const py::object& line) {
        if (ForkedChild::isThis()) {
            throw std::runtime_error("a forked process cannot answer requests for input");
        }
        engine.inputs().answer(id, line.is_none() ? InputRequests::Answer() : toUtf16(line));
    });
    module.def("input_requests", [&engine] {
        py::list requests;
        const auto open =
            ForkedChild::isThis() ? std::vector<InputRequests::Request>() : engine.inputs().open();
        for (const auto& request : open) {
            py::dict description;
            description["id"] = request.id;
            description["prompt"] = toPythonText(request.prompt);
            description["password"] = request.password;
            requests.append(description);
        }
        return requests;
    });
    module.def("clear_console", [&engine] {
        const WithoutGil released;
        engine.events().fire<services::io::CLCEvent>();
    });
    module.def("home_cursor", [&engine] {
        const WithoutGil released;
        engine.events().fire<services::io::HomeEvent>();
    });
    module.def("after_fork_in_child", &ForkedChild::restoreSignals);
    module.def(
        "call_with_signals_unblocked",
        [](const py::object& function, const py::tuple& arguments, const py::dict& named) -> py::object {
            const SignalsUnblocked unblocked;
            return function(*arguments, **named);
        });

    addDebugger(module, engine.debugControl());
    module.def("name_command", [&engine](const py::str& text) { return engine.nameCommand(toUtf16(text)); });

    // In C++, as the interrupt would come back into code in Python.
    const auto plainHook = py::module_::import("sys").attr("__unraisablehook__").cast<py::object>().release();
    module.def("on_unraisable", [&engine, plainHook](const py::object& unraisable) {
        const py::object type = unraisable.attr("exc_type");
        if (PyErr_GivenExceptionMatches(type.ptr(), interruptType) == 0 || !engine.repeatInterrupt()) {
            plainHook(unraisable);
        }
    });
    module.def("on_interrupt_signal",
               [&engine](const py::object&, const py::object& frame) { engine.onInterruptSignal(frame); });
    module.def("on_preemption_signal",
               [&engine](const py::object&, const py::object& frame) { engine.onPreemptionSignal(frame); });

    py::module_::import("sys").attr("modules")["_yvm"] = module;
}

void endForkedChild(py::handle exception) noexcept {
    if (!exception.is_none()) {
        try {
            py::module_::import("yvm._processes").attr("end_child")(exception);
        } catch (const std::exception&) {
            ::_exit(EXIT_FAILURE);  // The child is in no state to tell what happened.
        }
    }
    ::_exit(EXIT_SUCCESS);
}

void raiseEndOfInput(const char* reason) {
    PyErr_SetString(PyExc_EOFError, reason);
    throw py::error_already_set();
}

void setInterrupt() noexcept {
    PyErr_SetString(interruptType, "the command was interrupted");
}

bool isInterrupt(const py::error_already_set& error) {
    return error.matches(interruptType);
}

void raiseInterrupt() {
    setInterrupt();
    throw py::error_already_set();
}

}  // namespace yvm::engine
