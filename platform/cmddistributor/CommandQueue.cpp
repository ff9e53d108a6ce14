#include "cmddistributor/CommandQueue.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <span>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace cmddistributor {
namespace {

using ylutil::cmddistributor::WhenToDequeue;
using Mode = RunOptions::DequeueMode;
using Status = RuntimeException::Status;
using Clock = std::chrono::steady_clock;

foundation::log::diagnostic_logger& logger() {
    // Never destroyed: commands may still be settled while the process ends.
    static auto& instance = *new foundation::log::diagnostic_logger("cmddistributor::CommandQueue");
    return instance;
}

constexpr Mode atBoot[] = {Mode::DEQUEUE_AT_BOOTSTRAP};
constexpr Mode atTopPrompt[] = {Mode::DEQUEUE_AT_PPE, Mode::DEQUEUE_AT_PAUSE, Mode::DEQUEUE_AT_PROMPT,
                                Mode::DEQUEUE_AT_NON_DEBUG_PROMPT};
constexpr Mode atIdle[] = {Mode::DEQUEUE_AT_IDLE};
constexpr Mode atPause[] = {Mode::DEQUEUE_AT_PPE, Mode::DEQUEUE_AT_PAUSE};
constexpr Mode atDebugPrompt[] = {Mode::DEQUEUE_AT_PPE, Mode::DEQUEUE_AT_PAUSE, Mode::DEQUEUE_AT_PROMPT,
                                  Mode::DEQUEUE_AT_DEBUG_PROMPT};
constexpr Mode atPreemptionPoint[] = {Mode::DEQUEUE_AT_PPE};

using Modes = std::span<const Mode>;

/// The modes that may run at a moment, in ranks: a rank is asked only if those before it have nothing.
std::span<const Modes> ranksAt(Moment moment) {
    static constexpr Modes boot[] = {atBoot};
    static constexpr Modes topPrompt[] = {atBoot, atTopPrompt, atIdle};
    static constexpr Modes pause[] = {atPause};
    static constexpr Modes debugPrompt[] = {atDebugPrompt};
    static constexpr Modes preemptionPoint[] = {atPreemptionPoint};
    switch (moment) {
        case Moment::Boot:
            return boot;
        case Moment::TopPrompt:
            return topPrompt;
        case Moment::Pause:
        case Moment::Input:
            return pause;
        case Moment::DebugPrompt:
            return debugPrompt;
        case Moment::PreemptionPoint:
            return preemptionPoint;
    }
    return {};
}

RuntimeException cancelledBeforeRunning() {
    return {Status::Cancelled, std::string("The command was cancelled before it ran."), cancelledIdentifier};
}

RuntimeException shutDown() {
    return {Status::ShuttingDown,
            std::string("The engine shut down before it answered the command."),
            shutDownIdentifier,
            {},
            {},
            {},
            true};
}

boost::shared_future<CmdDistributor::CancelStatus> readyStatus(CmdDistributor::CancelStatus status) {
    // Of a promise: a deferred future would never run the continuation that answers the client.
    boost::promise<CmdDistributor::CancelStatus> promise;
    promise.set_value(status);
    return promise.get_future().share();
}

}  // namespace

EngineSignals::~EngineSignals() = default;

boost::shared_ptr<CommandQueue> CommandQueue::create(EngineSignals& signals, CommandObserver observer) {
    return boost::make_shared<CommandQueue>(signals, std::move(observer));
}

CommandQueue::CommandQueue(EngineSignals& signals, CommandObserver observer)
    : observer_(std::move(observer)), signals_(&signals) {}

CommandQueue::~CommandQueue() {
    close();
    // What was taken and never settled. Nobody else can reach the queue any more.
    for (auto& entry : std::exchange(entries_, {})) {
        entry.delegate->fail(shutDown());
        settleCancel(entry, UNABLE_TO_CANCEL_OTHER);
    }
}

