#pragma once

#include "YorWorks/lxe/GlobalBreakpoint.hpp"
#include "YorWorks/lxe/LineBreakpoint.hpp"
#include "ylutil/debugger/NullDebugInfo.hpp"
#include "ylutil/debugger/OperationCompletion.hpp"

#include <functional>
#include <future>
#include <memory>
#include <utility>
#include <variant>

namespace ylutil::debugger {

using Breakpoint = std::variant<YorWorks::lxe::GlobalBreakpoint, YorWorks::lxe::LineBreakpoint>;

/// Sets and clears the breakpoints of an engine, which all its clients share.
///
/// No operation waits for the engine. Each ends in one call of its callback, with a ready future that holds
/// nothing, or why the operation failed; on whatever thread the engine completes it, maybe inside the
/// operation. The future that an operation returns is ready when the callback has returned and holds what
/// that threw; it may be dropped at once.
///
/// An engine derives from this and fills the virtual operations. Safe from any thread.
class [[gnu::visibility("default")]] Debugger {
  public:
    template <typename Result>
    using Callback = std::function<Result(boost::shared_future<void>)>;

    Debugger() = default;
    virtual ~Debugger();
    Debugger(const Debugger&) = delete;
    Debugger& operator=(const Debugger&) = delete;

    template <typename Result, typename BreakpointType>
    std::future<Result> setBreakpoint(BreakpointType breakpoint, Callback<Result> callback) {
        return act<setAction>(std::move(breakpoint), std::move(callback));
    }

    template <typename Result, typename BreakpointType>
    std::future<Result> clearBreakpoint(BreakpointType breakpoint, Callback<Result> callback) {
        return act<clearAction>(std::move(breakpoint), std::move(callback));
    }

    template <typename Result>
    std::future<Result> clearAllBreakpoints(Callback<Result> callback) {
        return act<clearAllAction>(NullDebugInfo(), std::move(callback));
    }

  private:
    using Completion = std::shared_ptr<OperationCompletion>;

    static constexpr int setAction = 0;
    static constexpr int clearAction = 1;
    static constexpr int clearAllAction = 2;

    /// What the engine does. `completion`, never null, is settled when it has been done, on any thread, or
    /// failed with what was wrong. What a call throws fails the operation as well.
    virtual void setImpl(Breakpoint breakpoint, Completion completion) = 0;
    virtual void clearImpl(Breakpoint breakpoint, Completion completion) = 0;
    virtual void clearAllImpl(Completion completion) = 0;

    /// Has the engine carry out the action and calls `callback` with a ready future, once.
    template <typename T, int action>
    void breakpointActionCallback(T&& info, Callback<void> callback);

    template <int action, typename T, typename Result>
    std::future<Result> act(T info, Callback<Result> callback) {
        using Task = std::packaged_task<Result(boost::shared_future<void>)>;
        const auto task = std::make_shared<Task>(std::move(callback));
        auto future = task->get_future();
        breakpointActionCallback<T, action>(
            std::move(info), [task](boost::shared_future<void> outcome) { (*task)(std::move(outcome)); });
        return future;
    }
};

// Those that there are.
extern template void Debugger::breakpointActionCallback<YorWorks::lxe::GlobalBreakpoint, 0>(
    YorWorks::lxe::GlobalBreakpoint&&, Callback<void>);
extern template void Debugger::breakpointActionCallback<YorWorks::lxe::GlobalBreakpoint, 1>(
    YorWorks::lxe::GlobalBreakpoint&&, Callback<void>);
extern template void Debugger::breakpointActionCallback<YorWorks::lxe::LineBreakpoint, 0>(
    YorWorks::lxe::LineBreakpoint&&, Callback<void>);
extern template void Debugger::breakpointActionCallback<YorWorks::lxe::LineBreakpoint, 1>(
    YorWorks::lxe::LineBreakpoint&&, Callback<void>);
extern template void Debugger::breakpointActionCallback<NullDebugInfo, 2>(NullDebugInfo&&, Callback<void>);

}  // namespace ylutil::debugger
