#include "ylutil/debugger/OperationCompletion.hpp"

#include <stdexcept>
#include <utility>

namespace ylutil::debugger {

OperationCompletion::OperationCompletion(Callback callback) : callback_(std::move(callback)) {}

OperationCompletion::~OperationCompletion() {
    settle([](boost::promise<void>& promise) {
        promise.set_exception(
            std::runtime_error("The operation was dropped before the debugger answered it."));
    });
}

void OperationCompletion::succeed() noexcept {
    settle([](boost::promise<void>& promise) { promise.set_value(); });
}

void OperationCompletion::fail(const std::exception_ptr& error) noexcept {
    settle([&error](boost::promise<void>& promise) {
        try {
            std::rethrow_exception(error);
        } catch (...) {
            promise.set_exception(boost::current_exception());
        }
    });
}

template <typename Fulfil>
void OperationCompletion::settle(Fulfil fulfil) noexcept {
    if (settled_.exchange(true)) {
        return;
    }
    try {
        boost::promise<void> promise;
        fulfil(promise);
        callback_(promise.get_future().share());
    } catch (...) {
        // Nobody is left to be told; the debugger goes on.
    }
}

}  // namespace ylutil::debugger
