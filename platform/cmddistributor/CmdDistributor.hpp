#pragma once

#include "cmddistributor/CmdRequest.hpp"
#include "cmddistributor/PromiseDelegate.hpp"
#include "cmddistributor/RunOptions.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"

#include <boost/thread/future.hpp>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace cmddistributor {

/// Takes commands for the engine and runs each at the moment that its run options ask for.
///
/// Safe from any thread. No lock is held while a completion runs: completions submit, cancel and
/// destroy as they like.
class [[gnu::visibility("default")]] CmdDistributor {
  public:
    using IDType = foundation::msg_svc::exchange::IDType;

    /// What became of a cancel.
    enum CancelStatus : int {
        UNABLE_TO_CANCEL_ALREADY_DONE = 0,  ///< the command had finished
        UNABLE_TO_CANCEL_OTHER = 1,         ///< running and not to be interrupted, or never queued here
        CANCEL_BEFORE_RUNNING = 2,
        CANCEL_WHILE_RUNNING = 3,  ///< the command has really stopped
    };

    /// One command on its way to the engine.
    struct Submission {
        IDType id;
        std::shared_ptr<CmdRequest> request;
        RunOptions runOptions;
        std::unique_ptr<PromiseDelegate> delegate;
        std::shared_ptr<void> context;
    };

    virtual ~CmdDistributor();

    /// Queues `request` under `id`. `completion` runs exactly once, on whatever thread settles the
    /// command (also inside this call or inside `cancel`), with a ready future: the value, the
    /// failure, or the `RuntimeException` of a cancel. `T` is void or a vector of arrays.
    ///
    /// Throws `std::invalid_argument`, before anything is registered, with "request cannot be null."
    /// and "request must contain an IIP."; a call that throws never runs `completion`. The future that is
    /// returned is fulfilled after the completion has run; dropping it does nothing.
    template <typename T>
    boost::future<void> enqueueWithFuture(std::shared_ptr<CmdRequest> request,
                                          std::function<void(boost::future<T>)> completion,
                                          RunOptions runOptions, const IDType& id,
                                          std::shared_ptr<void> context) {
        return enqueueBound(std::move(request), createBoundContinuation<T>(std::move(completion)),
                            std::move(runOptions), id, std::move(context));
    }

    /// Waiting: taken out of the queue, its completion run, `CANCEL_BEFORE_RUNNING`. Running, with
    /// `interrupt`: stopped; the future is fulfilled when it really has stopped. Running, without
    /// `interrupt`: left alone, `UNABLE_TO_CANCEL_OTHER`. Finished: `UNABLE_TO_CANCEL_ALREADY_DONE`.
    /// Never queued: `UNABLE_TO_CANCEL_OTHER`. Never waits, and an unknown id is no error. Only
    /// futures of promises are returned: a deferred one would never run a continuation.
    virtual boost::shared_future<CancelStatus> cancel(const IDType& id, bool interrupt) = 0;

    /// Cancels every command that carries the group name, as `cancel` would.
    virtual void cancelGroup(const std::string& groupName, bool interrupt) = 0;

  private:
    template <typename T>
    static std::unique_ptr<PromiseDelegate> createBoundContinuation(
        std::function<void(boost::future<T>)> completion) {
        return std::make_unique<PromiseDelegateT<T>>(std::move(completion));
    }

    boost::future<void> enqueueBound(std::shared_ptr<CmdRequest> request,
                                     std::unique_ptr<PromiseDelegate> delegate, RunOptions runOptions,
                                     const IDType& id, std::shared_ptr<void> context);

    /// Moves out of a submission that has passed the checks, or throws without having done so: then the
    /// exception leaves to the caller, and the completion never runs.
    virtual void enqueueImpl(Submission& submission) = 0;
};

}  // namespace cmddistributor
