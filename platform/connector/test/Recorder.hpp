#pragma once

#include "connector/message_service/JsonMessage.hpp"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace connector::test {

/// How long a test waits for what must come; only a failing test ever waits so long.
inline constexpr std::chrono::seconds deadline{60};

/// Gathers texts from callbacks. Safe from any thread; outlives the callbacks that use it.
class Recorder {
  public:
    void add(std::string text) {
        const std::lock_guard lock(mutex_);
        texts_.push_back(std::move(text));
        changed_.notify_all();
    }

    std::vector<std::string> texts() const {
        const std::lock_guard lock(mutex_);
        return texts_;
    }

    /// Waits until `count` texts have come and returns all; throws when the deadline passes.
    std::vector<std::string> wait(std::size_t count) const {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, deadline, [&] { return texts_.size() >= count; })) {
            throw std::runtime_error("only " + std::to_string(texts_.size()) + " texts came");
        }
        return texts_;
    }

    /// A callback that records "channel payload".
    auto callback() {
        return [this](const message_service::JsonMessage& message) {
            add(message.channel() + ' ' + std::string(message.payload().view()));
        };
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> texts_;  // guarded by mutex_
};

/// Something that happens once and that threads wait for.
class Signal {
  public:
    void set() {
        const std::lock_guard lock(mutex_);
        isSet_ = true;
        changed_.notify_all();
    }

    /// Throws when the deadline passes.
    void wait() const {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, deadline, [this] { return isSet_; })) {
            throw std::runtime_error("the signal did not come");
        }
    }

    bool isSet() const {
        const std::lock_guard lock(mutex_);
        return isSet_;
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool isSet_ = false;  // guarded by mutex_
};

}  // namespace connector::test
