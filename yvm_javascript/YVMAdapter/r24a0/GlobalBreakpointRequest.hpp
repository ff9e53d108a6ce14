#pragma once

#include "YorWorks/lxe/GlobalBreakpoint.hpp"
#include "common/BaseRequest.hpp"

namespace yvm::JSClient::r24a0 {

/// Sets or clears a breakpoint on a condition of the whole run:
/// `{"requestID":"4","breakpoint":{"type":"ERROR"}}`, as `readGlobalBreakpoint` tells. The types are "ERROR",
/// "WARNING", "CAUGHT_ERROR", "NAN_INF" and "UNSUPPRESSED_OUTPUT".
///
/// Differs from the class of r22a0 in the last of these alone.
class GlobalBreakpointRequest : public BaseRequest {
  public:
    /// Throws as `findValue` and `readGlobalBreakpoint` do.
    explicit GlobalBreakpointRequest(const BaseRequest& request);

    const YorWorks::lxe::GlobalBreakpoint& getBreakpoint() const noexcept { return breakpoint_; }

  private:
    YorWorks::lxe::GlobalBreakpoint breakpoint_;
};

}  // namespace yvm::JSClient::r24a0
