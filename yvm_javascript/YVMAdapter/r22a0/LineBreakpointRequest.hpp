#pragma once

#include "YorWorks/lxe/LineBreakpoint.hpp"
#include "common/BaseRequest.hpp"

namespace yvm::JSClient::r22a0 {

/// Sets or clears a breakpoint at a place in a file:
/// `{"requestID":"5","breakpoint":{"fileName":"a.py","location":{"lineNumber":3}}}`, as `readLineBreakpoint`
/// tells. The same as the class of r24a0.
class LineBreakpointRequest : public BaseRequest {
  public:
    /// Throws as `findValue` and `readLineBreakpoint` do.
    explicit LineBreakpointRequest(const BaseRequest& request);

    const YorWorks::lxe::LineBreakpoint& getBreakpoint() const noexcept { return breakpoint_; }

  private:
    YorWorks::lxe::LineBreakpoint breakpoint_;
};

}  // namespace yvm::JSClient::r22a0
