#include "cmddistributor/PromiseDelegate.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"

#include <boost/exception/diagnostic_information.hpp>

namespace cmddistributor {
namespace {

foundation::log::diagnostic_logger& logger() {
    // Never destroyed: delegates may still be settled while the process ends.
    static auto& instance = *new foundation::log::diagnostic_logger("cmddistributor::PromiseDelegate");
    return instance;
}

}  // namespace

PromiseDelegate::~PromiseDelegate() = default;

template <typename Deliver>
void PromiseDelegate::settle(Deliver deliver) noexcept {
    if (std::exchange(settled_, true)) {
        return;
    }
    try {
        deliver();
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "A completion threw: " << boost::current_exception_diagnostic_information();
    }
    try {
        done_.set_value();
    } catch (...) {
        // A continuation of somebody else's may need a thread that cannot be had.
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "The end of a command could not be told: "
            << boost::current_exception_diagnostic_information();
    }
}

void PromiseDelegate::succeed(FEvalResult result) {
    settle([this, &result] { succeedImpl(result); });
}

void PromiseDelegate::fail(const RuntimeException& error) {
    settle([this, &error] { failImpl(error); });
}

void PromiseDelegate::fail(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const RuntimeException& known) {
        fail(known);
    } catch (...) {
        settle([this, &error] { failImpl(error); });
    }
}

void PromiseDelegate::dismiss() noexcept {
    settled_ = true;
}

void PromiseDelegate::abandon() noexcept {
    settle([this] {
        failImpl(RuntimeException(RuntimeException::Status::Unclassified,
                                  std::string("The command was dropped before the engine answered it."),
                                  abandonedIdentifier));
    });
}

}  // namespace cmddistributor
