#pragma once

#include "common/YVMConnection.hpp"

#include <atomic>
#include <optional>
#include <utility>

namespace yvm::JSClient {

/// The place of a connection whose handler may be called while the connection is still being stored, since
/// its requests come in from within its constructor on. Such a handler finds the slot empty.
///
/// Threads: `emplace` from the thread that builds the owner; all else from any.
class ConnectionSlot {
  public:
    /// Once. Throws what the constructor of the connection throws, and stays empty then.
    template <typename... Arguments>
    void emplace(Arguments&&... arguments) {
        connection_.emplace(std::forward<Arguments>(arguments)...);
        isStored_.store(true, std::memory_order_release);
    }

    explicit operator bool() const noexcept { return isStored_.load(std::memory_order_acquire); }
    /// Only when the slot is not empty.
    YVMConnection* operator->() noexcept { return &*connection_; }

  private:
    std::optional<YVMConnection> connection_;
    std::atomic<bool> isStored_ = false;
};

}  // namespace yvm::JSClient
