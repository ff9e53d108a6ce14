#pragma once

#include "foundation/concurrent/threadpool/ResubmittingWork.hpp"
#include "foundation/concurrent/threadpool/ThreadPool.hpp"
#include "foundation/concurrent/threadpool/stop_source.hpp"

#include <functional>
#include <memory>
#include <utility>

namespace foundation::concurrent::threadpool {

/// Hands timed work to a pool. Safe for use from any thread; what was submitted does not need the submitter
/// any more.
class ScheduledTaskSubmitter {
  public:
    /// Throws `std::invalid_argument` without a pool.
    explicit ScheduledTaskSubmitter(std::shared_ptr<ThreadPool> pool);

    /// Has the work done until a stop is requested through the returned handle, or the pool stops. The stop
    /// state is asked before each run and after it. A run that throws is told to the log, and followed by the
    /// next one as any other. Work that was stopped is let go when its next run would have been due.
    ///
    /// Throws `std::invalid_argument` when there is no work, or its period is negative.
    template <typename Duration>
    stop_source submit(ResubmittingWork<Duration> work) {
        return submitRepeating(std::move(work.work),
                               std::chrono::duration_cast<ThreadPool::Duration>(work.period),
                               work.runsAtOnce);
    }

  private:
    stop_source submitRepeating(std::function<void()> work, ThreadPool::Duration period, bool runsAtOnce);

    const std::shared_ptr<ThreadPool> pool_;
};

}  // namespace foundation::concurrent::threadpool
