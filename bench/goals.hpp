#pragma once

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace bench {

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Seconds that this thread has had of a processor.
inline double processorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Prints one figure with what it was to be.
inline void goal(bool isMet, const char* what, double value, const char* unit, const char* limit) {
    std::printf("  %s  %s: %.2f %s (goal: %s)\n", isMet ? "PASS" : "MISS", what, value, unit, limit);
}

}  // namespace bench
