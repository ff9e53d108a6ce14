#pragma once

#include "connector/common/DataBuffer.hpp"
#include "connector/message_service/JsonMessage.hpp"
#include "server/output/TextGate.hpp"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace server::bayeux {

/// One message on its way to a session.
struct Event {
    std::string channel;
    connector::common::DataBuffer payload;

    /// What it counts for in bounds.
    std::size_t size() const { return channel.size() + payload.size(); }
};

/// What waits to be sent to one session.
///
/// Publishers put events in from any thread, with their own locks held, and never wait; the server's
/// thread takes them out. Bounded in bytes: an event that does not fit in marks the queue as
/// overflowed for good, and it takes nothing more. A queue for which nothing counts takes one event of any
/// size. Above the high water of the gate, text of the engine holds its writers back, so that only what
/// cannot wait makes a queue overflow.
class DeliveryQueue final : public output::TextReader, public std::enable_shared_from_this<DeliveryQueue> {
  public:
    /// Whether what is taken out still counts against the bound, until it is released.
    enum class Counting { Ends, Continues };

    /// `wake` is called, from the publishing thread, when the queue stops being empty and when it
    /// overflows, or is given up. It may not block. Without a gate nobody is held back. Always held by
    /// `std::shared_ptr`.
    DeliveryQueue(std::size_t maxBytes, std::function<void()> wake,
                  std::shared_ptr<output::TextGate> gate = nullptr)
        : maxBytes_(maxBytes), wake_(std::move(wake)), gate_(std::move(gate)) {}

    /// The channels and patterns that the session subscribed to. Several may match one message, which
    /// is to arrive once: only the first of them that matches lets it in.
    void addPattern(const std::string& pattern);
    void removePattern(const std::string& pattern);

    /// The callback of the subscription to `pattern`. Requests are not for clients and pass by.
    void offer(const std::string& pattern, const connector::message_service::JsonMessage& message);

    void push(Event event);

    /// The oldest events, at most `maxBytes` of payload, but at least one if there is one.
    std::vector<Event> take(std::size_t maxBytes, Counting counting = Counting::Ends);

    /// These events, which were taken and went on counting, count no more.
    void release(const std::vector<Event>& events);

    bool empty() const;
    bool hasOverflowed() const;
    /// Whether it held up the engine for too long. Such a queue takes nothing more.
    bool isGivenUp() const;
    void giveUp() noexcept override;

    /// Takes nothing more, and forgets what waits.
    void close();

  private:
    void pushLocked(Event event, bool& wakeDue);
    void holdWriterLocked(output::TextGate::Way way);
    void releaseWritersLocked();

    const std::size_t maxBytes_;
    const std::function<void()> wake_;
    const std::shared_ptr<output::TextGate> gate_;

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::vector<std::string> patterns_;
    std::deque<Event> events_;
    /// Of what counts: `events_`, and what was taken and not released.
    std::size_t bytes_ = 0;
    bool overflowed_ = false;
    bool closed_ = false;
    bool givenUp_ = false;
    /// Whether writers are held back on account of this queue.
    bool holdsWriters_ = false;
};

}  // namespace server::bayeux
