#pragma once

#include "YorWorks/lxe/GlobalBreakpoint.hpp"
#include "common/BaseRequest.hpp"

namespace yvm::JSClient::r22a0 {

/// Sets or clears a breakpoint on a condition of the whole run:
/// `{"requestID":"4","breakpoint":{"type":"ERROR"}}`, as `readGlobalBreakpoint` tells. The types are "ERROR",
/// "WARNING", "CAUGHT_ERROR" and "NAN_INF".
///
/// Differs from the class of r24a0 in the type "UNSUPPRESSED_OUTPUT" alone, which that has beside these.
class GlobalBreakpointRequest : public BaseRequest {
  public:
    /// Throws as `findValue` and `readGlobalBreakpoint` do.
    explicit GlobalBreakpointRequest(const BaseRequest& request);

    const YorWorks::lxe::GlobalBreakpoint& getBreakpoint() const noexcept { return breakpoint_; }

  private:
    YorWorks::lxe::GlobalBreakpoint breakpoint_;
};

}  // namespace yvm::JSClient::r22a0
