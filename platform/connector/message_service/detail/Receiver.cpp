#include "connector/message_service/detail/Receiver.hpp"

#include "connector/message_service/detail/logger.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <algorithm>
#include <utility>

namespace connector::message_service::detail {

Receiver::Receiver(std::string owner, std::string channelOrPattern, DeliveryPlace place,
                   MessageService::MessageCallback callback)
    : owner_(std::move(owner)),
      channelOrPattern_(std::move(channelOrPattern)),
      place_(place),
      callback_(std::move(callback)) {}

void Receiver::receive(const JsonMessage& message) noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (!live_) {
            return;
        }
        runningOn_.push_back(std::this_thread::get_id());
    }
    try {
        callback_(message);
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "A callback of " << owner_ << " failed on " << message.channel() << ": "
            << boost::current_exception_diagnostic_information(true);
    }
    const std::lock_guard lock(mutex_);
    runningOn_.erase(std::ranges::find(runningOn_, std::this_thread::get_id()));
    if (!live_) {
        returned_.notify_all();
    }
}

bool Receiver::end() {
    std::unique_lock lock(mutex_);
    const bool first = std::exchange(live_, false);
    returned_.wait(lock, [this] { return runningOn_.empty() || runsOnThisThreadLocked(); });
    return first;
}

bool Receiver::runsOnThisThreadLocked() const {
    return std::ranges::find(runningOn_, std::this_thread::get_id()) != runningOn_.end();
}

}  // namespace connector::message_service::detail
