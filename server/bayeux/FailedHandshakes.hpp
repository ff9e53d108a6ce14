#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>

namespace server::bayeux {

/// Slows down whoever guesses tokens: counts failures by the peer's address, anew each minute.
///
/// Bounded in memory: addresses beyond `kMaxAddresses` in one minute are counted together. Confined to the
/// server's thread.
class FailedHandshakes {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::minutes kWindow{1};
    static constexpr std::size_t kMaxAddresses = 10'000;

    FailedHandshakes(std::size_t maxPerMinute, std::function<Clock::time_point()> now)
        : maxPerMinute_(maxPerMinute), now_(std::move(now)), windowStart_(now_()) {}

    /// Whether the address has failed too often: it is to be refused without a look at what it brings.
    bool isBlocked(const std::string& address);

    /// Counts a failure of this address.
    void add(const std::string& address);

  private:
    /// Forgets what is older than the minute that runs.
    void refresh();

    const std::size_t maxPerMinute_;
    const std::function<Clock::time_point()> now_;
    Clock::time_point windowStart_;
    std::unordered_map<std::string, std::size_t> byAddress_;
    std::size_t others_ = 0;
};

}  // namespace server::bayeux
