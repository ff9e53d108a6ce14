#pragma once

#include "cmddistributor/CommandTimes.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace server::bayeux {

/// Counts, by client, the evals and fevals that were handed on and not answered yet. Safe from any
/// thread.
class RequestsInFlight {
  public:
    /// A message was handed on, or is about to be delivered, on this channel. Most mean nothing here.
    void observe(std::string_view channel);

    /// The client is gone, and nothing of it will be answered.
    void forget(const std::string& client);

    /// Those of all clients.
    std::size_t count(cmddistributor::CommandKind kind) const;
    std::size_t count() const;

    /// Waits until all is answered. False when that takes longer than `bound`.
    bool waitForNone(std::chrono::milliseconds bound) const;

  private:
    struct Counts {
        std::size_t evals = 0;
        std::size_t fevals = 0;
    };

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    /// Without the clients that have none. Guarded by mutex_.
    std::map<std::string, Counts, std::less<>> byClient_;
};

}  // namespace server::bayeux
