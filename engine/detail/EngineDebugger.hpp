#pragma once

#include "ylutil/debugger/Debugger.hpp"

#include <memory>

namespace yvm::engine {

/// The breakpoints of the engine. For now it knows none: each operation fails and says so.
class EngineDebugger final : public ylutil::debugger::Debugger {
  private:
    using Completion = std::shared_ptr<ylutil::debugger::OperationCompletion>;

    void setImpl(ylutil::debugger::Breakpoint breakpoint, Completion completion) override;
    void clearImpl(ylutil::debugger::Breakpoint breakpoint, Completion completion) override;
    void clearAllImpl(Completion completion) override;
};

}  // namespace yvm::engine
