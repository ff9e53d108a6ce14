#include "foundation/msg_svc/eventmgr/EventMgr.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"

#include <boost/container/small_vector.hpp>
#include <boost/exception/diagnostic_information.hpp>
#include <boost/make_shared.hpp>
#include <boost/smart_ptr/enable_shared_from_this.hpp>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <stdexcept>
#include <thread>
#include <unordered_map>

namespace foundation::msg_svc::eventmgr {

namespace {

const log::diagnostic_logger& logger() {
    static const auto* const instance = new log::diagnostic_logger("foundation::msg_svc::eventmgr");
    return *instance;
}

/// The live subscriptions of one manager by their tags, shared with its connections, which may outlive it.
///
/// The list of a tag is replaced, never changed in place, so that a dispatch walks the list of its moment
/// with no lock held.
class SubscriptionTable {
  public:
    struct Entry {
        EventHandler handler;
        std::vector<std::u16string> tags;  // without repetitions
        std::uint64_t order = 0;           // grows from subscription to subscription; constant once added
        // Relaxed suffices: a dispatch that just misses the end of a subscription is allowed.
        std::atomic<bool> live{true};
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;
    using EntriesPtr = std::shared_ptr<const Entries>;

    void add(const std::shared_ptr<Entry>& entry) {
        const std::lock_guard lock(mutex_);
        entry->order = nextOrder_++;
        for (const auto& tag : entry->tags) {
            auto& entries = lists_[tag];
            auto next = entries ? std::make_shared<Entries>(*entries) : std::make_shared<Entries>();
            next->push_back(entry);
            entries = std::move(next);
        }
    }

    void remove(const std::shared_ptr<Entry>& entry) {
        // Outlives the lock: what dies with the old lists may end further subscriptions.
        std::vector<EntriesPtr> previous;
        const std::lock_guard lock(mutex_);
        for (const auto& tag : entry->tags) {
            const auto list = lists_.find(tag);
            auto next = std::make_shared<Entries>(*list->second);
            std::erase(*next, entry);
            previous.push_back(std::exchange(list->second, std::move(next)));
            if (list->second->empty()) {
                lists_.erase(list);
            }
        }
    }

    /// The subscriptions to any tag of `event`, each once, in the order in which they were made; null where
    /// there is none.
    EntriesPtr wanting(const BaseEvent& event) const {
        const auto& staticTags = event.getStaticTags();
        // Most often there is one: who subscribes to a type seldom meets subscribers to its base.
        boost::container::small_vector<EntriesPtr, 2> found;
        {
            const std::lock_guard lock(mutex_);
            for (const auto* tags : {&staticTags, &event.getUserTags()}) {
                for (const auto& tag : *tags) {
                    if (const auto list = lists_.find(tag); list != lists_.end()) {
                        found.push_back(list->second);
                    }
                }
            }
        }
        if (found.empty()) {
            return nullptr;
        }
        return found.size() == 1 ? found.front() : merged(found);
    }

    std::size_t count(const std::u16string& tag) const {
        const std::lock_guard lock(mutex_);
        const auto list = lists_.find(tag);
        return list == lists_.end() ? 0 : list->second->size();
    }

  private:
    static EntriesPtr merged(std::span<const EntriesPtr> lists) {
        auto all = std::make_shared<Entries>();
        for (const auto& list : lists) {
            all->insert(all->end(), list->begin(), list->end());
        }
        std::ranges::sort(*all, {}, [](const auto& entry) { return entry->order; });
        const auto repeated = std::ranges::unique(*all);
        all->erase(repeated.begin(), repeated.end());
        return all;
    }

    mutable std::mutex mutex_;
    // Both guarded by mutex_. No list is empty.
    std::unordered_map<std::u16string, EntriesPtr> lists_;
    std::uint64_t nextOrder_ = 0;
};

class TableConnection final : public Connection {
  public:
    TableConnection(std::weak_ptr<SubscriptionTable> table, std::shared_ptr<SubscriptionTable::Entry> entry)
        : table_(std::move(table)), entry_(std::move(entry)) {}
    ~TableConnection() override { disconnect(); }

    void disconnect() noexcept override {
        if (!entry_->live.exchange(false, std::memory_order_relaxed)) {
            return;
        }
        if (const auto table = table_.lock()) {
            table->remove(entry_);
        }
    }

  private:
    std::weak_ptr<SubscriptionTable> table_;
    std::shared_ptr<SubscriptionTable::Entry> entry_;
};

/// Runs tasks one after the other on a thread of its own, which starts with the first.
class SerialThread {
  public:
    SerialThread() : work_(std::make_shared<Work>()) {}
    SerialThread(const SerialThread&) = delete;
    SerialThread& operator=(const SerialThread&) = delete;

    /// Runs what is queued, then ends the thread, and waits for that unless it is the caller itself.
    ~SerialThread() {
        {
            const std::lock_guard lock(work_->mutex);
            work_->stopping = true;
            work_->changed.notify_all();
        }
        if (thread_.get_id() == std::this_thread::get_id()) {
            thread_.detach();
        } else if (thread_.joinable()) {
            thread_.join();
        }
    }

