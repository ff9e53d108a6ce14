#pragma once

#include <chrono>
#include <ctime>

namespace yvm::engine {

/// Sends a signal to one thread again and again while it is on.
///
/// A signal breaks into a system call only if the call has begun. One that arrives between Python's last look
/// at its signals and the beginning of a long wait, or while Python goes through those that came before,
/// would be noticed when the wait has ended.
///
/// Not safe for use from several threads at once. A forked child has no such timer, and nothing to send.
class SignalRepeater {
  public:
    /// Bounds how late a signal is noticed that was missed. Short, since somebody waits for a command to
    /// stop, and long enough to cost the command next to nothing.
    static constexpr std::chrono::milliseconds period{5};

    /// Off, and for the calling thread. Throws `std::system_error` when the system has no timer left.
    explicit SignalRepeater(int signalNumber);
    ~SignalRepeater();
    SignalRepeater(const SignalRepeater&) = delete;
    SignalRepeater& operator=(const SignalRepeater&) = delete;

    /// The first signal comes after a period. Does nothing when it is on.
    void start() noexcept;
    /// The first signal comes after that time, at the earliest at once, also when it is on.
    void startAfter(std::chrono::nanoseconds delay) noexcept;
    void stop() noexcept;

  private:
    void set(std::chrono::nanoseconds first, std::chrono::nanoseconds interval) noexcept;

    timer_t timer_{};
    bool isOn_ = false;
};

}  // namespace yvm::engine
