#include "engine/detail/EngineDebugger.hpp"

#include "cmddistributor/RuntimeException.hpp"

#include <optional>
#include <utility>
#include <variant>

namespace yvm::engine {

using cmddistributor::RuntimeException;
using ylutil::debugger::Breakpoint;

namespace {

std::exception_ptr shutDown() {
    return std::make_exception_ptr(RuntimeException(RuntimeException::Status::ShuttingDown,
                                                    std::string("The engine shut down."), "yvm:shutDown"));
}

}  // namespace

bool EngineDebugger::hasChanges() const {
    const std::lock_guard lock(mutex_);
    return !pending_.empty();
}

void EngineDebugger::carryOut(const std::function<void(const Change&)>& change) {
    // Only those that have come by now, so that whoever sends one after the other holds nobody up.
    std::deque<Pending> pending;
    {
        const std::lock_guard lock(mutex_);
        pending.swap(pending_);
    }
    for (auto& [next, completion] : pending) {
        try {
            change(next);
            completion->succeed();
        } catch (const std::exception&) {
            completion->fail(std::current_exception());
        }
    }
}

void EngineDebugger::close() {
    std::deque<Pending> pending;
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        pending.swap(pending_);
    }
    for (auto& operation : pending) {
        operation.completion->fail(shutDown());
    }
}

void EngineDebugger::setImpl(Breakpoint breakpoint, Completion completion) {
    submit(
        [breakpoint = std::move(breakpoint)](BreakpointTable& table) {
            std::visit([&table](const auto& value) { table.set(value); }, breakpoint);
            return true;
        },
        completion);
}

void EngineDebugger::clearImpl(Breakpoint breakpoint, Completion completion) {
    submit(
        [breakpoint = std::move(breakpoint)](BreakpointTable& table) {
            return std::visit([&table](const auto& value) { return table.clear(value); }, breakpoint);
        },
        completion);
}

void EngineDebugger::clearAllImpl(Completion completion) {
    submit([](BreakpointTable& table) { return table.clearAll(); }, completion);
}

void EngineDebugger::submit(Change change, const Completion& completion) {
    bool isClosed = false;
    {
        const std::lock_guard lock(mutex_);
        isClosed = closed_;
        if (!isClosed) {
            pending_.push_back({std::move(change), completion});
        }
    }
    if (isClosed) {
        completion->fail(shutDown());
    } else {
        announce_();
    }
}

}  // namespace yvm::engine
