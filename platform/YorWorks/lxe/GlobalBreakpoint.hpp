#pragma once

#include <optional>
#include <string>

namespace YorWorks::lxe {

/// A breakpoint on a condition of the whole run, wherever in the code it arises. A value.
class [[gnu::visibility("default")]] GlobalBreakpoint {
  public:
    enum class Condition {
        Error = 0,              ///< an error that nobody catches
        Warning = 1,            ///< a warning is given
        CaughtError = 2,        ///< an error that is caught
        NanInf = 3,             ///< a calculation makes a NaN or an infinity
        UnsuppressedOutput = 4  ///< a value is about to be displayed
    };

    /// On every message of the condition.
    explicit GlobalBreakpoint(Condition condition);
    /// Only on messages with this identifier (UTF-8).
    GlobalBreakpoint(Condition condition, std::string messageId);

    Condition condition() const noexcept { return condition_; }
    /// Empty where none was given, which is not the same as an identifier without characters.
    const std::optional<std::string>& messageId() const noexcept { return messageId_; }

    friend bool operator==(const GlobalBreakpoint&, const GlobalBreakpoint&) = default;

  private:
    Condition condition_;
    std::optional<std::string> messageId_;
};

}  // namespace YorWorks::lxe