    void post(std::function<void()> task) {
        const std::lock_guard lock(work_->mutex);
        work_->tasks.push_back(std::move(task));
        work_->changed.notify_all();
        if (!thread_.joinable()) {
            // The thread owns its work: it may be left to end by itself.
            thread_ = std::thread([work = work_] { run(*work); });
        }
    }

  private:
    struct Work {
        std::mutex mutex;
        std::condition_variable changed;
        // Both guarded by mutex.
        std::deque<std::function<void()>> tasks;
        bool stopping = false;
    };

    static void run(Work& work) {
        std::unique_lock lock(work.mutex);
        for (;;) {
            work.changed.wait(lock, [&work] { return work.stopping || !work.tasks.empty(); });
            if (work.tasks.empty()) {
                return;
            }
            auto task = std::move(work.tasks.front());
            work.tasks.pop_front();
            lock.unlock();
            task();
            task = nullptr;
            lock.lock();
        }
    }

    std::shared_ptr<Work> work_;
    std::thread thread_;  // guarded by work_->mutex until the destructor
};

class LocalEventMgr final : public EventMgr, public boost::enable_shared_from_this<LocalEventMgr> {
  public:
    void deliver(std::shared_ptr<const BaseEvent> event, DeliveryMode mode) override {
        if (!event) {
            throw std::invalid_argument("event cannot be null.");
        }
        // A handler may drop what seems to be the last reference to this manager.
        auto self = shared_from_this();
        if (mode == DeliveryMode::synchronous) {
            dispatch(*event);
            return;
        }
        thread_.post([self = std::move(self), event = std::move(event)] { self->dispatch(*event); });
    }

    std::size_t subscriptionCount(const std::u16string& tag) const override {
        return subscriptions_->count(tag);
    }

    void setCommandHandlerLookup(CommandHandlerLookup lookup) override {
        auto next = lookup ? std::make_shared<const CommandHandlerLookup>(std::move(lookup)) : nullptr;
        const std::lock_guard lock(lookupMutex_);
        // Swapped, so that the old one dies with the lock released.
        lookup_.swap(next);
    }

  private:
    std::unique_ptr<Connection> subscribeGuarded(EventHandler handler,
                                                 std::vector<std::u16string> tags) override {
        auto entry = std::make_shared<SubscriptionTable::Entry>();
        entry->handler = std::move(handler);
        std::ranges::sort(tags);
        const auto repeated = std::ranges::unique(tags);
        tags.erase(repeated.begin(), repeated.end());
        entry->tags = std::move(tags);
        auto connection = std::make_unique<TableConnection>(subscriptions_, entry);
        subscriptions_->add(entry);
        return connection;
    }

    void dispatch(const BaseEvent& event) noexcept {
        const auto entries = subscriptions_->wanting(event);
        callCommandHandler(event);
        if (!entries) {
            return;
        }
        for (const auto& entry : *entries) {
            if (entry->live.load(std::memory_order_relaxed)) {
                entry->handler(event);
            }
        }
    }

    void callCommandHandler(const BaseEvent& event) noexcept {
        try {
            const auto command = event.commandId();
            const auto lookup = command ? currentLookup() : nullptr;
            if (!lookup) {
                return;
            }
            const auto& names = event.getStaticTags();
            for (auto name = names.rbegin(); name != names.rend(); ++name) {
                if (const auto handler = (*lookup)(*command, *name)) {
                    handler(event);
                    return;
                }
            }
        } catch (...) {
            processExceptionFromEventHandler(event);
        }
    }

    std::shared_ptr<const CommandHandlerLookup> currentLookup() const {
        const std::lock_guard lock(lookupMutex_);
        return lookup_;
    }

    const std::shared_ptr<SubscriptionTable> subscriptions_ = std::make_shared<SubscriptionTable>();
    mutable std::mutex lookupMutex_;
    std::shared_ptr<const CommandHandlerLookup> lookup_;  // guarded by lookupMutex_
    SerialThread thread_;                                 // last: its tasks use all of the above
};

std::string narrow(const std::u16string& ascii) {
    return {ascii.begin(), ascii.end()};
}

}  // namespace

boost::shared_ptr<EventMgr> EventMgr::create() {
    return boost::make_shared<LocalEventMgr>();
}

EventMgr::~EventMgr() = default;

void EventMgr::processExceptionFromEventHandler(const BaseEvent& event) noexcept {
    FOUNDATION_LOG(logger(), log::CaughtException)
        << "A handler of " << narrow(event.getTypeInformation().name())
        << " failed: " << boost::current_exception_diagnostic_information(true);
}

EventHandler EventMgr::guard(EventHandler handler) {
    return [this, handler = std::move(handler)](const BaseEvent& event) {
        try {
            handler(event);
        } catch (...) {
            processExceptionFromEventHandler(event);
        }
    };
}

}  // namespace foundation::msg_svc::eventmgr
