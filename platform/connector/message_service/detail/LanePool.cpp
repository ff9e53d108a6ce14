#include "connector/message_service/detail/LanePool.hpp"

#include "connector/message_service/detail/logger.hpp"

#include <algorithm>
#include <system_error>
#include <utility>

namespace connector::message_service::detail {

void LanePool::post(std::string_view laneName, Task task) {
    {
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            return;
        }
        if (const auto found = lanes_.find(laneName); found != lanes_.end()) {
            found->second->tasks.push_back(std::move(task));
            return;
        }
        auto lane = std::make_shared<Lane>();
        lane->name = laneName;
        lane->tasks.push_back(std::move(task));
        lanes_.emplace(lane->name, lane);
        ready_.push_back(std::move(lane));
        growLocked();
    }
    // With the mutex released, which the thread that wakes up needs.
    readyOrStopping_.notify_one();
}

void LanePool::start() {
    const std::lock_guard lock(mutex_);
    started_ = true;
    growLocked();
}

void LanePool::growLocked() {
    // Idle threads that are woken but have not come round yet count as taken by what is ready.
    while (started_ && !stopping_ && ready_.size() > idle_ && workers_.size() < maxThreads_) {
        auto worker = std::make_shared<Worker>();
        try {
            worker->thread = std::thread([self = shared_from_this(), worker] { self->run(*worker); });
        } catch (const std::system_error& error) {
            // The threads that exist serve the lane later.
            FOUNDATION_LOG(logger(), foundation::log::CaughtException)
                << "No further delivery thread beside " << workers_.size() << ": " << error.what();
            return;
        }
        workers_.push_back(std::move(worker));
        // The new thread finds its lane without being notified.
        ++idle_;
    }
}

void LanePool::run(Worker& self) {
    std::unique_lock lock(mutex_);
    for (;;) {
        readyOrStopping_.wait(lock, [this] { return stopping_ || !ready_.empty(); });
        --idle_;
        if (stopping_) {
            break;
        }
        const auto lane = std::move(ready_.front());
        ready_.pop_front();
        auto tasks = std::exchange(lane->tasks, {});
        // With the mutex released for all of them, or a publisher in a loop would hardly ever let go of it.
        lock.unlock();
        while (!tasks.empty() && !stopping_) {
            tasks.front()();
            tasks.pop_front();
        }
        tasks.clear();
        lock.lock();
        ++idle_;
        if (stopping_) {
            continue;
        }
        if (lane->tasks.empty()) {
            lanes_.erase(lane->name);
        } else {
            // Behind the others: a lane in flood lets them have their turn.
            ready_.push_back(lane);
        }
    }
    self.ended = true;
    workerEnded_.notify_all();
}

std::size_t LanePool::stop(std::chrono::milliseconds timeout) {
    std::vector<std::shared_ptr<Worker>> workers;
    std::unordered_map<std::string_view, std::shared_ptr<Lane>> lanes;
    std::deque<std::shared_ptr<Lane>> ready;
    {
        std::unique_lock lock(mutex_);
        stopping_ = true;
        readyOrStopping_.notify_all();
        workers.swap(workers_);
        lanes.swap(lanes_);
        ready.swap(ready_);
        const auto own = std::ranges::find(workers, std::this_thread::get_id(),
                                           [](const auto& worker) { return worker->thread.get_id(); });
        if (own != workers.end()) {
            (*own)->thread.detach();
            workers.erase(own);
        }
        workerEnded_.wait_for(lock, timeout, [&workers] {
            return std::ranges::all_of(workers, [](const auto& worker) { return worker->ended; });
        });
        for (const auto& worker : workers) {
            if (!worker->ended) {
                worker->thread.detach();
            }
        }
    }
    std::size_t left = 0;
    for (const auto& worker : workers) {
        if (worker->thread.joinable()) {
            worker->thread.join();
        } else {
            ++left;
        }
    }
    return left;
}

}  // namespace connector::message_service::detail
