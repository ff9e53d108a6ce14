#include "foundation/concurrent/threadpool/WorkerPool.hpp"

#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace foundation::concurrent::threadpool {

class WorkerPool::Queue {
  public:
    void push(Duration delay, Task task) {
        {
            const std::lock_guard lock(mutex_);
            if (stopped_) {
                return;
            }
            tasks_.emplace(Clock::now() + delay, std::move(task));
        }
        changed_.notify_one();
    }

    /// What each thread does until `stop`.
    void work() {
        std::unique_lock lock(mutex_);
        while (waitForDueLocked(lock)) {
            auto task = tasks_.extract(tasks_.begin());
            if (!tasks_.empty()) {
                // This thread watched for the next moment, too, and the others may be asleep without one.
                changed_.notify_one();
            }
            lock.unlock();
            const auto delay = task.mapped()();
            if (delay) {
                task.key() = Clock::now() + *delay;
            } else {
                // Before the lock: what a task holds may have a destructor that submits.
                task = {};
            }
            lock.lock();
            if (task && !stopped_) {
                tasks_.insert(std::move(task));
            } else if (task) {
                lock.unlock();
                task = {};
                lock.lock();
            }
        }
    }

    void stop() {
        Tasks left;
        {
            const std::lock_guard lock(mutex_);
            stopped_ = true;
            left.swap(tasks_);
        }
        changed_.notify_all();
    }

  private:
    using Clock = std::chrono::steady_clock;
    // Tasks of one moment keep the order of their insertion.
    using Tasks = std::multimap<Clock::time_point, Task>;

    /// False when there is nothing more to do.
    bool waitForDueLocked(std::unique_lock<std::mutex>& lock) {
        while (!stopped_) {
            if (tasks_.empty()) {
                changed_.wait(lock);
                continue;
            }
            // A copy: the entry may be gone when the wait ends.
            const auto due = tasks_.begin()->first;
            if (due <= Clock::now()) {
                return true;
            }
            changed_.wait_until(lock, due);
        }
        return false;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    Tasks tasks_;
    bool stopped_ = false;
};

WorkerPool::WorkerPool(std::size_t threads) : queue_(std::make_shared<Queue>()) {
    if (threads == 0) {
        throw std::invalid_argument("a thread pool needs at least one thread");
    }
    for (std::size_t i = 0; i < threads; ++i) {
        threads_.emplace_back([queue = queue_] { queue->work(); });
    }
}

WorkerPool::~WorkerPool() {
    stop();
}

void WorkerPool::submitAfter(Duration delay, Task task) {
    queue_->push(delay, std::move(task));
}

void WorkerPool::stop() {
    queue_->stop();
    for (std::thread& thread : std::exchange(threads_, {})) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

}  // namespace foundation::concurrent::threadpool
