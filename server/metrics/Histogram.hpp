#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace server::metrics {

/// How often durations of a size occurred. Safe from any thread; an observation takes two relaxed additions.
class Histogram {
  public:
    using Nanoseconds = std::chrono::nanoseconds;

    /// The greatest duration of each bucket but the last, which takes what is longer. From a command that
    /// finds the engine idle to one that computes for an hour, in steps of 2 to 4.
    static constexpr std::array<Nanoseconds, 20> kBounds{
        std::chrono::microseconds(10),  std::chrono::microseconds(25),   std::chrono::microseconds(50),
        std::chrono::microseconds(100), std::chrono::microseconds(250),  std::chrono::microseconds(500),
        std::chrono::milliseconds(1),   std::chrono::microseconds(2500), std::chrono::milliseconds(5),
        std::chrono::milliseconds(10),  std::chrono::milliseconds(25),   std::chrono::milliseconds(100),
        std::chrono::milliseconds(250), std::chrono::seconds(1),         std::chrono::milliseconds(2500),
        std::chrono::seconds(10),       std::chrono::seconds(60),        std::chrono::minutes(5),
        std::chrono::minutes(15),       std::chrono::hours(1),
    };

    void observe(Nanoseconds duration);

    struct Reading {
        std::array<std::uint64_t, kBounds.size() + 1> counts{};
        Nanoseconds sum{};
    };
    /// The counts and the sum are read one after the other, while observations may go on.
    Reading read() const;

  private:
    std::array<std::atomic<std::uint64_t>, kBounds.size() + 1> counts_{};
    std::atomic<std::int64_t> sum_{0};
};

}  // namespace server::metrics
