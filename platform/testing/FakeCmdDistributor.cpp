#include "testing/FakeCmdDistributor.hpp"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace platform_testing {

using cmddistributor::FEvalResult;
using cmddistributor::PromiseDelegate;
using cmddistributor::RuntimeException;

const cmddistributor::EvalIIP& FakeCmdDistributor::Command::eval() const {
    return std::get<cmddistributor::EvalIIP>(*request->getIIP());
}

const cmddistributor::FEvalIIP& FakeCmdDistributor::Command::feval() const {
    return std::get<cmddistributor::FEvalIIP>(*request->getIIP());
}

boost::shared_ptr<FakeCmdDistributor> FakeCmdDistributor::create() {
    return boost::make_shared<FakeCmdDistributor>();
}

FakeCmdDistributor::FakeCmdDistributor() {
    answerCancels(UNABLE_TO_CANCEL_OTHER);
}

FakeCmdDistributor::~FakeCmdDistributor() = default;

std::vector<FakeCmdDistributor::Command> FakeCmdDistributor::commands() const {
    const std::lock_guard lock(mutex_);
    return commands_;
}

FakeCmdDistributor::Command FakeCmdDistributor::lastCommand() const {
    const std::lock_guard lock(mutex_);
    return commands_.empty() ? throw std::out_of_range("no command was submitted.") : commands_.back();
}

bool FakeCmdDistributor::waitForCommands(std::size_t count) const {
    std::unique_lock lock(mutex_);
    return submitted_.wait_for(lock, std::chrono::seconds(60), [&] { return commands_.size() >= count; });
}

bool FakeCmdDistributor::isUnsettled(const IDType& id) const {
    const std::lock_guard lock(mutex_);
    return std::ranges::find(unsettled_, id, &Unsettled::id) != unsettled_.end();
}

std::unique_ptr<PromiseDelegate> FakeCmdDistributor::takeDelegate(const IDType& id) {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find(unsettled_, id, &Unsettled::id);
    if (found == unsettled_.end()) {
        std::ostringstream text;
        text << "no command with the identity " << id << " waits to be settled.";
        throw std::out_of_range(text.str());
    }
    auto delegate = std::move(found->delegate);
    unsettled_.erase(found);
    return delegate;
}

void FakeCmdDistributor::succeed(const IDType& id, std::vector<foundation::yorlabdata::Array> outputs) {
    takeDelegate(id)->succeed(FEvalResult(std::move(outputs)));
}

void FakeCmdDistributor::fail(const IDType& id, const RuntimeException& error) {
    takeDelegate(id)->fail(error);
}

void FakeCmdDistributor::fail(const IDType& id, std::exception_ptr error) {
    takeDelegate(id)->fail(std::move(error));
}

void FakeCmdDistributor::succeedAtOnce() {
    const std::lock_guard lock(mutex_);
    succeedsAtOnce_ = true;
}

void FakeCmdDistributor::failSubmissions(std::exception_ptr error) {
    const std::lock_guard lock(mutex_);
    submissionError_ = std::move(error);
}

void FakeCmdDistributor::enqueueImpl(Submission& submission) {
    {
        const std::lock_guard lock(mutex_);
        if (submissionError_) {
            std::rethrow_exception(submissionError_);
        }
        if (!succeedsAtOnce_) {
            commands_.push_back({submission.id, std::move(submission.request),
                                 std::move(submission.runOptions), std::move(submission.context)});
            unsettled_.push_back({submission.id, std::move(submission.delegate)});
            submitted_.notify_all();
            return;
        }
    }
    submission.delegate->succeed({});
}

boost::shared_future<FakeCmdDistributor::CancelStatus> FakeCmdDistributor::cancel(const IDType& id,
                                                                                  bool interrupt) {
    const std::lock_guard lock(mutex_);
    cancels_.push_back({id, interrupt});
    if (cancelError_) {
        std::rethrow_exception(cancelError_);
    }
    return cancelAnswer_;
}

void FakeCmdDistributor::cancelGroup(const std::string& groupName, bool interrupt) {
    const std::lock_guard lock(mutex_);
    groupCancels_.push_back({groupName, interrupt});
    if (cancelError_) {
        std::rethrow_exception(cancelError_);
    }
}

std::vector<FakeCmdDistributor::Cancel> FakeCmdDistributor::cancels() const {
    const std::lock_guard lock(mutex_);
    return cancels_;
}

std::vector<FakeCmdDistributor::GroupCancel> FakeCmdDistributor::groupCancels() const {
    const std::lock_guard lock(mutex_);
    return groupCancels_;
}

void FakeCmdDistributor::answerCancels(CancelStatus status) {
    // Of a promise, as the real ones are.
    boost::promise<CancelStatus> promise;
    promise.set_value(status);
    answerCancels(promise.get_future().share());
}

void FakeCmdDistributor::answerCancels(boost::shared_future<CancelStatus> answer) {
    const std::lock_guard lock(mutex_);
    cancelAnswer_ = std::move(answer);
    cancelError_ = nullptr;
}

void FakeCmdDistributor::failCancels(std::exception_ptr error) {
    const std::lock_guard lock(mutex_);
    cancelError_ = std::move(error);
}

}  // namespace platform_testing
