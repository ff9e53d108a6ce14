#include "testing/FakeEngine.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "testing/FakeYvm.hpp"
#include "yvm/Factory.hpp"

#include <optional>
#include <stdexcept>
#include <utility>

namespace platform_testing {

using cmddistributor::RuntimeException;
using cmddistributor::TakenCommand;
using foundation::msg_svc::eventmgr::DeliveryMode;
using foundation::msg_svc::eventmgr::EventHandler;

std::shared_ptr<FakeEngine> FakeEngine::create() {
    const std::shared_ptr<FakeEngine> engine(new FakeEngine);
    yvm::Factory::setCurrentLocalYVM(engine);
    return engine;
}

FakeEngine::FakeEngine()
    : identifier_(FakeYvm::nextIdentifier()),
      eventMgr_(foundation::msg_svc::eventmgr::EventMgr::create()),
      queue_(CommandQueue::create(*this)) {
    eventMgr_->setCommandHandlerLookup(
        [this](const IDType& id, const std::u16string& eventName) { return findCallback(id, eventName); });
    thread_ = std::thread([this] { run(); });
    threadId_ = thread_.get_id();
}

FakeEngine::~FakeEngine() {
    stop();
    // The manager may live on with somebody else.
    eventMgr_->setCommandHandlerLookup({});
}

void FakeEngine::onEval(std::u16string command, Script script) {
    const std::lock_guard lock(mutex_);
    evalScripts_[std::move(command)] = std::move(script);
}

void FakeEngine::onFeval(std::string function, Script script) {
    const std::lock_guard lock(mutex_);
    fevalScripts_[std::move(function)] = std::move(script);
}

std::u16string FakeEngine::consoleText() const {
    const std::lock_guard lock(mutex_);
    return consoleText_;
}

void FakeEngine::stop() {
    if (std::this_thread::get_id() == threadId_) {
        throw std::logic_error("the engine cannot be stopped from its own thread.");
    }
    if (yvm::Factory::getCurrentLocalYVM().get() == this) {
        yvm::Factory::setCurrentLocalYVM(nullptr);
    }
    stopped_ = true;
    queue_->close();
    queue_->wakeUp();
    const std::lock_guard lock(joinMutex_);
    if (thread_.joinable()) {
        thread_.join();
    }
}

boost::shared_ptr<cmddistributor::CmdDistributor> FakeEngine::getCmdDistributor() {
    if (stopped_) {
        return {};
    }
    return queue_;
}

void FakeEngine::replaceSinks(Sink outSink, Sink errSink) {
    const std::lock_guard lock(mutex_);
    outSink_.swap(outSink);
    errSink_.swap(errSink);
}

foundation::core::util::scope_guard FakeEngine::makeSinkRestorer(std::shared_ptr<yvm::YVM> self) {
    const std::lock_guard lock(mutex_);
    return foundation::core::util::scope_guard(
        [self = std::move(self), out = outSink_, err = errSink_] { self->replaceSinks(out, err); });
}

void FakeEngine::interrupt() {
    IDType target = IDType::null();
    {
        const std::lock_guard lock(mutex_);
        target = promptCommand_;
    }
    if (!target.isNull()) {
        interrupt(target);
    }
}

void FakeEngine::interrupt(const IDType& id) {
    {
        // One that comes after the command's end stops nobody, as identities are not used again.
        const std::lock_guard lock(mutex_);
        interruptTargets_.insert(id);
    }
    queue_->wakeUp();
}

void FakeEngine::run() {
    serve(Moment::Boot);
    while (!stopped_) {
        queue_->waitFor(Moment::TopPrompt);
        serve(Moment::TopPrompt);
    }
}

void FakeEngine::serve(Moment moment) {
    while (const auto taken = queue_->take(moment)) {
        if (moment == Moment::TopPrompt) {
            const std::lock_guard lock(mutex_);
            promptCommand_ = taken->id;
        }
        runCommand(*taken);
    }
}

void FakeEngine::runCommand(const TakenCommand& taken) {
    Arrays outputs;
    std::optional<RuntimeException> error;
    bool wasInterrupted = false;
    {
        const cmddistributor::RequestIdScope scope(taken.id);
        Command command(*this, taken);
        try {
            outputs = findScript(*taken.request->getIIP())(command);
        } catch (const Command::Interrupted&) {
            wasInterrupted = true;
            error.emplace(RuntimeException::Status::Cancelled, std::string("The command was interrupted."),
                          interruptedIdentifier);
        } catch (const RuntimeException& failure) {
            error = failure;
        } catch (const std::exception& failure) {
            error.emplace(RuntimeException::Status::CommandFailed, std::string(failure.what()));
        }
        command.synchroniseStreams();
    }
    {
        const std::lock_guard lock(mutex_);
        interruptTargets_.erase(taken.id);
        if (promptCommand_ == taken.id) {
            promptCommand_ = IDType::null();
        }
    }
    if (error) {
        queue_->fail(taken.id, *error, wasInterrupted);
    } else {
        queue_->finish(taken.id, cmddistributor::FEvalResult(std::move(outputs)));
    }
}

FakeEngine::Script FakeEngine::findScript(const cmddistributor::IIP& iip) const {
    const std::lock_guard lock(mutex_);
    if (const auto* eval = std::get_if<cmddistributor::EvalIIP>(&iip)) {
        if (const auto found = evalScripts_.find(eval->command); found != evalScripts_.end()) {
            return found->second;
        }
    } else {
        const auto found = fevalScripts_.find(std::get<cmddistributor::FEvalIIP>(iip).function);
        if (found != fevalScripts_.end()) {
            return found->second;
        }
    }
    throw RuntimeException(RuntimeException::Status::CommandFailed,
                           std::string("The fake engine has no script for this command."),
                           unscriptedIdentifier);
}

bool FakeEngine::isInterrupted(const IDType& id) const {
    const std::lock_guard lock(mutex_);
    return stopped_ || interruptTargets_.contains(id);
}

EventHandler FakeEngine::findCallback(const IDType& id, const std::u16string& eventName) const {
    const auto options = queue_->findRunOptions(id);
    if (!options) {
        return {};
    }
    const auto found = options->getCallbacks().find(eventName);
    return found == options->getCallbacks().end() ? EventHandler() : found->second;
}

const FakeEngine::Arrays& FakeEngine::Command::arguments() const {
    return std::get<cmddistributor::FEvalIIP>(*taken_.request->getIIP()).arguments;
}

std::uint64_t FakeEngine::Command::numOutputs() const {
    return std::get<cmddistributor::FEvalIIP>(*taken_.request->getIIP()).numOutputs;
}

void FakeEngine::Command::fire(const std::shared_ptr<const foundation::msg_svc::eventmgr::BaseEvent>& event) {
    engine_.eventMgr_->deliver(event, DeliveryMode::synchronous);
}

void FakeEngine::Command::preemptionPoint() {
    if (engine_.preemptionRequested_.exchange(false)) {
        engine_.serve(Moment::PreemptionPoint);
    }
    stopIfInterrupted();
}

void FakeEngine::Command::pauseUntil(const std::function<bool()>& done) {
    for (;;) {
        stopIfInterrupted();
        if (done()) {
            return;
        }
        engine_.queue_->waitFor(Moment::Pause);
        engine_.serve(Moment::Pause);
    }
}

FakeEngine::Sink FakeEngine::Command::outSink() const {
    if (const auto& own = taken_.request->getOutSink()) {
        return own;
    }
    const std::lock_guard lock(engine_.mutex_);
    return engine_.outSink_;
}

FakeEngine::Sink FakeEngine::Command::errSink() const {
    if (const auto& own = taken_.request->getErrSink()) {
        return own;
    }
    const std::lock_guard lock(engine_.mutex_);
    return engine_.errSink_;
}

void FakeEngine::Command::write(const Sink& sink, std::u16string_view text) const {
    if (sink) {
        sink->buffer().sputn(text.data(), static_cast<std::streamsize>(text.size()));
        return;
    }
    const std::lock_guard lock(engine_.mutex_);
    engine_.consoleText_ += text;
}

void FakeEngine::Command::synchroniseStreams() const {
    for (const auto& sink : {outSink(), errSink()}) {
        if (sink) {
            sink->buffer().pubsync();
        }
    }
}

void FakeEngine::Command::stopIfInterrupted() const {
    if (engine_.isInterrupted(id())) {
        throw Interrupted();
    }
}

}  // namespace platform_testing
