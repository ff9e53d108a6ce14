#include "server/metrics/Histogram.hpp"

#include <algorithm>

namespace server::metrics {

static_assert(std::is_sorted(Histogram::kBounds.begin(), Histogram::kBounds.end()));

void Histogram::observe(Nanoseconds duration) {
    const auto bucket = std::lower_bound(kBounds.begin(), kBounds.end(), duration) - kBounds.begin();
    counts_[static_cast<std::size_t>(bucket)].fetch_add(1, std::memory_order_relaxed);
    sum_.fetch_add(duration.count(), std::memory_order_relaxed);
}

Histogram::Reading Histogram::read() const {
    Reading reading;
    std::transform(counts_.begin(), counts_.end(), reading.counts.begin(),
                   [](const auto& count) { return count.load(std::memory_order_relaxed); });
    reading.sum = Nanoseconds(sum_.load(std::memory_order_relaxed));
    return reading;
}

}  // namespace server::metrics
