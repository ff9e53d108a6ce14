#pragma once

#include "foundation/msg_svc/exchange/IDType.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <atomic>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace yvm::engine {

class OutputHost;

/// The text of the client-wide sinks on its way to those who take it as events.
///
/// The sinks note what they are given, under their mutex, and fire it when that is released: the handlers of
/// events may be in need of whoever waits for the sink. What one thread fires, no other overtakes, neither by
/// text that came later nor by an event that follows its own text; so a handler may not wait for a thread
/// that writes.
///
/// Safe from any thread.
class SinkTexts {
  public:
    using Stream = ylutil::io::StreamTypeEnum;

    explicit SinkTexts(OutputHost& host) : host_(host) {}

    /// Notes a text of the command that the calling thread works for, if anybody may want it.
    void add(Stream stream, std::u16string_view text);
    /// What was added has left, and is to be fired.
    void hasLeft() noexcept;
    /// Whether there is something to be fired.
    bool areDue() const noexcept { return due_; }

    /// Fires what is due at its end: to be made before the lock of the sink is taken. Null: nothing.
    class Firing {
      public:
        explicit Firing(SinkTexts* texts) : texts_(texts) {}
        ~Firing();
        Firing(const Firing&) = delete;
        Firing& operator=(const Firing&) = delete;

      private:
        SinkTexts* const texts_;
    };

  private:
    struct Piece {
        foundation::msg_svc::exchange::IDType command;
        Stream stream;
        std::u16string text;
    };

    /// A page is to get pieces that it can show one by one. In 16-bit units.
    static constexpr std::size_t longestPiece = std::size_t{64} << 10U;

    void fire();
    std::optional<Piece> takeNext();

    OutputHost& host_;
    /// Held while events are delivered. Taken again by a handler that writes text.
    std::recursive_mutex firing_;

    std::mutex mutex_;
    std::deque<Piece> pieces_;  // guarded by mutex_
    /// Until the last piece has been delivered: who sees it false follows all of them. Written under mutex_.
    std::atomic<bool> due_{false};
};

}  // namespace yvm::engine
