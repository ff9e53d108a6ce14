#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

/// Prints the median of each benchmark, in time of the processor, so that other programs on the machine count
/// little, and, a task at a time, how many times faster ours was than each peer.
///
/// Benchmarks are named "task/contender"; ours is the contender "yvm".
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

  private:
    struct Median {
        std::string contender;
        double nanoseconds;
    };

    /// By task.
    std::map<std::string, std::vector<Median>> medians_;
};
