#include "server/bayeux/DeliveryQueue.hpp"

#include "connector/message_service/Broker.hpp"
#include "server/bayeux/Channels.hpp"

#include <algorithm>
#include <utility>

namespace server::bayeux {

void DeliveryQueue::addPattern(const std::string& pattern) {
    const std::lock_guard lock(mutex_);
    if (std::find(patterns_.begin(), patterns_.end(), pattern) == patterns_.end()) {
        patterns_.push_back(pattern);
    }
}

void DeliveryQueue::removePattern(const std::string& pattern) {
    const std::lock_guard lock(mutex_);
    std::erase(patterns_, pattern);
}

void DeliveryQueue::offer(const std::string& pattern,
                          const connector::message_service::JsonMessage& message) {
    if (isRequestChannel(message.channel())) {
        return;
    }
    const auto way = wayOfText(message.channel());
    bool wakeDue = false;
    {
        const std::lock_guard lock(mutex_);
        const auto first =
            std::find_if(patterns_.begin(), patterns_.end(), [&](const std::string& candidate) {
                return connector::message_service::matchesPattern(candidate, message.channel());
            });
        if (first == patterns_.end() || *first != pattern) {
            return;
        }
        pushLocked({message.channel(), message.payload()}, wakeDue);
        if (gate_ != nullptr && way) {
            holdWriterLocked(*way);
        }
    }
    if (wakeDue) {
        wake_();
    }
}

void DeliveryQueue::push(Event event) {
    bool wakeDue = false;
    {
        const std::lock_guard lock(mutex_);
        pushLocked(std::move(event), wakeDue);
    }
    if (wakeDue) {
        wake_();
    }
}

void DeliveryQueue::pushLocked(Event event, bool& wakeDue) {
    if (overflowed_ || closed_ || givenUp_) {
        return;
    }
    const std::size_t size = event.size();
    wakeDue = events_.empty();
    if (bytes_ != 0 && bytes_ + size > maxBytes_) {
        overflowed_ = true;
        wakeDue = true;
        return;
    }
    bytes_ += size;
    events_.push_back(std::move(event));
}

void DeliveryQueue::holdWriterLocked(output::TextGate::Way way) {
    if (bytes_ > gate_->options().highWater && !overflowed_ && !closed_ && !givenUp_) {
        holdsWriters_ = true;
        gate_->hold(shared_from_this(), way);
    }
}

void DeliveryQueue::releaseWritersLocked() {
    if (holdsWriters_ && bytes_ <= gate_->options().lowWater) {
        holdsWriters_ = false;
        gate_->release(*this);
    }
}

std::vector<Event> DeliveryQueue::take(std::size_t maxBytes, Counting counting) {
    std::vector<Event> taken;
    const std::lock_guard lock(mutex_);
    std::size_t bytes = 0;
    while (!events_.empty()) {
        const std::size_t size = events_.front().payload.size();
        if (!taken.empty() && bytes + size > maxBytes) {
            break;
        }
        bytes += size;
        if (counting == Counting::Ends) {
            bytes_ -= events_.front().size();
        }
        taken.push_back(std::move(events_.front()));
        events_.pop_front();
    }
    releaseWritersLocked();
    return taken;
}

void DeliveryQueue::release(const std::vector<Event>& events) {
    const std::lock_guard lock(mutex_);
    for (const Event& event : events) {
        bytes_ -= event.size();
    }
    releaseWritersLocked();
}

bool DeliveryQueue::empty() const {
    const std::lock_guard lock(mutex_);
    return events_.empty();
}

bool DeliveryQueue::hasOverflowed() const {
    const std::lock_guard lock(mutex_);
    return overflowed_;
}

bool DeliveryQueue::isGivenUp() const {
    const std::lock_guard lock(mutex_);
    return givenUp_;
}

void DeliveryQueue::giveUp() noexcept {
    // With the mutex held: once the queue is closed, whoever is to be woken may be gone.
    const std::lock_guard lock(mutex_);
    if (!closed_) {
        givenUp_ = true;
        holdsWriters_ = false;
        wake_();
    }
}

void DeliveryQueue::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    if (std::exchange(holdsWriters_, false)) {
        gate_->release(*this);
    }
    events_.clear();
    patterns_.clear();
}

}  // namespace server::bayeux
