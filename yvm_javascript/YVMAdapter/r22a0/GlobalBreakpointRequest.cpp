#include "r22a0/GlobalBreakpointRequest.hpp"

#include "common/readBreakpoint.hpp"

#include <array>

namespace yvm::JSClient::r22a0 {

namespace {

using Condition = YorWorks::lxe::GlobalBreakpoint::Condition;

constexpr std::array names{
    ConditionName{"ERROR", Condition::Error}, ConditionName{"WARNING", Condition::Warning},
    ConditionName{"CAUGHT_ERROR", Condition::CaughtError}, ConditionName{"NAN_INF", Condition::NanInf}};

}  // namespace

GlobalBreakpointRequest::GlobalBreakpointRequest(const BaseRequest& request)
    : BaseRequest(request), breakpoint_(readGlobalBreakpoint(findValue<JsonObject>("breakpoint"), names)) {}

}  // namespace yvm::JSClient::r22a0
