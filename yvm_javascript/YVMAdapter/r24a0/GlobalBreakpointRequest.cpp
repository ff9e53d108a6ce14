#include "r24a0/GlobalBreakpointRequest.hpp"

#include "common/readBreakpoint.hpp"

#include <array>

namespace yvm::JSClient::r24a0 {

namespace {

using Condition = YorWorks::lxe::GlobalBreakpoint::Condition;

constexpr std::array names{
    ConditionName{"ERROR", Condition::Error}, ConditionName{"WARNING", Condition::Warning},
    ConditionName{"CAUGHT_ERROR", Condition::CaughtError}, ConditionName{"NAN_INF", Condition::NanInf},
    ConditionName{"UNSUPPRESSED_OUTPUT", Condition::UnsuppressedOutput}};

}  // namespace

GlobalBreakpointRequest::GlobalBreakpointRequest(const BaseRequest& request)
    : BaseRequest(request), breakpoint_(readGlobalBreakpoint(findValue<JsonObject>("breakpoint"), names)) {}

}  // namespace yvm::JSClient::r24a0
