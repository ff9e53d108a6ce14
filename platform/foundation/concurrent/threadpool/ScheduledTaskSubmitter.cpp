#include "foundation/concurrent/threadpool/ScheduledTaskSubmitter.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <optional>
#include <stdexcept>

namespace foundation::concurrent::threadpool {
namespace {

const log::diagnostic_logger& logger() {
    static const auto& instance =
        *new log::diagnostic_logger("foundation::concurrent::threadpool::ScheduledTaskSubmitter");
    return instance;
}

void runLogging(const std::function<void()>& work) noexcept {
    try {
        work();
    } catch (...) {
        FOUNDATION_LOG(logger(), log::CaughtException)
            << "A run of scheduled work threw: " << boost::current_exception_diagnostic_information();
    }
}

}  // namespace

ScheduledTaskSubmitter::ScheduledTaskSubmitter(std::shared_ptr<ThreadPool> pool) : pool_(std::move(pool)) {
    if (!pool_) {
        throw std::invalid_argument("scheduled work needs a thread pool");
    }
}

stop_source ScheduledTaskSubmitter::submitRepeating(std::function<void()> work, ThreadPool::Duration period,
                                                    bool runsAtOnce) {
    if (!work) {
        throw std::invalid_argument("there is no work to schedule");
    }
    if (period < ThreadPool::Duration::zero()) {
        throw std::invalid_argument("the period of scheduled work must not be negative");
    }
    const stop_source source;
    pool_->submitAfter(
        runsAtOnce ? ThreadPool::Duration::zero() : period,
        [work = std::move(work), period, stop = source.get_token()]() -> std::optional<ThreadPool::Duration> {
            if (stop.stop_requested()) {
                return std::nullopt;
            }
            runLogging(work);
            return stop.stop_requested() ? std::nullopt : std::optional(period);
        });
    return source;
}

}  // namespace foundation::concurrent::threadpool
