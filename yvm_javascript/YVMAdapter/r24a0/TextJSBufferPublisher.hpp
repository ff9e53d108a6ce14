#pragma once

#include "common/JsonObject.hpp"
#include "foundation/concurrent/threadpool/ScheduledTaskSubmitter.hpp"
#include "foundation/concurrent/threadpool/stop_source.hpp"
#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <utility>

namespace yvm::JSClient::r24a0 {

/// Stands between the engine's client-wide text and the channel that a client reads: queues what is written,
/// joins neighbours of one stream, and sends all of it as messages `{"stream": 0, "text": "..."}` (see
/// makeTextMessage.hpp) when it is told to, when the timer fires, or before an event that must not overtake
/// text. Messages leave in the order of writing.
///
/// The queue has no limit and nothing is sent on account of its size; what holds writers back is the
/// `yvm::OutputGate` of the engine.
///
/// Life: always held by `std::shared_ptr`. The timer holds it weakly. The destructor discards what is still
/// queued, and tells the log how much that is; it does not wait for a timer run, whose own reference may well
/// be the last one.
///
/// Threads: writers, the pool's timer, and threads that fire events, all of which may be here at once; only
/// `startPublishTimer` is for the one that made the object. The mutex is held across the send function, so
/// that messages leave in the order of the queue; that function must not come back here.
class TextJSBufferPublisher : public std::enable_shared_from_this<TextJSBufferPublisher> {
  public:
    using StreamTypeEnum = ylutil::io::StreamTypeEnum;
    using SendFunction = std::function<void(JsonObject)>;

    /// An empty function drops the messages. Throws `std::runtime_error` when the framework of this process,
    /// or its thread pool, is not there.
    explicit TextJSBufferPublisher(SendFunction sendFunction);
    virtual ~TextJSBufferPublisher();
    TextJSBufferPublisher(const TextJSBufferPublisher&) = delete;
    TextJSBufferPublisher& operator=(const TextJSBufferPublisher&) = delete;

    void push(StreamTypeEnum stream, std::u16string text);

    /// Throws what the send function throws; the message that it was given is lost, the rest stays queued.
    void send();

    /// Sends before an event that a client must not see ahead of text which was written before it: that asks
    /// for input, shows an error or a prompt, and the like. Throws as `send`.
    void flushForEvent(const foundation::msg_svc::eventmgr::BaseEvent& event);

    /// From now on sends every 150 milliseconds, counted from the end of the last run, as long as this object
    /// lives. Throws what the pool throws.
    void startPublishTimer();

  protected:
    using Lock = std::unique_lock<std::mutex>;

    // The lock is the proof that the mutex is held.
    virtual void pushImpl(StreamTypeEnum stream, std::u16string text, const Lock& lock);
    virtual void clearImpl(const Lock& lock);
    virtual void sendImpl(const Lock& lock);

  private:
    std::mutex mutex_;
    const SendFunction sendFunction_;
    // Guarded by mutex_. No two neighbours are of one stream; numBuffered_ counts the 16-bit units of all.
    std::deque<std::pair<StreamTypeEnum, std::u16string>> queue_;
    std::size_t numBuffered_ = 0;
    const std::shared_ptr<foundation::concurrent::threadpool::ScheduledTaskSubmitter> taskSubmitter_;
    foundation::concurrent::threadpool::stop_source timerStop_{std::nostopstate};  // of the last timer
};

}  // namespace yvm::JSClient::r24a0