void CommandQueue::enqueueImpl(Submission& submission) {
    const auto mode = submission.runOptions.getDequeueMode();
    if (mode <= WhenToDequeue::DEQUEUE_UNKNOWN || mode > WhenToDequeue::DEQUEUE_AT_BOOTSTRAP) {
        throw std::invalid_argument("a command needs one of the dequeue modes 1 to 7, not " +
                                    std::to_string(static_cast<int>(mode)) + ".");
    }

    Entries fresh;
    auto& entry = fresh.emplace_back();
    entry.self = fresh.begin();
    entry.id = submission.id;
    entry.runOptions = std::make_shared<const RunOptions>(std::move(submission.runOptions));

    bool isClosed = false;
    bool preempts = false;
    {
        const std::lock_guard lock(mutex_);
        isClosed = closed_;
        if (isClosed) {
            finished_.remember(entry.id);
        } else {
            if (!byId_.try_emplace(entry.id, &entry).second) {
                std::ostringstream text;
                text << "a command with the identity " << entry.id << " waits or runs already.";
                throw std::invalid_argument(text.str());
            }
            try {
                addToLineLocked(entry);
            } catch (...) {
                byId_.erase(entry.id);
                throw;
            }
            // Nothing below throws: only now may the submission be emptied.
            entry.request = std::move(submission.request);
            entry.delegate = std::move(submission.delegate);
            entry.context = std::move(submission.context);
            entries_.splice(entries_.end(), fresh);
            preempts = mode == WhenToDequeue::DEQUEUE_AT_PPE && !running_.empty();
            changed_.notify_all();
        }
    }
    if (isClosed) {
        submission.delegate->fail(shutDown());
        return;
    }
    signal([preempts](EngineSignals& signals) {
        signals.wake();
        if (preempts) {
            signals.requestPreemption();
        }
    });
}

void CommandQueue::addToLineLocked(Entry& entry) {
    const auto& options = *entry.runOptions;
    const auto name = options.getQueueName().value_or(std::u16string());
    if (const auto found = queueByName_.find(name); found != queueByName_.end()) {
        entry.queue = found->second;
    } else {
        entry.queue = queues_.insert(queues_.end(), NamedQueue{name, 0, {}});
        queueByName_.emplace(name, entry.queue);
    }
    auto& line = entry.queue->lines[options.getDequeueMode()];
    entry.placeInLine = line.insert(line.end(), &entry);
    entry.arrival = ++arrivals_;
    ++entry.queue->size;
    ++waitingByMode_[options.getDequeueMode()];
}

void CommandQueue::removeFromLineLocked(Entry& entry) {
    const auto mode = entry.runOptions->getDequeueMode();
    entry.queue->lines[mode].erase(entry.placeInLine);
    --waitingByMode_[mode];
    if (--entry.queue->size == 0) {
        queueByName_.erase(entry.queue->name);
        queues_.erase(entry.queue);
    }
}

bool CommandQueue::mayTakeLocked(Moment moment) const {
    return std::ranges::any_of(ranksAt(moment), [this](Modes rank) {
        return std::ranges::any_of(rank, [this](Mode mode) { return waitingByMode_[mode] != 0; });
    });
}

CommandQueue::Entry* CommandQueue::nextLocked(Moment moment) {
    for (const auto rank : ranksAt(moment)) {
        // Spares a walk over queues that hold nothing but commands for another moment.
        if (std::ranges::all_of(rank, [this](Mode mode) { return waitingByMode_[mode] == 0; })) {
            continue;
        }
        for (auto queue = queues_.begin(); queue != queues_.end(); ++queue) {
            Entry* first = nullptr;
            for (const auto mode : rank) {
                const auto& line = queue->lines[mode];
                if (!line.empty() && (first == nullptr || line.front()->arrival < first->arrival)) {
                    first = line.front();
                }
            }
            if (first != nullptr) {
                queues_.splice(queues_.end(), queues_, queue);
                return first;
            }
        }
    }
    return nullptr;
}

