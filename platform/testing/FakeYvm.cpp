#include "testing/FakeYvm.hpp"

#include <utility>

namespace platform_testing {
std::uint64_t FakeYvm::nextIdentifier() noexcept {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

std::shared_ptr<FakeYvm> FakeYvm::create(CmdDistributorPtr distributor, EventMgrPtr eventMgr) {
    return std::make_shared<FakeYvm>(std::move(distributor), std::move(eventMgr));
}

FakeYvm::FakeYvm(CmdDistributorPtr distributor, EventMgrPtr eventMgr)
    : identifier_(nextIdentifier()), distributor_(std::move(distributor)), eventMgr_(std::move(eventMgr)) {}

FakeYvm::~FakeYvm() = default;

FakeYvm::CmdDistributorPtr FakeYvm::getCmdDistributor() {
    const std::lock_guard lock(mutex_);
    return distributor_;
}

void FakeYvm::replaceSinks(Sink outSink, Sink errSink) {
    const std::lock_guard lock(mutex_);
    if (sinksError_) {
        std::rethrow_exception(sinksError_);
    }
    outSink_.swap(outSink);
    errSink_.swap(errSink);
}

foundation::core::util::scope_guard FakeYvm::makeSinkRestorer(std::shared_ptr<yvm::YVM> self) {
    return foundation::core::util::scope_guard(
        [self = std::move(self), out = outSink(), err = errSink()] { self->replaceSinks(out, err); });
}

FakeYvm::Sink FakeYvm::outSink() {
    const std::lock_guard lock(mutex_);
    return outSink_;
}

FakeYvm::Sink FakeYvm::errSink() {
    const std::lock_guard lock(mutex_);
    return errSink_;
}

void FakeYvm::interrupt() {
    ++interrupts_;
    const std::lock_guard lock(mutex_);
    if (interruptError_) {
        std::rethrow_exception(interruptError_);
    }
}

void FakeYvm::breakInDebugger() {
    ++breakIns_;
    const std::lock_guard lock(mutex_);
    if (breakInError_) {
        std::rethrow_exception(breakInError_);
    }
}

FakeYvm::EventMgrPtr FakeYvm::getEventMgr() {
    const std::lock_guard lock(mutex_);
    return eventMgr_;
}

void FakeYvm::setCmdDistributor(CmdDistributorPtr distributor) {
    const std::lock_guard lock(mutex_);
    distributor_.swap(distributor);
}

void FakeYvm::setEventMgr(EventMgrPtr eventMgr) {
    const std::lock_guard lock(mutex_);
    eventMgr_.swap(eventMgr);
}

void FakeYvm::failInterrupts(std::exception_ptr error) {
    const std::lock_guard lock(mutex_);
    interruptError_ = std::move(error);
}

void FakeYvm::failBreakIns(std::exception_ptr error) {
    const std::lock_guard lock(mutex_);
    breakInError_ = std::move(error);
}

void FakeYvm::failSinks(std::exception_ptr error) {
    const std::lock_guard lock(mutex_);
    sinksError_ = std::move(error);
}

}  // namespace platform_testing
