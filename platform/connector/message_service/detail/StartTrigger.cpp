#include "connector/message_service/detail/StartTrigger.hpp"

#include "connector/message_service/detail/channels.hpp"
#include "connector/message_service/detail/logger.hpp"

#include <boost/exception/diagnostic_information.hpp>

namespace connector::message_service::detail {

bool StartTrigger::matches(std::string_view channel) const noexcept {
    const Pattern pattern = parsePattern(pattern_);
    return pattern.kind == PatternKind::exact ? channel == pattern.prefix
                                              : !below(pattern.prefix, channel).empty();
}

unsigned StartTrigger::failures() const {
    const std::lock_guard lock(mutex_);
    return failures_;
}

bool StartTrigger::ensureStarted(unsigned failuresAtPublication) noexcept {
    std::unique_lock lock(mutex_);
    settled_.wait(lock, [this] { return state_ != State::starting; });
    if (state_ == State::started || failures_ != failuresAtPublication) {
        return state_ == State::started;
    }
    state_ = State::starting;
    lock.unlock();
    bool succeeded = false;
    try {
        start_();
        succeeded = true;
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "The start for " << pattern_
            << " failed: " << boost::current_exception_diagnostic_information(true);
    }
    lock.lock();
    state_ = succeeded ? State::started : State::idle;
    failures_ += succeeded ? 0 : 1;
    settled_.notify_all();
    return succeeded;
}

}  // namespace connector::message_service::detail
