#pragma once

#include "server/bayeux/DeliveryQueue.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace server::bayeux {

/// What a client that acknowledges has been sent and may not have received.
///
/// Each reply to a connect has a number, one above that of the reply before, and the events that travel
/// with it are kept until the client tells that number. Until then every reply carries them again, and
/// nothing else: so there is one batch at a time, and the queue behind it keeps its order. Confined to
/// the server's thread.
class UnacknowledgedEvents {
  public:
    /// A batch that was lost so often is one that the client cannot take, such as one above the limit of
    /// its WebSocket: it would come back for it for ever.
    static constexpr int kMaxDeliveries = 3;

    explicit UnacknowledgedEvents(std::shared_ptr<DeliveryQueue> queue) : queue_(std::move(queue)) {}

    /// The client has received the replies up to `number`. A number above the last means all of them; one
    /// that is below an earlier one says nothing new: a page that is loaded again starts over with it.
    void acknowledge(std::uint64_t number);

    /// The number of the next reply.
    std::uint64_t nextReply() { return ++lastReply_; }

    /// The events that are to travel with the latest reply: those that were not acknowledged, or else the
    /// next from the queue, bounded as `DeliveryQueue::take` says. In the queue they go on counting.
    const std::vector<Event>& deliver(std::size_t maxBytes);

    /// Whether `deliver` would give anything.
    bool hasEvents() const { return !batch_.empty() || !queue_->empty(); }

    /// Whether the batch was delivered `kMaxDeliveries` times in vain.
    bool isUndeliverable() const { return deliveries_ >= kMaxDeliveries; }

  private:
    const std::shared_ptr<DeliveryQueue> queue_;
    std::uint64_t lastReply_ = 0;
    std::vector<Event> batch_;
    /// The latest reply that carried the batch.
    std::uint64_t batchReply_ = 0;
    int deliveries_ = 0;
};

}  // namespace server::bayeux
