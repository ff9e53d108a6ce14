#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>

namespace foundation::msg_svc::exchange {

/// The engine-side identity of one submission: two signed 64-bit numbers, ordered high part first.
///
/// A default-constructed identity is new: no other of this process equals it, from whatever thread
/// it was made. The pair (0, 0) is the null identity, which stands for "no command" and is never
/// made by the default constructor.
class IDType {
  public:
    IDType() noexcept;
    constexpr IDType(std::int64_t high, std::int64_t low) noexcept : high_(high), low_(low) {}

    static constexpr IDType null() noexcept { return {0, 0}; }
    constexpr bool isNull() const noexcept { return high_ == 0 && low_ == 0; }

    constexpr std::int64_t high() const noexcept { return high_; }
    constexpr std::int64_t low() const noexcept { return low_; }

    friend constexpr auto operator<=>(const IDType&, const IDType&) noexcept = default;

  private:
    std::int64_t high_;
    std::int64_t low_;
};

/// Writes "high:low" in decimal.
std::ostream& operator<<(std::ostream& out, const IDType& id);

}  // namespace foundation::msg_svc::exchange

template <>
struct std::hash<foundation::msg_svc::exchange::IDType> {
    std::size_t operator()(const foundation::msg_svc::exchange::IDType& id) const noexcept {
        // The high part is the same for all identities of a process, so a plain combination serves.
        return std::hash<std::int64_t>{}(id.low()) ^ (std::hash<std::int64_t>{}(id.high()) * 31U);
    }
};
