#include "ylutil/debugger/Debugger.hpp"

#include <exception>
#include <utility>

namespace ylutil::debugger {

Debugger::~Debugger() = default;

template <typename T, int action>
void Debugger::breakpointActionCallback(T&& info, Callback<void> callback) {
    const auto completion = std::make_shared<OperationCompletion>(std::move(callback));
    try {
        if constexpr (action == setAction) {
            setImpl(std::forward<T>(info), completion);
        } else if constexpr (action == clearAction) {
            clearImpl(std::forward<T>(info), completion);
        } else {
            static_assert(action == clearAllAction);
            clearAllImpl(completion);
        }
    } catch (...) {
        completion->fail(std::current_exception());
    }
}

template void Debugger::breakpointActionCallback<YorWorks::lxe::GlobalBreakpoint, 0>(
    YorWorks::lxe::GlobalBreakpoint&&, Callback<void>);
template void Debugger::breakpointActionCallback<YorWorks::lxe::GlobalBreakpoint, 1>(
    YorWorks::lxe::GlobalBreakpoint&&, Callback<void>);
template void Debugger::breakpointActionCallback<YorWorks::lxe::LineBreakpoint, 0>(
    YorWorks::lxe::LineBreakpoint&&, Callback<void>);
template void Debugger::breakpointActionCallback<YorWorks::lxe::LineBreakpoint, 1>(
    YorWorks::lxe::LineBreakpoint&&, Callback<void>);
template void Debugger::breakpointActionCallback<NullDebugInfo, 2>(NullDebugInfo&&, Callback<void>);

}  // namespace ylutil::debugger
