#include "engine/detail/EngineDebugger.hpp"

#include "cmddistributor/RuntimeException.hpp"

namespace yvm::engine {

using cmddistributor::RuntimeException;
using ylutil::debugger::Breakpoint;

namespace {

void refuse(ylutil::debugger::OperationCompletion& completion) {
    completion.fail(std::make_exception_ptr(
        RuntimeException(RuntimeException::Status::Unclassified,
                         std::string("This engine does not stop at breakpoints."), "yvm:noDebugger")));
}

}  // namespace

void EngineDebugger::setImpl(Breakpoint /*breakpoint*/, Completion completion) {
    refuse(*completion);
}

void EngineDebugger::clearImpl(Breakpoint /*breakpoint*/, Completion completion) {
    refuse(*completion);
}

void EngineDebugger::clearAllImpl(Completion completion) {
    refuse(*completion);
}

}  // namespace yvm::engine
