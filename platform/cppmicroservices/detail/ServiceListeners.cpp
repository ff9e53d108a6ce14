#include "cppmicroservices/detail/ServiceListeners.hpp"

#include "cppmicroservices/detail/logger.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <algorithm>
#include <condition_variable>

namespace cppmicroservices {
namespace {

/// How many listener calls are open on this thread, one within the other.
thread_local int callsOnThisThread = 0;

}  // namespace

struct ServiceListeners::Entry {
    Entry(std::uint64_t listenerId, const BundlePrivate* listenerOwner, ServiceListener function,
          LDAPFilter listenerFilter)
        : id(listenerId),
          owner(listenerOwner),
          listener(std::move(function)),
          filter(std::move(listenerFilter)) {}

    /// Calls the listener unless it was removed.
    void call(const ServiceEvent& event) {
        {
            const std::lock_guard lock(mutex);
            if (removed) {
                return;
            }
            ++running;
        }
        ++callsOnThisThread;
        try {
            listener(event);
        } catch (...) {
            FOUNDATION_LOG(logger(), foundation::log::CaughtException)
                << "a service listener failed: " << boost::current_exception_diagnostic_information();
        }
        --callsOnThisThread;
        const std::lock_guard lock(mutex);
        --running;
        // Under the lock: the waiter may destroy this entry as soon as it sees the count.
        ended.notify_all();
    }

    const std::uint64_t id;
    const BundlePrivate* const owner;
    const ServiceListener listener;
    const LDAPFilter filter;

    std::mutex mutex;
    std::condition_variable ended;
    // Guarded by mutex.
    int running = 0;
    bool removed = false;
};

ServiceListeners::ServiceListeners() = default;
ServiceListeners::~ServiceListeners() = default;

std::uint64_t ServiceListeners::add(const BundlePrivate* owner, ServiceListener listener, LDAPFilter filter) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(std::make_shared<Entry>(++lastId_, owner, std::move(listener), std::move(filter)));
    return lastId_;
}

void ServiceListeners::remove(std::uint64_t id) {
    std::shared_ptr<Entry> entry;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::ranges::find(entries_, id, &Entry::id);
        if (found == entries_.end()) {
            return;
        }
        entry = std::move(*found);
        entries_.erase(found);
    }
    end(entry);
}

void ServiceListeners::removeAllOf(const BundlePrivate* owner) {
    std::vector<std::shared_ptr<Entry>> ended;
    {
        const std::lock_guard lock(mutex_);
        std::ranges::copy_if(entries_, std::back_inserter(ended),
                             [owner](const auto& entry) { return entry->owner == owner; });
        std::erase_if(entries_, [owner](const auto& entry) { return entry->owner == owner; });
    }
    std::ranges::for_each(ended, &ServiceListeners::end);
}

void ServiceListeners::end(const std::shared_ptr<Entry>& entry) {
    std::unique_lock lock(entry->mutex);
    entry->removed = true;
    if (callsOnThisThread == 0) {
        entry->ended.wait(lock, [&entry] { return entry->running == 0; });
    }
}

void ServiceListeners::notify(ServiceEvent::Type type, const ServiceReferenceU& reference,
                              const ServiceProperties& now, const ServiceProperties* before) {
    std::vector<std::shared_ptr<Entry>> entries;
    {
        const std::lock_guard lock(mutex_);
        entries = entries_;
    }
    for (const auto& entry : entries) {
        if (entry->filter.Match(now)) {
            entry->call(ServiceEvent(type, reference));
        } else if (before != nullptr && entry->filter.Match(*before)) {
            entry->call(ServiceEvent(ServiceEvent::SERVICE_MODIFIED_ENDMATCH, reference));
        }
    }
}

}  // namespace cppmicroservices
