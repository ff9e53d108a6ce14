#pragma once

#include <functional>
#include <utility>

namespace foundation::concurrent::threadpool {

/// Work that is done again and again, for `ScheduledTaskSubmitter::submit`. `Duration` is a
/// `std::chrono::duration`.
template <typename Duration>
struct ResubmittingWork {
    /// `period` lies between the end of a run and the begin of the next, so that slow runs stretch the cycle
    /// and never pile up. The first run is due at once, or one period after the submission.
    ResubmittingWork(std::function<void()> ownWork, Duration ownPeriod, bool ownRunsAtOnce)
        : work(std::move(ownWork)), period(ownPeriod), runsAtOnce(ownRunsAtOnce) {}

    std::function<void()> work;
    Duration period;
    bool runsAtOnce;
};

}  // namespace foundation::concurrent::threadpool
