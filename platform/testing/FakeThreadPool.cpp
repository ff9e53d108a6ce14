#include "testing/FakeThreadPool.hpp"

#include <algorithm>
#include <utility>

namespace platform_testing {

void FakeThreadPool::submitAfter(Duration delay, Task task) {
    const std::lock_guard lock(mutex_);
    tasks_.emplace(now_ + delay, std::move(task));
}

void FakeThreadPool::advance(Duration duration) {
    std::unique_lock lock(mutex_);
    const Duration end = now_ + duration;
    while (!tasks_.empty() && tasks_.begin()->first <= end) {
        auto task = tasks_.extract(tasks_.begin());
        now_ = std::max(now_, task.key());
        lock.unlock();
        const auto delay = task.mapped()();
        if (!delay) {
            task = {};
        }
        lock.lock();
        if (delay) {
            task.key() = now_ + *delay;
            tasks_.insert(std::move(task));
        }
    }
    now_ = std::max(now_, end);
}

void FakeThreadPool::takeTime(Duration duration) {
    const std::lock_guard lock(mutex_);
    now_ += duration;
}

std::size_t FakeThreadPool::waiting() const {
    const std::lock_guard lock(mutex_);
    return tasks_.size();
}

}  // namespace platform_testing
