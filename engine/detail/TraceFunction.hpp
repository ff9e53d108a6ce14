#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <vector>

struct _PyInterpreterFrame;

namespace yvm::engine {

class Command;

/// The one trace function of the engine, in C: one in Python would cost several times as much, and be removed
/// by an exception that it raises.
///
/// It is installed while something needs it, and the one that was there before, such as a coverage tool's,
/// is asleep meanwhile and comes back. Python traces all code then, at two or three times its cost. So while
/// only some code is of interest, each call of a function decides whether its frame is traced, by an own
/// function to evaluate frames: other code runs at its full speed, save that calls take Python's longer way.
///
/// A trace function that user code installs while this one is needed takes its place until `claim`. Where it
/// only removes what is there, this one is back at the next call of a function in Python, or return.
///
/// There is one in a process. On the engine thread with the GIL held, save where said otherwise.
class TraceFunction {
  public:
    class Client {
      public:
        virtual ~Client() = default;
        /// Whether this code is of interest. Asked once for each code, until `codeChanged`. Must not throw or
        /// leave a Python exception behind; runs no Python code.
        virtual bool isOfInterest(PyCodeObject* code) noexcept = 0;
        /// As `Py_tracefunc`. Called for code of interest, and for other code too.
        virtual int onTrace(PyFrameObject* frame, int event, PyObject* argument) noexcept = 0;
    };

    enum class Need {
        Nothing,
        CodeOfInterest,  ///< `isOfInterest` says which
        AllCode
    };

    /// `client` must outlive the use of the interpreter.
    explicit TraceFunction(Client& client) : client_(client) {}
    TraceFunction(const TraceFunction&) = delete;
    TraceFunction& operator=(const TraceFunction&) = delete;

    /// Once, before all others.
    void attach();

    /// What the client needs from now on, also in frames that are running already.
    void setNeed(Need need);
    /// Other code than before is of interest.
    void codeChanged();
    /// Lets Python's loops be looked at again when the trace function that this is called in has returned.
    void updateLoopsLater() noexcept;
    /// Takes the place back that user code may have taken.
    void claim();

    /// The client's verdict, kept since it was asked.
    bool isOfInterest(PyCodeObject* code) noexcept;

    /// Raises the interrupt of `command` anew before each line of its code until `relent`, so that no
    /// `except` clause of it holds the interrupt up. Commands that nest above it are left alone.
    void insist(const Command& command);
    void relent(const Command& command);

  private:
    static int trace(PyObject* self, PyFrameObject* frame, int event, PyObject* argument);
    static PyObject* evaluate(PyThreadState* state, _PyInterpreterFrame* frame, int throwing);

    void update();
    bool isInstalled() const noexcept;
    /// Takes the place that user code has left empty: it may only have meant its own.
    void reclaim();
    void install();
    void uninstall();
    /// Whether the interpreter's loop that has this frame on top is to trace its frames.
    bool wantsLoop(const _PyCFrame& loop) noexcept;
    void updateLoops() noexcept;

    Client& client_;
    PyThreadState* state_ = nullptr;
    Need clientNeed_ = Need::Nothing;
    std::vector<const Command*> insistent_;
    Need need_ = Need::Nothing;

    /// Where the verdict about a code is kept in it.
    Py_ssize_t verdictIndex_ = -1;
    std::uintptr_t codeGeneration_ = 1;
    /// Counts the changes by which running loops have to be looked at again.
    std::uint64_t generation_ = 0;

    // Asleep while this one is installed.
    Py_tracefunc functionBefore_ = nullptr;
    pybind11::object argumentBefore_;
};

}  // namespace yvm::engine
