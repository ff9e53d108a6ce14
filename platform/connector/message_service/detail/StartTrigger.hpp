#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace connector::message_service::detail {

/// Starts something when the first message comes that matches a pattern; a trailing "/*" or "/**" of
/// the pattern stands for everything below. Safe from any thread.
class StartTrigger {
  public:
    StartTrigger(std::string pattern, std::function<void()> start)
        : pattern_(std::move(pattern)), start_(std::move(start)) {}

    const std::string& pattern() const noexcept { return pattern_; }
    bool matches(std::string_view channel) const noexcept;

    /// How many starts have failed so far. A message takes note of it when it is published.
    unsigned failures() const;

    /// Returns whether the start has succeeded: at once if so, after having started on this thread
    /// or waited for the thread that does. A message that was published before a start that failed
    /// (`failuresAtPublication`) does not try again. What the start throws is logged.
    bool ensureStarted(unsigned failuresAtPublication) noexcept;

  private:
    enum class State { idle, starting, started };

    const std::string pattern_;
    const std::function<void()> start_;

    mutable std::mutex mutex_;
    std::condition_variable settled_;
    // Both guarded by mutex_.
    State state_ = State::idle;
    unsigned failures_ = 0;
};

}  // namespace connector::message_service::detail
