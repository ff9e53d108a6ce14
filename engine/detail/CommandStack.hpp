#pragma once

#include "engine/detail/Command.hpp"
#include "engine/detail/SignalRepeater.hpp"

#include <pthread.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace yvm::engine {

/// The commands that run, each above the one that it has broken into, and the signals that break into the
/// innermost.
///
/// An interrupt has a target. It is noted in the command and announced by a signal to the engine's thread;
/// the signal's Python handler raises if the innermost command is the target and code of the user runs in it.
/// So it never hits another command: one that nests above the target ends first, and a note on a command that
/// has ended is gone with it. It is not lost either: one that comes while a command is on its way from the
/// queue to the stack is kept until it is there, and the signal is sent again until its handler has run. But
/// it is raised once: code of the user that catches and swallows it goes on, as it may with KeyboardInterrupt
/// anywhere, or loses it where Python itself drops exceptions (a destructor, a callback of a weak reference).
/// The command then runs until it ends or the next cancel or interrupt, which raises anew; the third within
/// `Command::insistenceWindow` cannot be swallowed.
///
/// Safe from any thread, save where said otherwise. `mutex_` is a leaf: nothing is called, and the GIL not
/// taken, with it held. So it may be taken with the GIL held.
class CommandStack {
  public:
    using IDType = Command::IDType;

    /// The signals have handlers from now on, and are for the calling thread. Throws `std::system_error` when
    /// the system has no timer left.
    void arm();
    /// Without handlers a signal would end the process.
    void disarm();

    // For the engine thread, which alone changes the stack.

    bool isEmpty() const noexcept { return commands_.empty(); }
    std::size_t size() const noexcept { return commands_.size(); }
    Command& innermost() const noexcept { return *commands_.back(); }
    /// Whether there is an innermost command, and somebody asks it to stop.
    bool isInterruptRequested() const noexcept { return !isEmpty() && innermost().isInterruptRequested(); }
    /// How many of the commands run at a pre-emption point.
    std::size_t preemptionDepth() const;

    /// A command may be on its way from the queue, until `endTaking`: who interrupts it meanwhile means the
    /// one that comes.
    void beginTaking();
    /// Pushes the command that was taken, if there was one.
    void endTaking(const std::shared_ptr<Command>& taken);
    void pop();

    /// The interrupt that the innermost command took last has not reached it: it is raised again, some time
    /// later.
    void returnInterrupt();
    /// What pre-emption was asked for is being done, or needs no signal.
    void endPreemption();

    // For any thread.

    void interruptAll();
    /// Interrupts the innermost command that a prompt took; false without one.
    bool interruptPrompt();
    /// Interrupts that command, unless it has ended by itself.
    void interrupt(const IDType& id);
    /// Asks the innermost command that a prompt took to stop in the debugger; false without one, and where it
    /// is stopped already.
    bool requestBreak();

    enum class Sending { AtOnce, AfterAWhile };
    /// Breaks into the command that runs. One signal is for all who ask before it is served.
    void requestPreemption(Sending sending);

    /// The innermost command that a prompt took, or null.
    std::shared_ptr<Command> commandOfPrompt() const;

  private:
    /// The innermost command that a prompt took or that is stopped; null when there is none.
    Command* interactiveLocked() const;
    void interruptLocked(Command& command);
    void sendLocked(int signalNumber);
    void stopRepeatingLocked();

    mutable std::mutex mutex_;
    /// Innermost last. Changed by the engine thread under mutex_, so that this thread reads it without.
    std::vector<std::shared_ptr<Command>> commands_;

    // Guarded by mutex_.
    bool armed_ = false;
    pthread_t thread_{};  ///< set when armed
    /// Sends again what may have been missed. There while armed.
    std::optional<SignalRepeater> repeater_;
    /// Whether a pre-emption signal was sent and its handler has not served it.
    bool preemptionRequested_ = false;
    bool taking_ = false;
    /// Who was to be interrupted while a command was on its way.
    std::vector<IDType> earlyInterrupts_;
};

}  // namespace yvm::engine
