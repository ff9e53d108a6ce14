#include "testing/FakeDebugger.hpp"

#include <utility>

namespace platform_testing {

using ylutil::debugger::Breakpoint;

FakeDebugger::FakeDebugger() = default;

FakeDebugger::~FakeDebugger() = default;

std::vector<FakeDebugger::Operation> FakeDebugger::operations() const {
    const std::lock_guard lock(mutex_);
    return operations_;
}

void FakeDebugger::succeed(std::size_t index) {
    completionOf(index)->succeed();
}

void FakeDebugger::fail(std::size_t index, const std::exception_ptr& error) {
    completionOf(index)->fail(error);
}

void FakeDebugger::dropOperations() {
    std::vector<Completion> dropped;
    const std::lock_guard lock(mutex_);
    operations_.clear();
    dropped.swap(completions_);
}

void FakeDebugger::answerAtOnce(std::exception_ptr error) {
    const std::lock_guard lock(mutex_);
    answersAtOnce_ = true;
    answer_ = std::move(error);
}

void FakeDebugger::failOperations(std::exception_ptr error) {
    const std::lock_guard lock(mutex_);
    operationError_ = std::move(error);
}

void FakeDebugger::setImpl(Breakpoint breakpoint, Completion completion) {
    record({Action::Set, std::move(breakpoint)}, completion);
}

void FakeDebugger::clearImpl(Breakpoint breakpoint, Completion completion) {
    record({Action::Clear, std::move(breakpoint)}, completion);
}

void FakeDebugger::clearAllImpl(Completion completion) {
    record({Action::ClearAll, std::nullopt}, completion);
}

void FakeDebugger::record(Operation operation, const Completion& completion) {
    std::unique_lock lock(mutex_);
    if (operationError_) {
        std::rethrow_exception(operationError_);
    }
    operations_.push_back(std::move(operation));
    completions_.push_back(completion);
    if (!answersAtOnce_) {
        return;
    }
    const auto answer = answer_;
    lock.unlock();
    if (answer) {
        completion->fail(answer);
    } else {
        completion->succeed();
    }
}

FakeDebugger::Completion FakeDebugger::completionOf(std::size_t index) const {
    const std::lock_guard lock(mutex_);
    return completions_.at(index);
}

}  // namespace platform_testing
