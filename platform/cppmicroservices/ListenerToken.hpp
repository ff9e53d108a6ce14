#pragma once

#include <cstdint>
#include <utility>

namespace cppmicroservices {

/// Names one registered listener. Move-only; an empty or moved-from token names none.
class ListenerToken {
  public:
    ListenerToken() = default;
    explicit ListenerToken(std::uint64_t id) noexcept : id_(id) {}
    ListenerToken(ListenerToken&& other) noexcept : id_(std::exchange(other.id_, 0)) {}
    ListenerToken& operator=(ListenerToken&& other) noexcept {
        id_ = std::exchange(other.id_, 0);
        return *this;
    }
    ListenerToken(const ListenerToken&) = delete;
    ListenerToken& operator=(const ListenerToken&) = delete;

    explicit operator bool() const noexcept { return id_ != 0; }
    std::uint64_t id() const noexcept { return id_; }

  private:
    std::uint64_t id_ = 0;
};

}  // namespace cppmicroservices
