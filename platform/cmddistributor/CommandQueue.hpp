#pragma once

#include "cmddistributor/CmdDistributor.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cmddistributor {

/// A moment of the engine's life at which it asks for commands.
enum class Moment {
    Boot,             ///< before the first prompt
    TopPrompt,        ///< nothing runs
    Pause,            ///< a command pauses of its own will
    Input,            ///< a command waits for a line from a client
    DebugPrompt,      ///< a command is stopped in the debugger
    PreemptionPoint,  ///< between two bytecodes of a running command
};

/// What the queue asks of the engine. Called without the queue's lock, on the thread of whoever
/// submits or cancels. Must not block, must not call back into the queue.
class [[gnu::visibility("default")]] EngineSignals {
  public:
    virtual ~EngineSignals();
    /// A command is waiting that a prompt or pause may take: wake the engine thread.
    virtual void wake() = 0;
    /// A command is waiting that a pre-emption point may take while another runs.
    virtual void requestPreemption() = 0;
    /// Stop the running command `id`, and no other.
    virtual void interrupt(const CmdDistributor::IDType& id) = 0;
};

/// A command that the engine has taken and must settle.
struct TakenCommand {
    CmdDistributor::IDType id;
    std::shared_ptr<CmdRequest> request;
    RunOptions runOptions;
};

/// The command distributor of an engine with one thread: the queues, the table of what runs, and the
/// answers to cancels. It knows no interpreter.
///
/// First in, first out within a queue name, queues served in turn; a command that may not run at the
/// moment is skipped and is no barrier. `DEQUEUE_AT_IDLE` commands run when nothing else is eligible
/// at the top prompt.
///
/// Threads: `enqueueWithFuture`, `cancel`, `cancelGroup` and the observers from any thread; `take`,
/// `finish` and `fail` from the engine thread. The one mutex is a leaf: it is held across no callback.
class [[gnu::visibility("default")]] CommandQueue : public CmdDistributor {
  public:
    /// `signals` must outlive the queue's last use; it is told nothing after `close`.
    static boost::shared_ptr<CommandQueue> create(EngineSignals& signals);

    /// The next command that may run at `moment`, marked as running above those that run already;
    /// empty when there is none. Does not wait.
    virtual std::optional<TakenCommand> take(Moment moment) = 0;

    /// Blocks until `take(moment)` would give something, the queue is closed, or `wakeUp` was
    /// called. Call without the GIL.
    virtual void waitFor(Moment moment) = 0;
    /// Lets a `waitFor` in progress, or the next one, return.
    virtual void wakeUp() = 0;

    /// Settle a command that was taken. The completion runs inside, on this thread. A pending cancel
    /// of it is answered: `CANCEL_WHILE_RUNNING` when `stoppedByInterrupt`, else
    /// `UNABLE_TO_CANCEL_ALREADY_DONE`.
    virtual void finish(const IDType& id, FEvalResult result) = 0;
    virtual void fail(const IDType& id, const RuntimeException& error, bool stoppedByInterrupt) = 0;

    /// The run options of a command that is queued or running, shared for reading; empty otherwise.
    virtual std::shared_ptr<const RunOptions> findRunOptions(const IDType& id) const = 0;

    /// What runs, innermost last, and what waits, in the order of arrival.
    virtual std::vector<IDType> running() const = 0;
    virtual std::vector<IDType> waiting() const = 0;

    /// Refuses new commands and fails those that wait, with `getShutdown()` true. Idempotent.
    virtual void close() = 0;
};

/// The text identifiers of the errors that the queue itself makes.
inline constexpr const char* cancelledIdentifier = "yvm:cancelled";
inline constexpr const char* shutDownIdentifier = "yvm:shutDown";

}  // namespace cmddistributor
