#pragma once

#include "cmddistributor/CommandTimes.hpp"
#include "yvm/OutputGate.hpp"
#include "yvm/YVM.hpp"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace yvm::engine {

/// How an engine is started. Every field may be left out.
struct EngineOptions {
    /// The folder of a virtual environment of the same Python version, whose packages come first. NumPy is
    /// taken from the system when the environment has none. Default: the system's packages.
    std::optional<std::filesystem::path> venv;
    /// A script that runs in the workspace before the first command.
    std::optional<std::filesystem::path> startupFile;
    /// Becomes the folder of the whole process. Default: it stays where it is.
    std::optional<std::filesystem::path> workingFolder;
    /// Where text goes that no command's stream takes: of the start-up script, of commands without streams,
    /// of threads that belong to no command. `error` tells standard error from standard output. Called on
    /// the thread that writes, one call at a time for each of the two streams, without the interpreter's
    /// lock; must not block. Default: such text is dropped.
    std::function<void(std::string_view utf8, bool error)> console;
    /// Asked before text of a command or thread goes to streams of a client. Whoever is refused waits; on the
    /// engine's thread, commands run meanwhile that may run in a pause, and an interrupt ends the wait. Text
    /// for the console waits for nobody. Default: nobody is held back.
    std::shared_ptr<OutputGate> outputGate;
    /// Whether text that C and C++ code, programs and forked children write to the descriptors 1 and 2 of the
    /// process is text of the command that a prompt runs, else of the client-wide sinks or the console. The
    /// console, and a log, must then keep duplicates of their own, made before the start. The originals are
    /// back after `stop`. Default: it goes where it always went.
    bool captureDescriptors = false;
    /// Told of each command that has ended, and of its times; see there for the threads. Called also after
    /// `stop`, by a command that did not end within its bound. Default: nobody.
    cmddistributor::CommandObserver commandEnded;
};

/// The YVM on CPython and NumPy.
///
/// One thread of the engine owns the interpreter and alone runs commands and completions. There is one
/// engine in the life of a process, since an interpreter cannot be started twice.
///
/// - `eval`: the text is Python source, run in `__main__`, the one workspace of all clients. The value of a
///   last bare expression is displayed, None excepted, unless the text ends in `;`.
/// - `feval`: the function is looked up in the workspace, among the builtins, then as a dotted import.
/// - Failures are `RuntimeException`s with the exception's type as identifier.
///
/// Commands of `DEQUEUE_AT_BOOTSTRAP` run after the start-up script and before the first prompt; later ones
/// come first at the next prompt. Commands of `DEQUEUE_AT_PPE` run at pre-emption points of running Python
/// code: between two bytecodes and inside waits that know EINTR. They wait for the end of an import, and
/// above `maxPreemptionDepth` others of their kind for the end of one of those.
///
/// An interrupt raises `yvm.Interrupt`, a KeyboardInterrupt, in the command that it is meant for and in no
/// other. Code that catches it goes on and can be interrupted again; the third within two seconds is raised
/// before each further line until the command has ended.
///
/// Order of life: made by `start`; `stop`, then destroyed. The process is to end by `std::_Exit` or
/// `std::quick_exit` after `stop`, or by a normal exit: the interpreter is frozen then and touches nothing
/// any more. It is never finalized, since that waits without bound for threads of the user.
///
/// Safe from any thread.
class Engine final : public YVM {
  public:
    static constexpr int maxPreemptionDepth = 8;

    /// Starts the interpreter, runs the start-up script, and returns when commands can run; the process-wide
    /// engine of `yvm::Factory` is then this one. Throws `std::runtime_error` that says what is wrong with
    /// an option (no such environment, script or folder, a script that raises), `std::logic_error` on the
    /// second call in a process.
    static std::shared_ptr<Engine> start(const EngineOptions& options);

    /// Stops, if nobody has. See `stop`.
    ~Engine() override;

    /// For a caller whose clients say no more, ahead of `stop`: from now on nobody answers a request for a
    /// line, which raises EOFError, and a command that stops in the debugger or pauses without end is
    /// interrupted. All others run as before. Idempotent.
    void endWaits();

    /// Refuses new commands, fails those that wait, interrupts the one that runs, and waits for at most
    /// `bound` until the engine's thread is at rest. Functions that the user registered with `atexit` run
    /// within it. What does not end within the bound is left alone, its command unanswered. Returns whether
    /// all has ended. Idempotent. Not to be called on the engine's own thread.
    bool stop(std::chrono::milliseconds bound);

    std::uint64_t getIdentifier() const override;
    /// Null after `stop`.
    boost::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override;
    void replaceSinks(Sink outSink, Sink errSink) override;
    foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<YVM> self) override;
    void interrupt() override;
    std::shared_ptr<ylutil::debugger::Debugger> getDebugger() override;
    void breakInDebugger() override;
    boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> getEventMgr() override;

  private:
    class Parts;
    explicit Engine(Parts& parts);

    /// Lives as long as the process, as does what Python code refers to.
    Parts& parts_;
};

}  // namespace yvm::engine