std::optional<TakenCommand> CommandQueue::take(Moment moment) {
    IDType id = IDType::null();
    std::shared_ptr<CmdRequest> request;
    std::shared_ptr<const RunOptions> runOptions;
    bool preempts = false;
    {
        const std::lock_guard lock(mutex_);
        auto* const next = nextLocked(moment);
        if (next == nullptr) {
            return std::nullopt;
        }
        running_.push_back(next);
        removeFromLineLocked(*next);
        next->isRunning = true;
        next->taken = Clock::now();
        id = next->id;
        request = next->request;
        runOptions = next->runOptions;
        // Those that came before the command started were not signalled, as nothing ran then. At a
        // pre-emption point the engine goes on taking until nothing is left.
        preempts = moment != Moment::PreemptionPoint && waitingByMode_[WhenToDequeue::DEQUEUE_AT_PPE] != 0;
    }
    if (preempts) {
        signal([](EngineSignals& signals) { signals.requestPreemption(); });
    }
    return TakenCommand{id, std::move(request), *runOptions};
}

bool CommandQueue::wantsReturnLocked(Moment moment) {
    return std::exchange(wakeRequested_, false) || closed_ || mayTakeLocked(moment);
}

void CommandQueue::waitFor(Moment moment) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this, moment] { return wantsReturnLocked(moment); });
}

bool CommandQueue::waitFor(Moment moment, std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    return changed_.wait_until(lock, deadline, [this, moment] { return wantsReturnLocked(moment); });
}

void CommandQueue::wakeUp() {
    const std::lock_guard lock(mutex_);
    wakeRequested_ = true;
    changed_.notify_all();
}

void CommandQueue::extractLocked(Entry& entry, Entries& into) {
    if (entry.isRunning) {
        std::erase(running_, &entry);
    } else {
        removeFromLineLocked(entry);
    }
    finished_.remember(entry.id);
    byId_.erase(entry.id);
    into.splice(into.end(), entries_, entry.self);
}

CommandQueue::Entries CommandQueue::extractRunning(const IDType& id) {
    Entries settled;
    const std::lock_guard lock(mutex_);
    const auto found = byId_.find(id);
    if (found == byId_.end() || !found->second->isRunning) {
        std::ostringstream text;
        text << "no command with the identity " << id << " is running.";
        throw std::invalid_argument(text.str());
    }
    extractLocked(*found->second, settled);
    return settled;
}

void CommandQueue::settleCancel(Entry& entry, CancelStatus status) {
    if (!entry.cancelPromise) {
        return;
    }
    try {
        entry.cancelPromise->set_value(status);
    } catch (...) {
        // The continuation of whoever cancelled needs a thread that cannot be had. The engine goes on.
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "The answer to a cancel of " << entry.id
            << " was lost: " << boost::current_exception_diagnostic_information();
    }
}

void CommandQueue::observe(const Entry& entry, CommandOutcome outcome, Clock::time_point end) const {
    if (!observer_) {
        return;
    }
    const bool isFEval = std::holds_alternative<FEvalIIP>(*entry.request->getIIP());
    CommandTimes times{isFEval ? CommandKind::FEval : CommandKind::Eval, outcome, end - entry.submitted, {}};
    if (entry.isRunning) {
        times.queued = entry.taken - entry.submitted;
        times.run = end - entry.taken;
    }
    observer_(times);
}

void CommandQueue::finish(const IDType& id, FEvalResult result) {
    const auto end = Clock::now();
    auto settled = extractRunning(id);
    observe(settled.front(), CommandOutcome::Succeeded, end);
    settled.front().delegate->succeed(std::move(result));
    settleCancel(settled.front(), UNABLE_TO_CANCEL_ALREADY_DONE);
}

void CommandQueue::fail(const IDType& id, const RuntimeException& error, bool stoppedByInterrupt) {
    const auto end = Clock::now();
    auto settled = extractRunning(id);
    observe(settled.front(), stoppedByInterrupt ? CommandOutcome::Interrupted : CommandOutcome::Failed, end);
    settled.front().delegate->fail(error);
    settleCancel(settled.front(), stoppedByInterrupt ? CANCEL_WHILE_RUNNING : UNABLE_TO_CANCEL_ALREADY_DONE);
}

