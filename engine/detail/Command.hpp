#pragma once

#include "cmddistributor/CommandQueue.hpp"
#include "cmddistributor/RequestIdAdapter.hpp"
#include "engine/detail/TextSink.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

/// Python's, whose headers stay out of this one.
using PyFrameObject = struct _frame;  // NOLINT(bugprone-reserved-identifier): its name there

namespace yvm::engine {

class Insistence;
class TraceFunction;

/// The two destinations of a piece of work's text.
///
/// Text of one stream leaves before later text of the other: the switch synchronises. Safe from any thread;
/// to be called without the GIL.
class OutputStreams {
  public:
    using Stream = ylutil::io::StreamTypeEnum;

    OutputStreams(std::shared_ptr<TextSink> out, std::shared_ptr<TextSink> err)
        : out_(std::move(out)), err_(std::move(err)) {}

    /// As TextSink's.
    TextSink::Due write(Stream stream, std::u16string_view text,
                        TextSink::WithinLine withinLine = TextSink::WithinLine::Leaves);
    /// As TextSink's; false also for a switch of streams.
    bool gather(Stream stream, std::basic_string_view<unsigned char> text) {
        return last_.load(std::memory_order_relaxed) == stream && sinkOf(stream)->gather(text);
    }
    void flush(Stream stream);
    /// Brings out everything; by default as nothing is to follow for now.
    void synchroniseAll(TextSink::HeldSurrogate held = TextSink::HeldSurrogate::Release) const;

    /// What the destination of that stream can do, and asks for.
    ylutil::io::SinkTraits traits(Stream stream) const { return sinkOf(stream)->traits(); }

    const std::shared_ptr<TextSink>& out() const noexcept { return out_; }
    const std::shared_ptr<TextSink>& err() const noexcept { return err_; }
    const std::shared_ptr<TextSink>& sinkOf(Stream stream) const noexcept {
        return stream == Stream::Error ? err_ : out_;
    }

  private:
    const std::shared_ptr<TextSink> out_;
    const std::shared_ptr<TextSink> err_;
    /// Relaxed: threads that write to both streams at once have no order to keep.
    std::atomic<Stream> last_{Stream::Output};
};

/// A command that the engine has taken: a frame of the stack of commands while it runs, and afterwards what
/// the threads that it started need to write its text. Held by the stack and by those threads.
class Command {
  public:
    using IDType = cmddistributor::CmdDistributor::IDType;
    using Clock = std::chrono::steady_clock;

    /// The third interrupt within this time insists. Long enough for a person who presses a button again and
    /// again; a command that is interrupted now and then, and means to catch it, is not meant.
    static constexpr std::chrono::seconds insistenceWindow{2};

    /// `defaults` take the text of a stream that the command has not of its own.
    Command(cmddistributor::TakenCommand taken, cmddistributor::Moment moment, const OutputStreams& defaults);
    ~Command();
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    const IDType& id() const noexcept { return taken_.id; }
    const cmddistributor::CmdRequest& request() const noexcept { return *taken_.request; }
    const cmddistributor::RunOptions& runOptions() const noexcept { return taken_.runOptions; }
    OutputStreams& output() noexcept { return output_; }

    /// Whether a prompt took it: such a command is what an interrupt without a target means.
    bool isOfPrompt() const noexcept;

    /// Whether a debug prompt took it.
    bool isOfDebugPrompt() const noexcept { return moment_ == cmddistributor::Moment::DebugPrompt; }

    /// Whether it runs at a pre-emption point of the command beneath it.
    bool isOfPreemption() const noexcept { return moment_ == cmddistributor::Moment::PreemptionPoint; }

