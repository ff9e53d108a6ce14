#pragma once

#include "foundation/concurrent/threadpool/ThreadPool.hpp"

#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

namespace foundation::concurrent::threadpool {

/// The pool of the process: a few threads and one queue, ordered by the moment at which tasks are due.
///
/// Life: constructed with its threads running; stopped by its owner, at the latest by the destructor;
/// destroyed on any thread. To be stopped after everything that submits tasks: what is due later is let go
/// uncalled.
class WorkerPool final : public ThreadPool {
  public:
    /// Two by default, so that one slow task does not hold up the timers of everybody else. Tasks are as
    /// short as a publish, so more would wait for work only. Throws `std::invalid_argument` for zero.
    explicit WorkerPool(std::size_t threads = 2);
    ~WorkerPool() override;

    void submitAfter(Duration delay, Task task) override;

    /// Lets go of all tasks that wait, on this thread, and waits for those that run. Idempotent. For one
    /// caller at a time. A task that calls it is not waited for, and its thread ends with it.
    void stop();

  private:
    class Queue;

    // Shared with the threads, since one of them may destroy this object, and then outlasts it.
    const std::shared_ptr<Queue> queue_;
    std::vector<std::thread> threads_;
};

}  // namespace foundation::concurrent::threadpool
