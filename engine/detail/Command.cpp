#include "engine/detail/Command.hpp"

#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/Insistence.hpp"

#include <boost/shared_ptr.hpp>

#include <optional>
#include <sstream>
#include <utility>

namespace yvm::engine {

namespace {

/// The innermost scope of this thread.
thread_local const std::shared_ptr<Command>* currentCommand = nullptr;

const std::shared_ptr<Command> noCommand;

/// The sink that a command asked for: the one of its request, else that of its run options, else the
/// engine's.
std::shared_ptr<TextSink> chooseSink(const boost::shared_ptr<ylutil::io::YLSink>& ofRequest,
                                     const boost::shared_ptr<ylutil::io::YLSink>& ofRunOptions,
                                     const std::shared_ptr<TextSink>& otherwise) {
    const auto& own = ofRequest != nullptr ? ofRequest : ofRunOptions;
    return own != nullptr ? std::make_shared<TextSink>(own, TextSink::Destination::OwnStream) : otherwise;
}

}  // namespace

TextSink::Due OutputStreams::write(Stream stream, std::u16string_view text, TextSink::WithinLine withinLine) {
    if (text.empty()) {
        return TextSink::Due::Never;
    }
    if (ForkedChild::isThis()) {
        ForkedChild::write(stream, text);
        return TextSink::Due::Never;
    }
    const Stream before = last_.exchange(stream, std::memory_order_relaxed);
    if (before != stream) {
        sinkOf(before)->synchronise(TextSink::HeldSurrogate::Keep);
    }
    return sinkOf(stream)->write(text, withinLine);
}

void OutputStreams::flush(Stream stream) {
    if (!ForkedChild::isThis()) {
        sinkOf(stream)->synchronise(TextSink::HeldSurrogate::Keep);
    }
}

void OutputStreams::synchroniseAll(TextSink::HeldSurrogate held) const {
    if (ForkedChild::isThis()) {
        return;
    }
    const Stream last = last_.load(std::memory_order_relaxed);
    const Stream earlier = last == Stream::Error ? Stream::Output : Stream::Error;
    sinkOf(earlier)->synchronise(held);
    sinkOf(last)->synchronise(held);
}

Command::Command(cmddistributor::TakenCommand taken, cmddistributor::Moment moment,
                 const OutputStreams& defaults)
    : taken_(std::move(taken)),
      moment_(moment),
      output_(chooseSink(taken_.request->getOutSink(), taken_.runOptions.getOutSink(), defaults.out()),
              chooseSink(taken_.request->getErrSink(), taken_.runOptions.getErrSink(), defaults.err())) {}

Command::~Command() = default;

bool Command::isOfPrompt() const noexcept {
    using cmddistributor::Moment;
    return moment_ == Moment::Boot || moment_ == Moment::TopPrompt || moment_ == Moment::DebugPrompt;
}

bool Command::takeInterrupt(Clock::time_point now) noexcept {
    if (!interruptRequested_.exchange(false)) {
        return false;
    }
    mustNotSwallow_ =
        mustNotSwallow_ || (interruptsTaken_ >= 2 && now - lastButOneTaken_ <= insistenceWindow);
    ++interruptsTaken_;
    lastButOneTaken_ = std::exchange(lastTaken_, now);
    return true;
}

void Command::returnInterrupt() noexcept {
    --interruptsTaken_;
    interruptRequested_ = true;
}

void Command::insist(TraceFunction& tracing) {
    if (insistence_ == nullptr) {
        insistence_ = std::make_unique<Insistence>(tracing, *this);
    }
}

void Command::setInterruptible(bool interruptible) noexcept {
    insistence_.reset();
    interruptible_ = interruptible;
}

std::string toText(const Command::IDType& id) {
    std::ostringstream text;
    text << id;
    return text.str();
}

CommandScope::CommandScope(std::shared_ptr<Command> command)
    : command_(std::move(command)),
      requestId_(command_->id()),
      outer_(std::exchange(currentCommand, &command_)) {}

CommandScope::~CommandScope() {
    currentCommand = outer_;
}

const std::shared_ptr<Command>& CommandScope::current() noexcept {
    return currentCommand != nullptr ? *currentCommand : noCommand;
}

bool CommandScope::allows(std::string_view capability) {
    const auto& command = current();
    return command == nullptr || command->runOptions().getCapabilities().allows(capability);
}

std::shared_ptr<Command> CommandTable::create(cmddistributor::TakenCommand taken,
                                              cmddistributor::Moment moment, const OutputStreams& defaults) {
    const auto forget = [table = shared_from_this()](Command* command) {
        if (ForkedChild::isThis()) {
            return;  // Its streams are the server's.
        }
        {
            const std::lock_guard lock(table->mutex_);
            table->commands_.erase(command->id());
        }
        // Held last by an object of Python when a thread outlived the command, it dies under the GIL. Its
        // streams and callbacks may wait for whoever needs that.
        std::optional<WithoutGil> released;
        if (PyGILState_Check() != 0) {
            released.emplace();
        }
        delete command;
    };
    std::shared_ptr<Command> command(new Command(std::move(taken), moment, defaults), forget);
    const std::lock_guard lock(mutex_);
    commands_[command->id()] = command;
    return command;
}

std::shared_ptr<Command> CommandTable::find(const Command::IDType& id) const {
    const std::lock_guard lock(mutex_);
    const auto entry = commands_.find(id);
    return entry != commands_.end() ? entry->second.lock() : nullptr;
}

}  // namespace yvm::engine
