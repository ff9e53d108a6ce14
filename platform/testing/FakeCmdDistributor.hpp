#pragma once

#include "cmddistributor/CmdDistributor.hpp"

#include <boost/shared_ptr.hpp>

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace platform_testing {

/// A command distributor without an engine: it records what is submitted and cancelled, and the test settles
/// each command by hand.
///
/// A command may be settled from any thread, once; its completion runs inside that call, with no lock held.
/// Commands that the test leaves unsettled fail when the distributor dies, as their delegates do. Cancels are
/// answered as the test said beforehand and touch no command.
///
/// Failures to inject: a submission or a cancel that throws, a cancel whose future fails, never comes or is
/// empty. Safe for use from any thread.
class FakeCmdDistributor final : public cmddistributor::CmdDistributor {
  public:
    /// A command as it was submitted; settled ones included.
    struct Command {
        IDType id;
        std::shared_ptr<cmddistributor::CmdRequest> request;
        cmddistributor::RunOptions runOptions;
        std::shared_ptr<void> context;

        /// What the engine would run. Throws `std::bad_variant_access` for the other kind.
        const cmddistributor::EvalIIP& eval() const;
        const cmddistributor::FEvalIIP& feval() const;
    };
    struct Cancel {
        IDType id;
        bool interrupt;
    };
    struct GroupCancel {
        std::string groupName;
        bool interrupt;
    };

    static boost::shared_ptr<FakeCmdDistributor> create();
    FakeCmdDistributor();
    ~FakeCmdDistributor() override;

    /// In the order of arrival.
    std::vector<Command> commands() const;
    /// The last one; throws `std::out_of_range` when there is none.
    Command lastCommand() const;
    /// Blocks until `count` commands have been submitted in all; false if that took more than a minute.
    [[nodiscard]] bool waitForCommands(std::size_t count) const;
    bool isUnsettled(const IDType& id) const;

    /// Settle a command. Throw `std::out_of_range` when none of that identity waits to be settled.
    void succeed(const IDType& id, std::vector<foundation::yorlabdata::Array> outputs = {});
    void fail(const IDType& id, const cmddistributor::RuntimeException& error);
    void fail(const IDType& id, std::exception_ptr error);

    /// From now on every command succeeds without outputs inside its submission, and is not recorded, so that
    /// a benchmark measures the module and not this class.
    void succeedAtOnce();

    /// What submissions throw from now on; null lets them pass again.
    void failSubmissions(std::exception_ptr error);

    boost::shared_future<CancelStatus> cancel(const IDType& id, bool interrupt) override;
    void cancelGroup(const std::string& groupName, bool interrupt) override;
    std::vector<Cancel> cancels() const;
    std::vector<GroupCancel> groupCancels() const;

    /// How cancels are answered from now on: at once with a status (the default, with
    /// `UNABLE_TO_CANCEL_OTHER`; any number will do), with a future of the test's making, or by throwing.
    void answerCancels(CancelStatus status);
    void answerCancels(boost::shared_future<CancelStatus> answer);
    void failCancels(std::exception_ptr error);

  private:
    void enqueueImpl(Submission& submission) override;
    std::unique_ptr<cmddistributor::PromiseDelegate> takeDelegate(const IDType& id);

    struct Unsettled {
        IDType id;
        std::unique_ptr<cmddistributor::PromiseDelegate> delegate;
    };

    mutable std::mutex mutex_;
    mutable std::condition_variable submitted_;

    // Guarded by mutex_.
    std::vector<Command> commands_;
    std::vector<Unsettled> unsettled_;
    std::vector<Cancel> cancels_;
    std::vector<GroupCancel> groupCancels_;
    bool succeedsAtOnce_ = false;
    std::exception_ptr submissionError_;
    std::exception_ptr cancelError_;
    boost::shared_future<CancelStatus> cancelAnswer_;
};

}  // namespace platform_testing
