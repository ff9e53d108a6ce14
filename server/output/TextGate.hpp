#pragma once

#include "foundation/concurrent/threadpool/ThreadPool.hpp"
#include "server/output/TextReader.hpp"
#include "yvm/OutputGate.hpp"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

namespace server::output {

/// Holds back who writes text faster than it is read.
///
/// - A session's queue that grows beyond the high water with a text holds up the writers of that text: the
///   command whose own streams it takes, or all that write to the client-wide sinks. They go on when it has
///   sunk to the low water. A command's reader is known by the thread: text of a command's own streams is
///   published on the thread that writes it, which knows its command.
/// - Client-wide text may wait for a timer before it is published, without a limit. So what was written since
///   the sinks last published counts too. If nobody publishes any more, that is found out by a short wait.
/// - A reader that has held up a writer for `maxWait` is given up, and holds nobody any more. Nobody tells
///   when a writer stops waiting, as one that is interrupted does: so shortly before, all are told to ask
///   again, and the reader is given up only if one does.
///
/// Safe from any thread. Its mutex comes after that of a queue, and before nothing but the engine's leaf.
class TextGate final : public yvm::OutputGate, public std::enable_shared_from_this<TextGate> {
  public:
    struct Options {
        /// Bytes that wait in a session's queue.
        std::size_t highWater = 16UL * 1024 * 1024;
        std::size_t lowWater = 8UL * 1024 * 1024;
        /// 16-bit units that were written to the client-wide sinks and not published.
        std::size_t maxUnpublished = 16UL * 1024 * 1024;
        /// Longer than the period in which the sinks publish.
        std::chrono::milliseconds publishWait{500};
        std::chrono::milliseconds maxWait{10'000};
    };

    /// Always held by `std::shared_ptr`. The pool keeps the time.
    TextGate(const Options& options, std::shared_ptr<foundation::concurrent::threadpool::ThreadPool> pool)
        : options_(options), pool_(std::move(pool)) {}

    const Options& options() const noexcept { return options_; }

    // The engine's side.
    bool mayWrite(Way way, const IDType& command) noexcept override;
    void hasWritten(Way way, const IDType& command, std::size_t units) noexcept override;
    void sinksReplaced() noexcept override;
    void onOpened(std::function<void()> opened) override;

    // The side of the readers.

    /// Text that went this way has brought the reader's queue above the high water. On the thread that
    /// published it.
    void hold(const std::shared_ptr<TextReader>& reader, Way way);
    /// The reader's queue has sunk to the low water, or is closed.
    void release(const TextReader& reader) noexcept;
    /// The client-wide sinks have published all that was written to them.
    void published() noexcept;

    /// How often a writer was refused, for a reader or for a publication. One that waits is refused each time
    /// that it asks.
    std::uint64_t waits() const noexcept { return waits_; }

  private:
    struct Held {
        std::weak_ptr<TextReader> reader;
        std::uint64_t number;  ///< tells this hold from a later one of the same reader
        std::set<IDType> commands;
        bool clientWide = false;
        bool isTimed = false;
        bool hasAsked = false;  ///< a writer that it holds, since all were told to ask again
    };

    bool holdsLocked(Way way, const IDType& command);
    void after(std::chrono::milliseconds wait, void (TextGate::*then)(const TextReader*, std::uint64_t),
               const TextReader* reader, std::uint64_t number);
    void askAgain(const TextReader* reader, std::uint64_t number);
    void giveUpIfAsked(const TextReader* reader, std::uint64_t number);
    std::chrono::milliseconds answerWait() const { return options_.maxWait / 10; }
    void forgetUnpublishedAfterWait();
    void openLocked() const;

    const Options options_;
    const std::shared_ptr<foundation::concurrent::threadpool::ThreadPool> pool_;

    std::atomic<std::size_t> unpublished_{0};
    /// Whether `held_` has entries, so that nobody takes the mutex while all readers are quick.
    std::atomic<bool> holdsAnybody_{false};
    std::atomic<std::uint64_t> waits_{0};

    std::mutex mutex_;
    // Guarded by mutex_.
    std::map<const TextReader*, Held> held_;
    std::uint64_t lastNumber_ = 0;
    bool isWaitingForPublication_ = false;
    std::function<void()> opened_;
};

}  // namespace server::output
