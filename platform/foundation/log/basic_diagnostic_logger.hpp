#pragma once

#include "foundation/log/Severity.hpp"

#include <atomic>
#include <sstream>
#include <string>
#include <string_view>

namespace foundation::log {

/// Switches the whole logging core on or off. Off until the host or a test turns it on.
void setLoggingEnabled(bool enabled) noexcept;
bool isLoggingEnabled() noexcept;

/// The mask of every logger that has none of its own. Initially it holds `CaughtException` and
/// `RefusedEngine`.
void setDefaultMask(unsigned mask);
unsigned defaultMask();

/// The own mask of the loggers called `name`, which may be set before such a logger exists.
void setMask(std::string_view name, unsigned mask);

class LoggerRegistry;

/// A named source of log records, on top of Boost.Log.
///
/// A record is formed only if its flag is in the logger's mask and the core is enabled; use
/// `FOUNDATION_LOG`, which does not even evaluate the operands of a refused record. Every record
/// carries the attributes "Channel" (the logger's name), "Severity" (the flag) and "Indent" (the
/// depth of function traces on the calling thread).
///
/// Loggers are made by a function-local static and never destroyed, since detached continuations
/// may log while the process ends. Safe for use from any thread.
template <typename Char>
class basic_diagnostic_logger;

template <>
class basic_diagnostic_logger<char> {
  public:
    explicit basic_diagnostic_logger(std::string name);
    ~basic_diagnostic_logger();
    basic_diagnostic_logger(const basic_diagnostic_logger&) = delete;
    basic_diagnostic_logger& operator=(const basic_diagnostic_logger&) = delete;

    const std::string& name() const noexcept { return name_; }
    bool isEnabled(Severity flag) const noexcept {
        return isLoggingEnabled() && (mask_.load(std::memory_order_relaxed) & flag) != 0;
    }
    /// The same as `foundation::log::setMask(name(), mask)`.
    void setMask(unsigned mask) { log::setMask(name_, mask); }

    /// Emits one record without asking the mask again. Never throws: a log that fails must not fail
    /// its caller.
    void write(Severity flag, const std::string& text) const noexcept;

  private:
    friend class LoggerRegistry;

    const std::string name_;
    // Written by the registry. Relaxed: a record more or less around a change of the mask is harmless.
    std::atomic<unsigned> mask_;
};

using diagnostic_logger = basic_diagnostic_logger<char>;

namespace detail {

/// Collects the parts of one line and writes it when the full expression ends.
class RecordStream {
  public:
    RecordStream(const diagnostic_logger& logger, Severity flag) : logger_(logger), flag_(flag) {}
    RecordStream(const RecordStream&) = delete;
    RecordStream& operator=(const RecordStream&) = delete;
    ~RecordStream() { logger_.write(flag_, text_.str()); }
    std::ostream& stream() noexcept { return text_; }

  private:
    const diagnostic_logger& logger_;
    Severity flag_;
    std::ostringstream text_;
};

}  // namespace detail
}  // namespace foundation::log

/// FOUNDATION_LOG(logger, Severity) << "text " << value;
#define FOUNDATION_LOG(logger, flag)                                              \
    for (bool recordDue = (logger).isEnabled(flag); recordDue; recordDue = false) \
    ::foundation::log::detail::RecordStream((logger), (flag)).stream()
