#pragma once

#include "testing/FakeDebugger.hpp"
#include "yvm/YVM.hpp"

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>

namespace platform_testing {

/// An engine that is nothing but its parts: a command distributor and an event manager of the test's
/// choice, either of which may be null, and a `FakeDebugger`. It runs no commands and has no thread.
///
/// Failures to inject: no distributor, no event manager, an `interrupt`, a `breakInDebugger` or a
/// `replaceSinks` that throws. Safe for use from any thread.
class FakeYvm final : public yvm::YVM {
  public:
    using CmdDistributorPtr = boost::shared_ptr<cmddistributor::CmdDistributor>;
    using EventMgrPtr = boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr>;

    static std::shared_ptr<FakeYvm> create(CmdDistributorPtr distributor = {}, EventMgrPtr eventMgr = {});
    FakeYvm(CmdDistributorPtr distributor, EventMgrPtr eventMgr);
    ~FakeYvm() override;

    /// A number that no engine of these fakes has.
    static std::uint64_t nextIdentifier() noexcept;

    std::uint64_t getIdentifier() const override { return identifier_; }
    CmdDistributorPtr getCmdDistributor() override;
    void replaceSinks(Sink outSink, Sink errSink) override;
    foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<yvm::YVM> self) override;
    void interrupt() override;
    std::shared_ptr<ylutil::debugger::Debugger> getDebugger() override { return debugger_; }
    void breakInDebugger() override;
    EventMgrPtr getEventMgr() override;

    void setCmdDistributor(CmdDistributorPtr distributor);
    void setEventMgr(EventMgrPtr eventMgr);

    /// The installed pair; null until the first `replaceSinks`.
    Sink outSink();
    Sink errSink();

    /// How often `interrupt` was called, calls that threw included.
    int interruptCount() const noexcept { return interrupts_; }
    /// What `interrupt` throws from now on; null for nothing.
    void failInterrupts(std::exception_ptr error);
    const std::shared_ptr<FakeDebugger>& debugger() const noexcept { return debugger_; }
    /// How often `breakInDebugger` was called, calls that threw included.
    int breakInCount() const noexcept { return breakIns_; }
    /// What `breakInDebugger` throws from now on; null for nothing.
    void failBreakIns(std::exception_ptr error);
    /// What `replaceSinks`, by which a restorer restores, throws from now on; null for nothing.
    void failSinks(std::exception_ptr error);

  private:
    const std::uint64_t identifier_;
    const std::shared_ptr<FakeDebugger> debugger_ = std::make_shared<FakeDebugger>();
    std::atomic<int> interrupts_{0};
    std::atomic<int> breakIns_{0};

    std::mutex mutex_;
    // Guarded by mutex_.
    CmdDistributorPtr distributor_;
    EventMgrPtr eventMgr_;
    std::exception_ptr interruptError_;
    std::exception_ptr breakInError_;
    std::exception_ptr sinksError_;
    Sink outSink_;
    Sink errSink_;
};

}  // namespace platform_testing
