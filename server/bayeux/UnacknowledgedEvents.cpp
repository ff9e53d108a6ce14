#include "server/bayeux/UnacknowledgedEvents.hpp"

namespace server::bayeux {

void UnacknowledgedEvents::acknowledge(std::uint64_t number) {
    if (number >= batchReply_) {
        queue_->release(batch_);
        batch_.clear();
        deliveries_ = 0;
    }
}

const std::vector<Event>& UnacknowledgedEvents::deliver(std::size_t maxBytes) {
    if (batch_.empty()) {
        batch_ = queue_->take(maxBytes, DeliveryQueue::Counting::Continues);
    }
    if (!batch_.empty()) {
        batchReply_ = lastReply_;
        ++deliveries_;
    }
    return batch_;
}

}  // namespace server::bayeux
