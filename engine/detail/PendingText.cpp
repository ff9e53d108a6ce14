#include "engine/detail/PendingText.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "engine/detail/EngineSignalNumbers.hpp"

#include <algorithm>

namespace yvm::engine {

void PendingText::start() {
    const std::lock_guard lock(mutex_);
    signal_.emplace(preemptionSignal());
}

void PendingText::stop() {
    const std::lock_guard lock(mutex_);
    signal_.reset();
}

bool PendingText::add(const std::shared_ptr<TextSink>& sink, const IDType& id) {
    const auto due = Clock::now() + TextSink::longestWait;
    const std::lock_guard lock(mutex_);
    const auto known = std::find_if(entries_.begin(), entries_.end(), [&sink](const Entry& entry) {
        return !entry.sink.owner_before(sink) && !sink.owner_before(entry.sink);
    });
    if (known != entries_.end()) {
        known->id = id;
        known->due = due;
    } else {
        entries_.push_back({sink, id, due});
    }
    const auto next = nextDueLocked();
    const bool isSooner = !armedFor_ || *next < *armedFor_;
    if (isSooner || *next - *armedFor_ >= slack) {
        armLocked(*next);
    }
    return isSooner;
}

std::optional<PendingText::Clock::time_point> PendingText::nextDue() const {
    const std::lock_guard lock(mutex_);
    return nextDueLocked();
}

void PendingText::synchroniseDue() {
    std::vector<Entry> due;
    {
        const std::lock_guard lock(mutex_);
        const auto now = Clock::now();
        const auto firstDue = std::partition(entries_.begin(), entries_.end(),
                                             [now](const Entry& entry) { return entry.due > now; });
        std::move(firstDue, entries_.end(), std::back_inserter(due));
        entries_.erase(firstDue, entries_.end());
        if (const auto next = nextDueLocked()) {
            armLocked(*next);
        } else if (armedFor_) {
            armedFor_.reset();
            if (signal_) {
                signal_->stop();
            }
        }
    }
    for (const Entry& entry : due) {
        if (const auto sink = entry.sink.lock()) {
            const cmddistributor::RequestIdScope identity(entry.id);
            sink->synchronise(TextSink::HeldSurrogate::Keep);
        }
    }
}

std::optional<PendingText::Clock::time_point> PendingText::nextDueLocked() const {
    const auto first = std::min_element(entries_.begin(), entries_.end(),
                                        [](const Entry& a, const Entry& b) { return a.due < b.due; });
    return first != entries_.end() ? std::optional(first->due) : std::nullopt;
}

void PendingText::armLocked(Clock::time_point due) {
    if (armedFor_ == due) {
        return;
    }
    armedFor_ = due;
    if (signal_) {
        signal_->startAfter(due - Clock::now());
    }
}

}  // namespace yvm::engine
