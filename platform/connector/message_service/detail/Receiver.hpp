#pragma once

#include "connector/message_service/MessageService.hpp"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace connector::message_service::detail {

enum class DeliveryPlace {
    lane,              ///< on a delivery thread
    publishingThread,  ///< inside `publish`
};

/// One subscription as the broker sees it: a callback that can be ended. Safe from any thread.
class Receiver {
  public:
    /// `owner` is the participant's name, for the log.
    Receiver(std::string owner, std::string channelOrPattern, DeliveryPlace place,
             MessageService::MessageCallback callback);

    const std::string& channelOrPattern() const noexcept { return channelOrPattern_; }
    DeliveryPlace place() const noexcept { return place_; }

    /// Calls the callback unless this has ended. What it throws is logged.
    void receive(const JsonMessage& message) noexcept;

    /// Once this has returned no callback starts, and none is running on another thread, unless it
    /// is called from inside the callback: then it waits for nobody, since two callbacks that end
    /// each other's subscription would wait for ever. Returns whether this call was the first.
    bool end();

  private:
    bool runsOnThisThreadLocked() const;

    const std::string owner_;
    const std::string channelOrPattern_;
    const DeliveryPlace place_;
    const MessageService::MessageCallback callback_;

    std::mutex mutex_;
    std::condition_variable returned_;
    // Both guarded by mutex_.
    bool live_ = true;
    std::vector<std::thread::id> runningOn_;
};

}  // namespace connector::message_service::detail
