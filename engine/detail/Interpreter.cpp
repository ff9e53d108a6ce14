#include "engine/detail/Interpreter.hpp"

#include "engine/detail/EmbeddedSources.hpp"
#include "engine/detail/EngineModule.hpp"
#include "engine/detail/EngineSignalNumbers.hpp"
#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/PythonText.hpp"

#include <pybind11/eval.h>
#include <pybind11/pybind11.h>

#include <stdexcept>
#include <string>

namespace yvm::engine {

namespace py = pybind11;

namespace {

std::string versionOfThisPython() {
    return std::to_string(PY_MAJOR_VERSION) + "." + std::to_string(PY_MINOR_VERSION);
}

/// The environment's interpreter, by whose place Python finds the packages of the environment.
std::filesystem::path executableOf(const std::filesystem::path& venv) {
    if (!std::filesystem::is_directory(venv)) {
        throw std::runtime_error("the virtual environment " + venv.string() + " is no folder");
    }
    if (!std::filesystem::exists(venv / "pyvenv.cfg")) {
        throw std::runtime_error("the folder " + venv.string() +
                                 " is no virtual environment: it has no pyvenv.cfg");
    }
    const auto packages = venv / "lib" / ("python" + versionOfThisPython()) / "site-packages";
    if (!std::filesystem::is_directory(packages)) {
        throw std::runtime_error("the virtual environment " + venv.string() + " is not of Python " +
                                 versionOfThisPython() + ": it has no " + packages.string());
    }
    return std::filesystem::absolute(venv).lexically_normal() / "bin" / "python";
}

void check(const PyStatus& status) {
    if (PyStatus_Exception(status) != 0) {
        throw std::runtime_error(std::string("the Python interpreter does not start: ") +
                                 (status.err_msg != nullptr ? status.err_msg : "no reason given"));
    }
}

/// Owns the configuration's memory.
class Configuration {
  public:
    Configuration() { PyConfig_InitPythonConfig(&config_); }
    ~Configuration() { PyConfig_Clear(&config_); }
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;

    PyConfig& get() { return config_; }
    void set(wchar_t** field, const std::string& value) {
        check(PyConfig_SetBytesString(&config_, field, value.c_str()));
    }

  private:
    PyConfig config_{};
};

void initialise(const std::string& executable) {
    PyPreConfig preConfig;
    PyPreConfig_InitPythonConfig(&preConfig);
    preConfig.parse_argv = 0;
    preConfig.use_environment = 0;
    // Files are UTF-8 whatever the locale of the server, and the locale of the process stays as it is.
    preConfig.utf8_mode = 1;
    preConfig.configure_locale = 0;
    check(Py_PreInitialize(&preConfig));

    Configuration configuration;
    PyConfig& config = configuration.get();
    config.parse_argv = 0;
    config.use_environment = 0;
    config.user_site_directory = 0;
    config.install_signal_handlers = 0;
    // Explicit, or whatever python3 comes first in PATH would be taken.
    configuration.set(&config.executable, executable);
    configuration.set(&config.program_name, executable);
    configuration.set(&config.home, YVM_PYTHON_HOME);
    check(Py_InitializeFromConfig(&config));
}

void makeEmbeddedSourcesImportable() {
    py::dict sources;
    for (const EmbeddedSource& source : embeddedSources()) {
        sources[source.name] = py::make_tuple(source.text, source.isPackage);
    }
    py::dict scope;
    scope["__builtins__"] = py::module_::import("builtins");
    scope["__name__"] = "yvm_bootstrap";
    scope["sources"] = sources;
    py::exec(bootstrapSource, scope);
}

void importNumPy(bool inVenv) {
    try {
        py::module_::import("numpy");
        return;
    } catch (py::error_already_set& error) {
        if (!inVenv || !error.matches(PyExc_ModuleNotFoundError)) {
            throw std::runtime_error(std::string("NumPy cannot be imported: ") + error.what());
        }
    }
    // Last of all folders, so that whatever the environment has comes first.
    py::module_::import("sys").attr("path").attr("append")(YVM_PYTHON_HOME "/lib/python3/dist-packages");
    try {
        py::module_::import("numpy");
    } catch (py::error_already_set& error) {
        throw std::runtime_error(
            std::string(
                "NumPy cannot be imported, neither from the virtual environment nor from the system: ") +
            error.what());
    }
}

void installSignalHandlers() {
    const auto engine = py::module_::import("_yvm");
    // Fails unless this thread is the interpreter's main thread, which is the point of this thread.
    const auto install = py::module_::import("signal").attr("signal");
    install(interruptSignal(), engine.attr("on_interrupt_signal"));
    install(preemptionSignal(), engine.attr("on_preemption_signal"));
}

}  // namespace

void startInterpreter(EngineThread& engine, const std::optional<std::filesystem::path>& venv) {
    ForkedChild::markFromNowOn();
    initialise(venv ? executableOf(*venv).string() : YVM_PYTHON_EXECUTABLE);
    try {
        createEngineModule(engine);
        makeEmbeddedSourcesImportable();
        // The engine's own side stands on it.
        importNumPy(venv.has_value());
        for (const char* name : {"yvm._streams", "yvm._input", "yvm._processes", "yvm._display",
                                 "yvm._figures", "yvm._tracebacks", "yvm._window", "yvm._debugging"}) {
            py::module_::import(name).attr("install")();
        }
        const auto sys = py::module_::import("sys");
        py::list arguments;
        arguments.append("");
        sys.attr("argv") = arguments;
        // As at an interactive prompt: modules of the working folder can be imported. Only now, so that none
        // of them stands in for one that the engine needs.
        sys.attr("path").attr("insert")(0, "");
        sys.attr("unraisablehook") = py::module_::import("_yvm").attr("on_unraisable");
        installSignalHandlers();
    } catch (const py::error_already_set& error) {
        // The object holds references, and this thread is about to give up the GIL.
        throw std::runtime_error(std::string("the engine's Python side does not start: ") + error.what());
    }
}

}  // namespace yvm::engine
