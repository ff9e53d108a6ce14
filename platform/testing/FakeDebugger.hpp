#pragma once

#include "ylutil/debugger/Debugger.hpp"

#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace platform_testing {

/// A debugger without an engine: it records what it is asked for, and the test settles each operation by
/// hand, in any order and from any thread; its callback runs inside that call.
///
/// Operations that the test leaves unsettled fail when the debugger dies. Safe for use from any thread.
class FakeDebugger final : public ylutil::debugger::Debugger {
  public:
    enum class Action { Set, Clear, ClearAll };

    struct Operation {
        Action action;
        std::optional<ylutil::debugger::Breakpoint> breakpoint;  ///< empty for `ClearAll`

        friend bool operator==(const Operation&, const Operation&) = default;
    };

    FakeDebugger();
    ~FakeDebugger() override;

    /// All operations in the order of arrival.
    std::vector<Operation> operations() const;

    /// Settle the operation of this number, counted from 0. Throw `std::out_of_range` when there is none.
    void succeed(std::size_t index);
    void fail(std::size_t index, const std::exception_ptr& error);

    /// Forgets the operations so far; those that are unsettled fail.
    void dropOperations();

    /// From now on operations are settled as they come, inside the call; without `error` they succeed.
    void answerAtOnce(std::exception_ptr error = {});

    /// What operations throw from now on, unrecorded; null for nothing.
    void failOperations(std::exception_ptr error);

  private:
    using Completion = std::shared_ptr<ylutil::debugger::OperationCompletion>;

    void setImpl(ylutil::debugger::Breakpoint breakpoint, Completion completion) override;
    void clearImpl(ylutil::debugger::Breakpoint breakpoint, Completion completion) override;
    void clearAllImpl(Completion completion) override;

    void record(Operation operation, const Completion& completion);
    Completion completionOf(std::size_t index) const;

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::vector<Operation> operations_;
    std::vector<Completion> completions_;
    bool answersAtOnce_ = false;
    std::exception_ptr answer_;
    std::exception_ptr operationError_;
};

}  // namespace platform_testing
