#pragma once

#include "foundation/concurrent/threadpool/ThreadPool.hpp"

#include <cstddef>
#include <map>
#include <mutex>

namespace platform_testing {

/// A thread pool without threads, on a clock that the test moves: tasks run inside `advance`, on the thread
/// that calls it and with no lock held.
///
/// Safe for use from any thread, but for `advance`, which is for one at a time and not for tasks.
class FakeThreadPool final : public foundation::concurrent::threadpool::ThreadPool {
  public:
    void submitAfter(Duration delay, Task task) override;

    /// Moves the clock to that far from now, and from one due task to the next on the way, each of which is
    /// run at its moment. A task without delay would keep it for ever.
    void advance(Duration duration);

    /// For a task that takes time: moves the clock without running anything.
    void takeTime(Duration duration);

    /// How many tasks wait for their moment.
    std::size_t waiting() const;

  private:
    mutable std::mutex mutex_;
    // Guarded by mutex_. Moments are counted from the construction.
    Duration now_{};
    std::multimap<Duration, Task> tasks_;
};

}  // namespace platform_testing
