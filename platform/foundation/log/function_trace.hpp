#pragma once

#include "foundation/log/basic_diagnostic_logger.hpp"

namespace foundation::log {

/// Opened at the top of a function through `FOUNDATION_FUNCTION_TRACE(logger)`.
///
/// If flag 32 is enabled it logs the signature at entry and indents this thread's log by one step
/// until the scope ends. At exit it logs the signature at flag 64, followed by " [throw]" when more
/// exceptions are uncaught than at entry.
class function_trace {
  public:
    /// `signature` must outlive the scope (a literal such as `__PRETTY_FUNCTION__`).
    function_trace(const diagnostic_logger& logger, const char* signature) noexcept;
    ~function_trace();
    function_trace(const function_trace&) = delete;
    function_trace& operator=(const function_trace&) = delete;

  private:
    const diagnostic_logger& logger_;
    const char* signature_;
    int uncaughtAtEntry_;
    bool indented_;
};

}  // namespace foundation::log

#define FOUNDATION_FUNCTION_TRACE(logger) \
    const ::foundation::log::function_trace functionTrace((logger), __PRETTY_FUNCTION__)
