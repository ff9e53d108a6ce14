#include "foundation/msg_svc/exchange/IDType.hpp"

#include <atomic>
#include <chrono>
#include <ostream>

namespace foundation::msg_svc::exchange {

namespace {

/// The start of this process, so that identities in the logs of two runs can be told apart.
std::int64_t processPart() noexcept {
    static const std::int64_t microseconds = std::chrono::duration_cast<std::chrono::microseconds>(
                                                 std::chrono::system_clock::now().time_since_epoch())
                                                 .count();
    return microseconds;
}

std::int64_t nextLowPart() noexcept {
    static std::atomic<std::int64_t> counter{0};
    // Relaxed: only the uniqueness of the number counts, it publishes nothing.
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace

IDType::IDType() noexcept : high_(processPart()), low_(nextLowPart()) {}

std::ostream& operator<<(std::ostream& out, const IDType& id) {
    return out << id.high() << ':' << id.low();
}

}  // namespace foundation::msg_svc::exchange
