#include "engine/detail/CommandStack.hpp"

#include "engine/detail/EngineSignalNumbers.hpp"

#include <algorithm>
#include <utility>

namespace yvm::engine {

void CommandStack::arm() {
    const std::lock_guard lock(mutex_);
    thread_ = pthread_self();
    repeater_.emplace(preemptionSignal());
    armed_ = true;
}

void CommandStack::disarm() {
    const std::lock_guard lock(mutex_);
    armed_ = false;
    repeater_.reset();
}

std::size_t CommandStack::preemptionDepth() const {
    return static_cast<std::size_t>(std::count_if(
        commands_.begin(), commands_.end(), [](const auto& command) { return command->isOfPreemption(); }));
}

void CommandStack::beginTaking() {
    const std::lock_guard lock(mutex_);
    taking_ = true;
}

void CommandStack::endTaking(const std::shared_ptr<Command>& taken) {
    const std::lock_guard lock(mutex_);
    taking_ = false;
    if (taken != nullptr) {
        if (std::find(earlyInterrupts_.begin(), earlyInterrupts_.end(), taken->id()) !=
            earlyInterrupts_.end()) {
            taken->requestInterrupt();
        }
        commands_.push_back(taken);
    }
    earlyInterrupts_.clear();
}

void CommandStack::pop() {
    const std::lock_guard lock(mutex_);
    commands_.pop_back();
    // Their signals came while the command above it ran.
    if (isInterruptRequested()) {
        sendLocked(interruptSignal());
    }
    if (!isEmpty() && innermost().isBreakRequested()) {
        preemptionRequested_ = true;
        sendLocked(preemptionSignal());
    }
}

void CommandStack::returnInterrupt() {
    const std::lock_guard lock(mutex_);
    innermost().returnInterrupt();
    if (armed_) {
        repeater_->start();
    }
}

void CommandStack::endPreemption() {
    const std::lock_guard lock(mutex_);
    preemptionRequested_ = false;
    stopRepeatingLocked();
}

void CommandStack::interruptAll() {
    const std::lock_guard lock(mutex_);
    for (const auto& command : commands_) {
        interruptLocked(*command);
    }
}

bool CommandStack::interruptPrompt() {
    const std::lock_guard lock(mutex_);
    auto* const command = interactiveLocked();
    if (command == nullptr) {
        return false;
    }
    interruptLocked(*command);
    return true;
}

void CommandStack::interrupt(const IDType& id) {
    const std::lock_guard lock(mutex_);
    const auto command = std::find_if(commands_.begin(), commands_.end(),
                                      [&id](const auto& candidate) { return candidate->id() == id; });
    if (command != commands_.end()) {
        interruptLocked(**command);
    } else if (taking_) {
        earlyInterrupts_.push_back(id);
    }
    // Otherwise it has ended by itself in the meantime.
}

bool CommandStack::requestBreak() {
    const std::lock_guard lock(mutex_);
    auto* const command = interactiveLocked();
    if (command == nullptr || command->isStopped()) {
        return false;
    }
    command->requestBreak();
    return true;
}

void CommandStack::requestPreemption(Sending sending) {
    const std::lock_guard lock(mutex_);
    // One signal runs all commands that are due.
    if (std::exchange(preemptionRequested_, true)) {
        return;
    }
    if (sending == Sending::AtOnce) {
        sendLocked(preemptionSignal());
    } else if (armed_) {
        repeater_->start();
    }
}

std::shared_ptr<Command> CommandStack::commandOfPrompt() const {
    const std::lock_guard lock(mutex_);
    const auto command = std::find_if(commands_.rbegin(), commands_.rend(),
                                      [](const auto& candidate) { return candidate->isOfPrompt(); });
    return command != commands_.rend() ? *command : nullptr;
}

Command* CommandStack::interactiveLocked() const {
    const auto command = std::find_if(commands_.rbegin(), commands_.rend(), [](const auto& candidate) {
        return candidate->isOfPrompt() || candidate->isStopped();
    });
    return command != commands_.rend() ? command->get() : nullptr;
}

void CommandStack::interruptLocked(Command& command) {
    // Who asked before has sent the signal, and it is repeated; a second would only fill the kernel's queue.
    if (command.requestInterrupt()) {
        sendLocked(interruptSignal());
    }
}

void CommandStack::sendLocked(int signalNumber) {
    if (armed_) {
        pthread_kill(thread_, signalNumber);
        repeater_->start();
    }
}

void CommandStack::stopRepeatingLocked() {
    const bool isAwaited =
        preemptionRequested_ || isInterruptRequested() || (!isEmpty() && innermost().isBreakRequested());
    if (!isAwaited && armed_) {
        repeater_->stop();
    }
}

}  // namespace yvm::engine
