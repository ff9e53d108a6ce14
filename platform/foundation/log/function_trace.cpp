#include "foundation/log/function_trace.hpp"

#include "foundation/log/detail/indentation.hpp"

#include <exception>

namespace foundation::log {

int& detail::indentation() noexcept {
    thread_local int depth = 0;
    return depth;
}

function_trace::function_trace(const diagnostic_logger& logger, const char* signature) noexcept
    : logger_(logger),
      signature_(signature),
      uncaughtAtEntry_(std::uncaught_exceptions()),
      indented_(logger.isEnabled(FunctionEntry)) {
    if (indented_) {
        logger_.write(FunctionEntry, signature_);
        ++detail::indentation();
    }
}

function_trace::~function_trace() {
    if (indented_) {
        --detail::indentation();
    }
    // Compared with the count at entry: a scope inside a destructor that runs during unwinding ends
    // normally, although an exception is in flight.
    FOUNDATION_LOG(logger_, FunctionExit)
        << signature_ << (std::uncaught_exceptions() > uncaughtAtEntry_ ? " [throw]" : "");
}

}  // namespace foundation::log
