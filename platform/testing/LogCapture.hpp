#pragma once

#include "foundation/log/Severity.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform_testing {

/// One record as it reached the sinks.
struct LogRecord {
    std::string channel;  ///< the logger's name
    unsigned severity;    ///< the flag, see `foundation::log::Severity`
    int indent;           ///< open function traces on the writing thread
    std::string text;

    bool operator==(const LogRecord&) const = default;
};

/// Records the whole process's log for as long as it lives.
///
/// Turns the logging core on and sets the default mask to all flags; the destructor puts both back as
/// they were. A logger whose own mask was set keeps that mask. Safe for use from any thread. Captures
/// may nest: each sees the records of its lifetime; destroy them in reverse order.
class LogCapture {
  public:
    explicit LogCapture(unsigned mask = ~0U);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All records in the order in which they were written, or those of one channel.
    std::vector<LogRecord> records() const;
    std::vector<LogRecord> records(std::string_view channel) const;

    /// The texts of one channel's records with one severity, in order.
    std::vector<std::string> texts(std::string_view channel, unsigned severity) const;

    /// Whether a record with exactly this text is there.
    bool contains(std::string_view channel, unsigned severity, std::string_view text) const;

    /// How many records with exactly this text are there.
    std::size_t count(std::string_view channel, unsigned severity, std::string_view text) const;

    /// Forgets what was recorded so far.
    void clear();

  private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

}  // namespace platform_testing
