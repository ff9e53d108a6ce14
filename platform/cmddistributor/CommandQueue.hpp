#pragma once

#include "cmddistributor/CmdDistributor.hpp"
#include "cmddistributor/CommandTimes.hpp"
#include "cmddistributor/detail/FinishedIds.hpp"

#include <boost/shared_ptr.hpp>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <unordered_map>
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

/// What the queue asks of the engine. Called without the queue's lock, on the thread of whoever submits,
/// cancels or takes. Must not block, must not throw, and must not call back into the queue, save `wakeUp`.
///
/// As no lock is held, the state may have moved on when a call arrives: `interrupt` may name a command that
/// has ended since, and `requestPreemption` may find nothing to take.
class [[gnu::visibility("default")]] EngineSignals {
  public:
    virtual ~EngineSignals();
    /// A command has come in, for whatever moment. Whoever sits in `CommandQueue::waitFor` is woken without
    /// this call; it is for an engine that waits by other means.
    virtual void wake() = 0;
    /// A `DEQUEUE_AT_PPE` command waits while another runs. Called once for each such command, and again when
    /// a command starts above which they may run; the engine keeps its signals to one outstanding.
    virtual void requestPreemption() = 0;
    /// Stop the running command `id`, and no other. Called for each cancel of it, so that the engine may
    /// press harder the second time.
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
/// | Mode                          | Boot | PreemptionPoint | Pause, Input | DebugPrompt | TopPrompt    |
/// |-------------------------------|------|-----------------|--------------|-------------|--------------|
/// | `DEQUEUE_AT_PPE`              |      | yes             | yes          | yes         | yes          |
/// | `DEQUEUE_AT_PAUSE`            |      |                 | yes          | yes         | yes          |
/// | `DEQUEUE_AT_PROMPT`           |      |                 |              | yes         | yes          |
/// | `DEQUEUE_AT_NON_DEBUG_PROMPT` |      |                 |              |             | yes          |
/// | `DEQUEUE_AT_DEBUG_PROMPT`     |      |                 |              | yes         |              |
/// | `DEQUEUE_AT_IDLE`             |      |                 |              |             | last of all  |
/// | `DEQUEUE_AT_BOOTSTRAP`        | yes  |                 |              |             | first of all |
///
/// First in, first out within a queue name, queues served in turn; a command that may not run at the
/// moment is skipped and is no barrier.
///
/// Order of life: made by `create`; fed and drained; `close`; destroyed, which also fails what still runs.
///
/// Threads: `enqueueWithFuture`, `cancel`, `cancelGroup`, `close`, `wakeUp` and the observers from any
/// thread; `take`, `waitFor`, `finish` and `fail` from the engine thread. The queue's mutex is a leaf: no
/// completion, signal, promise or destructor of a command's parts runs under it.
class [[gnu::visibility("default")]] CommandQueue final : public CmdDistributor {
  public:
    /// How many finished commands are remembered, so that a late cancel reads "already done". A cancel of one
    /// that ended before those is answered like one of an unknown identity.
    static constexpr std::size_t rememberedCommands = 65'536;

    /// `signals` must live until `close` has returned; after that the queue calls it no more. `observer` may
    /// be empty.
    static boost::shared_ptr<CommandQueue> create(EngineSignals& signals, CommandObserver observer = {});

    CommandQueue(EngineSignals& signals, CommandObserver observer);
    ~CommandQueue() override;

    /// The next command that may run at `moment`, marked as running above those that run already;
    /// empty when there is none. Does not wait.
    std::optional<TakenCommand> take(Moment moment);

    /// Blocks until `take(moment)` would give something, the queue is closed, or `wakeUp` was
    /// called. Call without the GIL.
    void waitFor(Moment moment);
    /// As above, at most until `deadline`; false when only that ended the wait.
    bool waitFor(Moment moment, std::chrono::steady_clock::time_point deadline);
    /// Lets a `waitFor` in progress, or the next one, return.
    void wakeUp();

