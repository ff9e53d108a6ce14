#pragma once

#include "engine/detail/BreakpointTable.hpp"
#include "ylutil/debugger/Debugger.hpp"

#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>

namespace yvm::engine {

/// Hands what clients want of breakpoints to the engine's thread, which carries it out between two bytecodes
/// of whatever runs, in the order in which it came.
///
/// Safe from any thread.
class EngineDebugger final : public ylutil::debugger::Debugger {
  public:
    /// False says that nothing has changed. Throws what is wrong with the breakpoint.
    using Change = std::function<bool(BreakpointTable&)>;

    /// `announce` is called, on any thread, for each change that has come in; it must not block.
    explicit EngineDebugger(std::function<void()> announce) : announce_(std::move(announce)) {}

    bool hasChanges() const;
    /// Calls `change` for each that has come, and then settles it. Without the GIL.
    void carryOut(const std::function<void(const Change&)>& change);
    /// Fails those that wait and all that come. Idempotent.
    void close();

  private:
    using Completion = std::shared_ptr<ylutil::debugger::OperationCompletion>;
    struct Pending {
        Change change;
        Completion completion;
    };

    void setImpl(ylutil::debugger::Breakpoint breakpoint, Completion completion) override;
    void clearImpl(ylutil::debugger::Breakpoint breakpoint, Completion completion) override;
    void clearAllImpl(Completion completion) override;

    void submit(Change change, const Completion& completion);

    const std::function<void()> announce_;
    mutable std::mutex mutex_;  ///< a leaf
    // Guarded by mutex_.
    std::deque<Pending> pending_;
    bool closed_ = false;
};

}  // namespace yvm::engine
