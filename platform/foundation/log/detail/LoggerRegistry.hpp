#pragma once

#include "foundation/log/basic_diagnostic_logger.hpp"

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace foundation::log {

/// Knows every logger of the process and the masks that were set, by default and by name.
///
/// Several loggers may carry one name: each plug-in has its own objects. Safe for use from any
/// thread; the one instance is never destroyed, as loggers are not.
class LoggerRegistry {
  public:
    static LoggerRegistry& instance();

    void add(diagnostic_logger& logger);
    void remove(diagnostic_logger& logger) noexcept;

    void setDefaultMask(unsigned mask);
    unsigned defaultMask();
    void setMask(std::string_view name, unsigned mask);

  private:
    void applyLocked(diagnostic_logger& logger);

    std::mutex mutex_;
    // Guarded by mutex_.
    unsigned defaultMask_ = CaughtException | RefusedEngine;
    std::map<std::string, unsigned, std::less<>> ownMasks_;
    std::set<diagnostic_logger*> loggers_;
};

}  // namespace foundation::log