    /// Settle a command that was taken. The completion runs inside, on this thread, and afterwards a pending
    /// cancel of the command is answered: `CANCEL_WHILE_RUNNING` when `stoppedByInterrupt`, else
    /// `UNABLE_TO_CANCEL_ALREADY_DONE`. Throws `std::invalid_argument` when `id` is not running.
    void finish(const IDType& id, FEvalResult result);
    void fail(const IDType& id, const RuntimeException& error, bool stoppedByInterrupt);

    boost::shared_future<CancelStatus> cancel(const IDType& id, bool interrupt) override;
    void cancelGroup(const std::string& groupName, bool interrupt) override;

    /// The run options of a command that is queued or running, shared for reading; empty otherwise.
    std::shared_ptr<const RunOptions> findRunOptions(const IDType& id) const;

    /// What runs, innermost last, and what waits, in the order of arrival.
    std::vector<IDType> running() const;
    std::vector<IDType> waiting() const;

    /// Fails the commands that wait, with `getShutdown()` true; one that is submitted later fails in the same
    /// way, inside the call. What runs is left to run. Idempotent.
    void close();

  private:
    static constexpr std::size_t modeCount = 8;
    using Mode = RunOptions::DequeueMode;

    struct Entry;
    struct NamedQueue;
    using Entries = std::list<Entry>;
    using Queues = std::list<NamedQueue>;
    /// Waiting commands of one queue and one mode, oldest first.
    using Line = std::list<Entry*>;

    struct Entry {
        IDType id;
        std::shared_ptr<CmdRequest> request;
        std::shared_ptr<const RunOptions> runOptions;
        std::unique_ptr<PromiseDelegate> delegate;
        std::shared_ptr<void> context;

        std::chrono::steady_clock::time_point submitted = std::chrono::steady_clock::now();
        std::chrono::steady_clock::time_point taken;  ///< valid while it runs
        bool isRunning = false;
        std::uint64_t arrival = 0;
        Queues::iterator queue;      ///< valid while it waits
        Line::iterator placeInLine;  ///< valid while it waits
        Entries::iterator self;
        /// Engaged once an interrupt was asked for; repeated cancels share its future.
        std::optional<boost::promise<CancelStatus>> cancelPromise;
        boost::shared_future<CancelStatus> cancelFuture;
    };

    struct NamedQueue {
        std::u16string name;
        std::size_t size = 0;
        std::array<Line, modeCount> lines;  ///< by the number of the mode
    };

    void enqueueImpl(Submission& submission) override;

    bool mayTakeLocked(Moment moment) const;
    Entry* nextLocked(Moment moment);
    bool wantsReturnLocked(Moment moment);
    void addToLineLocked(Entry& entry);
    void removeFromLineLocked(Entry& entry);
    /// Takes an entry, and its command's identity, out of the tables. The caller settles and destroys it
    /// after it has let go of the mutex.
    void extractLocked(Entry& entry, Entries& into);
    Entries extractRunning(const IDType& id);

    /// Tells the observer, at `end`, of an entry that is out of the tables.
    void observe(const Entry& entry, CommandOutcome outcome, std::chrono::steady_clock::time_point end) const;
    static void settleCancel(Entry& entry, CancelStatus status);
    template <typename Call>
    void signal(Call call);

    const CommandObserver observer_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;

    // Guarded by mutex_.
    bool closed_ = false;
    bool wakeRequested_ = false;
    std::uint64_t arrivals_ = 0;
    Entries entries_;  ///< waiting and running, in order of arrival
    std::unordered_map<IDType, Entry*> byId_;
    std::vector<Entry*> running_;  ///< innermost last
    Queues queues_;                ///< those with waiting commands; the front is served next
    std::unordered_map<std::u16string, Queues::iterator> queueByName_;
    std::array<std::size_t, modeCount> waitingByMode_{};
    detail::FinishedIds finished_{rememberedCommands};

    /// Held shared while the engine is signalled and alone by `close`, which so waits for the last signal.
    /// Never taken together with mutex_.
    std::shared_mutex signalsMutex_;
    EngineSignals* signals_;  ///< guarded by signalsMutex_; null once closed
};

/// The text identifiers of the errors that the queue itself makes.
inline constexpr const char* cancelledIdentifier = "yvm:cancelled";
inline constexpr const char* shutDownIdentifier = "yvm:shutDown";

}  // namespace cmddistributor
