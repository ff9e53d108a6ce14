#include "r22a0/LineBreakpointRequest.hpp"

#include "common/readBreakpoint.hpp"

namespace yvm::JSClient::r22a0 {

LineBreakpointRequest::LineBreakpointRequest(const BaseRequest& request)
    : BaseRequest(request), breakpoint_(readLineBreakpoint(findValue<JsonObject>("breakpoint"))) {}

}  // namespace yvm::JSClient::r22a0
