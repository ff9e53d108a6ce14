#pragma once

#include "cmddistributor/CommandQueue.hpp"
#include "testing/FakeDebugger.hpp"
#include "yvm/YVM.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace platform_testing {

/// An engine with a real command queue, a real event manager and a thread of its own, whose commands are
/// functions of the test: no interpreter, so it is quick and runs under every sanitizer.
///
/// It serves its queue as a real engine does: boot, then the top prompt; pauses and pre-emption points where
/// a script asks for them; text to the command's own streams; both streams synchronised before the
/// completion; cancels and interrupts that stop the command they name and no other.
///
/// Order of life: `create`, which makes it the current engine of the process; scripts set (also later);
/// `stop`, which fails what waits, interrupts what runs and joins the thread; destruction, which stops it if
/// need be. Stop it before the last reference goes: the engine thread borrows references while text is
/// written, and cannot join itself. Safe for use from any thread.
class FakeEngine final : public yvm::YVM, private cmddistributor::EngineSignals {
  public:
    /// The identifiers of the errors that the engine itself makes.
    static constexpr const char* interruptedIdentifier = "fake:interrupted";
    static constexpr const char* unscriptedIdentifier = "fake:unscripted";

    class Command;
    /// What a command does, on the engine thread. Its result are the outputs, which an eval drops. An
    /// exception fails the command: a `RuntimeException` as it is, another `std::exception` with its text.
    using Script = std::function<Arrays(Command&)>;

    static std::shared_ptr<FakeEngine> create();
    ~FakeEngine() override;

    /// What the command of exactly this text, or the function of this name, does from now on. A command
    /// without a script fails with `unscriptedIdentifier`.
    void onEval(std::u16string command, Script script);
    void onFeval(std::string function, Script script);

    /// Text that commands without a stream of their own have written while no sinks were installed, both
    /// streams as one.
    std::u16string consoleText() const;

    const std::shared_ptr<FakeDebugger>& debugger() const noexcept { return debugger_; }
    int breakInCount() const noexcept { return breakIns_; }

    /// Makes a script that pauses ask its condition again.
    void resume() { queue_->wakeUp(); }

    /// Idempotent. Throws `std::logic_error` on the engine thread, where scripts and completions run.
    void stop();

    std::uint64_t getIdentifier() const override { return identifier_; }
    /// Null once stopped.
    boost::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override;
    void replaceSinks(Sink outSink, Sink errSink) override;
    foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<yvm::YVM> self) override;
    void interrupt() override;
    std::shared_ptr<ylutil::debugger::Debugger> getDebugger() override { return debugger_; }
    /// Counts; scripts do not stop.
    void breakInDebugger() override { ++breakIns_; }
    boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> getEventMgr() override { return eventMgr_; }

  private:
    using CommandQueue = cmddistributor::CommandQueue;
    using Moment = cmddistributor::Moment;

    FakeEngine();

    void wake() override {}
    void requestPreemption() override { preemptionRequested_ = true; }
    void interrupt(const IDType& id) override;

    void run();
    /// Runs what may run at `moment` until nothing is left.
    void serve(Moment moment);
    void runCommand(const cmddistributor::TakenCommand& taken);
    /// Throws the error of an unscripted command.
    Script findScript(const cmddistributor::IIP& iip) const;
    bool isInterrupted(const IDType& id) const;
    foundation::msg_svc::eventmgr::EventHandler findCallback(const IDType& id,
                                                             const std::u16string& eventName) const;

    const std::uint64_t identifier_;
    const boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> eventMgr_;
    const boost::shared_ptr<CommandQueue> queue_;
    const std::shared_ptr<FakeDebugger> debugger_ = std::make_shared<FakeDebugger>();
    std::atomic<int> breakIns_{0};
    std::atomic<bool> stopped_{false};
    std::atomic<bool> preemptionRequested_{false};

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::map<std::u16string, Script> evalScripts_;
    std::map<std::string, Script> fevalScripts_;
    std::u16string consoleText_;
    std::set<IDType> interruptTargets_;      ///< commands that are to stop
    IDType promptCommand_ = IDType::null();  ///< what the top prompt runs
    Sink outSink_;                           ///< null: the console
    Sink errSink_;                           ///< null: the console

    std::mutex joinMutex_;      ///< lets one `stop` join while another waits for it
    std::thread::id threadId_;  ///< constant once constructed; no script can run before
    // Last: it uses all of the above.
    std::thread thread_;
};

/// A running command, as its script sees it. Only for the engine thread, and while the script runs.
class FakeEngine::Command {
  public:
    const IDType& id() const noexcept { return taken_.id; }
    const cmddistributor::RunOptions& runOptions() const noexcept { return taken_.runOptions; }
    /// What an feval was given; throw `std::bad_variant_access` in an eval.
    const Arrays& arguments() const;
    std::uint64_t numOutputs() const;

    /// To the command's own stream, else to the client-wide sink, else to the console.
    void writeOut(std::u16string_view text) const { write(outSink(), text); }
    void writeErr(std::u16string_view text) const { write(errSink(), text); }

    /// Hands an event to the callbacks of its command and to the subscribers, on this thread.
    void fire(const std::shared_ptr<const foundation::msg_svc::eventmgr::BaseEvent>& event);

    /// Runs the pre-emption commands that wait, if any came in since. Stops the command if it was
    /// interrupted.
    void preemptionPoint();

    /// Runs commands that may run during a pause until `done` says so; asked once, and again after each
    /// command and each `resume`. Stops the command if it is interrupted.
    void pauseUntil(const std::function<bool()>& done);

  private:
    friend class FakeEngine;
    /// What an interrupt throws through the script, which lets it pass.
    struct Interrupted {};

    Command(FakeEngine& engine, const cmddistributor::TakenCommand& taken) : engine_(engine), taken_(taken) {}

    Sink outSink() const;
    Sink errSink() const;
    void write(const Sink& sink, std::u16string_view text) const;
    void synchroniseStreams() const;
    void stopIfInterrupted() const;

    FakeEngine& engine_;
    const cmddistributor::TakenCommand& taken_;
};

}  // namespace platform_testing