boost::shared_future<CmdDistributor::CancelStatus> CommandQueue::cancel(const IDType& id, bool interrupt) {
    Entries cancelled;
    boost::shared_future<CancelStatus> pending;
    {
        const std::lock_guard lock(mutex_);
        const auto found = byId_.find(id);
        if (found == byId_.end()) {
            return readyStatus(finished_.contains(id) ? UNABLE_TO_CANCEL_ALREADY_DONE
                                                      : UNABLE_TO_CANCEL_OTHER);
        }
        auto& entry = *found->second;
        if (!entry.isRunning) {
            extractLocked(entry, cancelled);
        } else if (!interrupt) {
            return readyStatus(UNABLE_TO_CANCEL_OTHER);
        } else {
            if (!entry.cancelPromise) {
                entry.cancelFuture = entry.cancelPromise.emplace().get_future().share();
            }
            pending = entry.cancelFuture;
        }
    }
    if (!cancelled.empty()) {
        observe(cancelled.front(), CommandOutcome::Cancelled, Clock::now());
        cancelled.front().delegate->fail(cancelledBeforeRunning());
        return readyStatus(CANCEL_BEFORE_RUNNING);
    }
    signal([&id](EngineSignals& signals) { signals.interrupt(id); });
    return pending;
}

void CommandQueue::cancelGroup(const std::string& groupName, bool interrupt) {
    Entries cancelled;
    std::vector<IDType> toInterrupt;
    {
        const std::lock_guard lock(mutex_);
        for (auto next = entries_.begin(); next != entries_.end();) {
            auto& entry = *next++;
            const auto& groups = entry.runOptions->getGroupNames();
            if (std::ranges::find(groups, groupName) == groups.end()) {
                continue;
            }
            if (!entry.isRunning) {
                extractLocked(entry, cancelled);
            } else if (interrupt) {
                toInterrupt.push_back(entry.id);
            }
        }
    }
    // First, since thousands of completions take their time; none of theirs is left to run next.
    for (const auto& id : toInterrupt) {
        signal([&id](EngineSignals& signals) { signals.interrupt(id); });
    }
    // Copies share one text.
    const RuntimeException error = cancelledBeforeRunning();
    // Each dies while what it holds is still in the processor's caches.
    for (; !cancelled.empty(); cancelled.pop_front()) {
        observe(cancelled.front(), CommandOutcome::Cancelled, Clock::now());
        cancelled.front().delegate->fail(error);
    }
}

std::shared_ptr<const RunOptions> CommandQueue::findRunOptions(const IDType& id) const {
    const std::lock_guard lock(mutex_);
    const auto found = byId_.find(id);
    return found == byId_.end() ? nullptr : found->second->runOptions;
}

std::vector<CmdDistributor::IDType> CommandQueue::running() const {
    const std::lock_guard lock(mutex_);
    std::vector<IDType> ids;
    for (const auto* entry : running_) {
        ids.push_back(entry->id);
    }
    return ids;
}

std::vector<CmdDistributor::IDType> CommandQueue::waiting() const {
    const std::lock_guard lock(mutex_);
    std::vector<IDType> ids;
    for (const auto& entry : entries_) {
        if (!entry.isRunning) {
            ids.push_back(entry.id);
        }
    }
    return ids;
}

void CommandQueue::close() {
    Entries abandoned;
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        for (auto next = entries_.begin(); next != entries_.end();) {
            auto& entry = *next++;
            if (!entry.isRunning) {
                extractLocked(entry, abandoned);
            }
        }
        changed_.notify_all();
    }
    for (auto& entry : abandoned) {
        observe(entry, CommandOutcome::Abandoned, Clock::now());
        entry.delegate->fail(shutDown());
    }
    const std::lock_guard lock(signalsMutex_);
    signals_ = nullptr;
}

template <typename Call>
void CommandQueue::signal(Call call) {
    const std::shared_lock lock(signalsMutex_);
    if (signals_ != nullptr) {
        call(*signals_);
    }
}

}  // namespace cmddistributor
