#pragma once

#include "engine/detail/SignalRepeater.hpp"
#include "engine/detail/TextSink.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace yvm::engine {

/// The text that was written and waits to be synchronised, in case its writer falls silent.
///
/// When it is due, the engine's thread is broken into by the pre-emption signal, again and again until it has
/// called `synchroniseDue`; where that thread waits for commands, it looks at `nextDue` itself.
///
/// Its mutex is a leaf, and may be taken with the GIL held.
class PendingText {
  public:
    using Clock = TextSink::Clock;
    using IDType = foundation::msg_svc::exchange::IDType;

    /// On the engine's thread, when the signal has its handler: from now on it is sent.
    void start();
    /// The signal is sent no more. Engine thread.
    void stop();

    /// What has been written to `sink` for the command `id`, null for none, is to be synchronised within
    /// `TextSink::longestWait`. True when the engine's thread may have to wait less long than it knows of.
    /// Any thread.
    bool add(const std::shared_ptr<TextSink>& sink, const IDType& id);

    /// Of the text that waits, or empty. Any thread.
    std::optional<Clock::time_point> nextDue() const;

    /// Engine thread, without the GIL and locks.
    void synchroniseDue();

  private:
    struct Entry {
        std::weak_ptr<TextSink> sink;
        IDType id;
        Clock::time_point due;
    };

    /// How late a signal may be put off again: a writer that goes on synchronises its text itself, and each
    /// change of the timer is a system call.
    static constexpr std::chrono::milliseconds slack{5};

    std::optional<Clock::time_point> nextDueLocked() const;
    void armLocked(Clock::time_point due);

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::vector<Entry> entries_;  // few: one for each sink that is in use
    std::optional<SignalRepeater> signal_;
    std::optional<Clock::time_point> armedFor_;
};

}  // namespace yvm::engine
