#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace foundation::concurrent::threadpool {

/// Threads for short work that is due at a later time. A service of the framework under the interface name
/// "foundation::concurrent::threadpool::ThreadPool".
///
/// Safe for use from any thread, tasks included.
class [[gnu::visibility("default")]] ThreadPool {
  public:
    using Duration = std::chrono::steady_clock::duration;
    /// Returns after what delay, counted from its end, it is to be called again; nothing when it is done, and
    /// is let go then. It is never called twice at the same time, must not throw, and keeps a thread of few
    /// for as long as it runs.
    using Task = std::function<std::optional<Duration>()>;

    virtual ~ThreadPool();

    /// Has `task` called for the first time once `delay` has passed, on a thread of the pool. Tasks that are
    /// due at the same moment are begun in the order of submission. A pool that has stopped lets go of the
    /// task at once, uncalled.
    virtual void submitAfter(Duration delay, Task task) = 0;

  protected:
    ThreadPool() = default;
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
};

}  // namespace foundation::concurrent::threadpool
