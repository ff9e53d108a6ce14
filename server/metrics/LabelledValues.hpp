#pragma once

#include "server/metrics/labels.hpp"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace server::metrics {

/// One number for each value of an enum, all 0 at first. Safe from any thread; relaxed, as each number stands
/// for itself.
template <typename Enum>
class LabelledValues {
  public:
    static_assert(areInOrder<Enum>());

    void add(Enum which, std::uint64_t amount = 1) {
        values_[static_cast<std::size_t>(which)].fetch_add(amount, std::memory_order_relaxed);
    }
    void subtract(Enum which, std::uint64_t amount = 1) {
        values_[static_cast<std::size_t>(which)].fetch_sub(amount, std::memory_order_relaxed);
    }

    std::uint64_t operator[](Enum which) const {
        return values_[static_cast<std::size_t>(which)].load(std::memory_order_relaxed);
    }

  private:
    std::array<std::atomic<std::uint64_t>, kWords<Enum>.size()> values_{};
};

}  // namespace server::metrics
