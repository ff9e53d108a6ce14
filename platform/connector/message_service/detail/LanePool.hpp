#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

namespace connector::message_service::detail {

/// Runs tasks in lanes: those of one lane one after the other, in order; lanes beside one another,
/// on a pool of threads that grows while no thread is idle.
///
/// A lane exists while it has work. The threads share the ownership of the pool, so that one that
/// never comes back cannot be left without it. Safe from any thread.
class LanePool : public std::enable_shared_from_this<LanePool> {
  public:
    /// Must not throw.
    using Task = std::function<void()>;

    explicit LanePool(std::size_t maxThreads) : maxThreads_(maxThreads) {}

    /// Takes the task over; drops it once `stop` was called.
    void post(std::string_view lane, Task task);

    /// Until now tasks only gather.
    void start();

    /// Drops the waiting tasks and joins the threads. Those that are still in a task after `timeout`
    /// are left to themselves; returns how many these were. Does not wait for the calling thread.
    std::size_t stop(std::chrono::milliseconds timeout);

  private:
    struct Lane {
        std::string name;
        std::deque<Task> tasks;
    };
    struct Worker {
        std::thread thread;
        bool ended = false;
    };

    void growLocked();
    void run(Worker& self);

    const std::size_t maxThreads_;

    std::mutex mutex_;
    std::condition_variable readyOrStopping_;
    std::condition_variable workerEnded_;
    /// Changed under mutex_, and read by the threads between two tasks.
    std::atomic<bool> stopping_{false};
    // All below is guarded by mutex_.
    bool started_ = false;
    std::size_t idle_ = 0;
    std::vector<std::shared_ptr<Worker>> workers_;
    // The keys refer to the lanes' own names. A lane is in `lanes_` while it has tasks or one of its
    // tasks runs, and in `ready_` while it has tasks and none of them runs.
    std::unordered_map<std::string_view, std::shared_ptr<Lane>> lanes_;
    std::deque<std::shared_ptr<Lane>> ready_;
};

}  // namespace connector::message_service::detail
