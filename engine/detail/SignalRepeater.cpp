#include "engine/detail/SignalRepeater.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace yvm::engine {

SignalRepeater::SignalRepeater(int signalNumber) {
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = signalNumber;
    event._sigev_un._tid = ::gettid();  // The C library gives the documented name to later versions only.
    if (::timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0) {
        throw std::system_error(errno, std::generic_category(), "the engine's timer cannot be made");
    }
}

SignalRepeater::~SignalRepeater() {
    ::timer_delete(timer_);
}

void SignalRepeater::start() noexcept {
    if (!isOn_) {
        startAfter(period);
    }
}

void SignalRepeater::startAfter(std::chrono::nanoseconds delay) noexcept {
    isOn_ = true;
    // A time of zero would stop the timer.
    set(std::max(delay, std::chrono::nanoseconds(1)), period);
}

void SignalRepeater::stop() noexcept {
    if (isOn_) {
        isOn_ = false;
        set(std::chrono::nanoseconds(0), std::chrono::nanoseconds(0));
    }
}

void SignalRepeater::set(std::chrono::nanoseconds first, std::chrono::nanoseconds interval) noexcept {
    itimerspec times{};
    times.it_value.tv_nsec = first.count();  // Below a second, as all times here.
    times.it_interval.tv_nsec = interval.count();
    // Cannot fail: the timer exists and the times are in range.
    ::timer_settime(timer_, 0, &times, nullptr);
}

}  // namespace yvm::engine