    /// Asks the command to stop; false if it is asked already, and has not noticed. From any thread. A
    /// request after an earlier one was swallowed by the command counts again.
    bool requestInterrupt() noexcept { return !interruptRequested_.exchange(true); }
    /// Whether an interrupt is to be raised now; it counts as raised at `now`. Engine thread.
    bool takeInterrupt(Clock::time_point now = Clock::now()) noexcept;
    /// The last one that was taken has not reached the command, and is to be raised again. Engine thread.
    void returnInterrupt() noexcept;
    /// Whether one has been raised in it. Engine thread.
    bool wasInterrupted() const noexcept { return interruptsTaken_ > 0; }
    bool isInterruptRequested() const noexcept { return interruptRequested_; }
    /// Whether the interrupts were so many within the window that the command is not to swallow the last one.
    /// Engine thread.
    bool mustNotSwallow() const noexcept { return mustNotSwallow_; }
    /// From now on no code of the command handles the interrupt, until `setInterruptible`. Engine thread,
    /// with the GIL held.
    void insist(TraceFunction& tracing);

    /// Asks the command to stop in the debugger where it is. From any thread.
    void requestBreak() noexcept { breakRequested_ = true; }
    bool isBreakRequested() const noexcept { return breakRequested_; }
    /// Whether it is to stop now; it counts as stopped. Engine thread.
    bool takeBreak() noexcept { return breakRequested_.exchange(false); }

    /// Whether it is stopped in the debugger. Any thread.
    bool isStopped() const noexcept { return stops_ > 0; }
    /// One stop may stand on top of another. Engine thread.
    void beginStop() noexcept { ++stops_; }
    void endStop() noexcept { --stops_; }

    /// A stop of it was quit or interrupted: it is on its way out, and nobody waits for it to stop again.
    /// Engine thread.
    bool isLeavingStop() const noexcept { return isLeavingStop_; }
    void leaveStop() noexcept { isLeavingStop_ = true; }

    /// The innermost frame of Python that the command's own frames are called from, or null: only compared.
    /// Engine thread.
    const PyFrameObject* frameBeneath() const noexcept { return frameBeneath_; }
    void setFrameBeneath(const PyFrameObject* frame) noexcept { frameBeneath_ = frame; }

    /// Whether code of the user runs in it, and not code of the engine that an interrupt would damage.
    /// Engine thread.
    bool isInterruptible() const noexcept { return interruptible_; }
    /// With the GIL held.
    void setInterruptible(bool interruptible) noexcept;

  private:
    const cmddistributor::TakenCommand taken_;
    const cmddistributor::Moment moment_;
    OutputStreams output_;
    std::atomic<bool> interruptRequested_{false};
    std::atomic<bool> breakRequested_{false};
    std::atomic<int> stops_{0};
    // Of the engine thread.
    bool interruptible_ = false;
    bool isLeavingStop_ = false;
    std::size_t interruptsTaken_ = 0;
    Clock::time_point lastTaken_;
    Clock::time_point lastButOneTaken_;
    bool mustNotSwallow_ = false;
    std::unique_ptr<Insistence> insistence_;
    const PyFrameObject* frameBeneath_ = nullptr;
};

/// The identity as Python code and clients see it.
std::string toText(const Command::IDType& id);

/// Marks the calling thread as working for a command while the scope lasts: its text goes to that command's
/// streams, and its events carry that command's identity. Scopes nest.
class CommandScope {
  public:
    explicit CommandScope(std::shared_ptr<Command> command);
    ~CommandScope();
    CommandScope(const CommandScope&) = delete;
    CommandScope& operator=(const CommandScope&) = delete;

    /// The command that the calling thread works for, null on a thread that works for none.
    static const std::shared_ptr<Command>& current() noexcept;
    /// Whether the options of that command give it the capability. Without a command all are there.
    static bool allows(std::string_view capability);

  private:
    const std::shared_ptr<Command> command_;
    const cmddistributor::RequestIdScope requestId_;
    const std::shared_ptr<Command>* outer_;
};

/// Finds the commands that run, or of which a thread lives on, by their identity. Safe from any thread.
class CommandTable : public std::enable_shared_from_this<CommandTable> {
  public:
    std::shared_ptr<Command> create(cmddistributor::TakenCommand taken, cmddistributor::Moment moment,
                                    const OutputStreams& defaults);

    /// Null when there is none.
    std::shared_ptr<Command> find(const Command::IDType& id) const;

  private:
    mutable std::mutex mutex_;
    // Guarded by mutex_. The deleter of a command takes its entry out.
    std::map<Command::IDType, std::weak_ptr<Command>> commands_;
};

}  // namespace yvm::engine
