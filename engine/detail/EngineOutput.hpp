#pragma once

#include "engine/detail/Command.hpp"
#include "engine/detail/ConsoleBuffer.hpp"
#include "engine/detail/DescriptorCapture.hpp"
#include "engine/detail/GatedWriters.hpp"
#include "engine/detail/PendingText.hpp"
#include "yvm/YVM.hpp"

#include <pybind11/pybind11.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace yvm::engine {

class EngineEvents;

/// What the engine's thread does for those who write.
class OutputHost {
  public:
    virtual ~OutputHost() = default;

    /// Whether the calling thread is the engine's. Any thread.
    virtual bool isEngineThread() const noexcept = 0;
    /// Lets the engine's thread look again at what it waits for. Any thread; does not block.
    virtual void wake() = 0;
    /// Engine thread, without the GIL: waits until the command that runs may write, and runs others
    /// meanwhile. False when an interrupt broke the wait off.
    virtual bool waitUntilMayWrite(OutputGate::Way way, const OutputGate::IDType& command) = 0;
    /// The innermost command that a prompt took, or null. Any thread.
    virtual std::shared_ptr<Command> commandOfPrompt() const = 0;
    /// Engine thread, with the GIL held: raises the interrupt of the running command if one is due, as
    /// `pybind11::error_already_set`.
    virtual void raiseInterruptOfWriter() = 0;
    /// Any thread.
    virtual EngineEvents& events() noexcept = 0;
};

/// All text on its way out of the engine: finds its streams, holds it back while its readers are behind, and
/// has it synchronised in time.
///
/// The text of a command goes to the streams that it has of its own, else to the client-wide sinks, which are
/// at first the console.
///
/// Safe from any thread.
class EngineOutput {
  public:
    using Stream = OutputStreams::Stream;
    using Way = OutputGate::Way;

    /// A longer text is written in pieces, and the gate asked before each. In 16-bit units.
    static constexpr std::size_t pieceSize = std::size_t{64} << 10U;

    EngineOutput(OutputHost& host, const ConsoleBuffer::Console& console, std::shared_ptr<OutputGate> gate);

    /// Where text goes that no command's own stream takes.
    const OutputStreams& defaults() const noexcept { return defaults_; }
    void replaceSinks(YVM::Sink out, YVM::Sink err);
    /// Brings out the text that no command's own stream takes. Without the GIL.
    void synchroniseDefaults() { defaults_.synchroniseAll(); }

    /// Text that the engine shows by itself, and holds nobody back for. Without the GIL.
    void writeToDefaults(Stream stream, std::u16string_view text);

    /// Brings out what the calling thread has written, and what has come by descriptors. Without the GIL.
    void synchroniseBeforeEvent();

    /// Those that the calling thread writes to.
    OutputStreams& ofThisThread() noexcept;

    /// The text of a Python string, written by the calling thread for the command that it works for. With the
    /// GIL held, which is given up meanwhile. Throws Python's exception when `text` is no `str`, and the
    /// interrupt that ended a wait for the gate: what stood before the wait has been written then, and one
    /// piece more.
    void write(Stream stream, pybind11::handle text);
    void flush(Stream stream);

    /// Calls `tell`, which brings something else than text to those who read this thread's command, and holds
    /// it back as text of that command is. Without the GIL. Throws the interrupt that ended a wait, behind
    /// the call.
    void writeOtherwise(const std::function<void()>& tell);

    /// From now on, until `releaseDescriptors`, what is written to the descriptors 1 and 2 of the process is
    /// text of the engine. Throws `std::system_error`.
    void captureDescriptors();
    void releaseDescriptors();
    /// Brings what was written there to the streams of the command that a prompt runs, which is to end.
    /// Without the GIL.
    void drainDescriptors();

    PendingText& pending() noexcept { return pending_; }
    GatedWriters& gate() noexcept { return gate_; }

  private:
    /// On the capture's thread, or that of whoever drains. Text of descriptors waits for no reader: who wrote
    /// it could not be held back.
    void receive(Stream stream, std::u16string_view text);
    /// Whether the text has been taken without a wait, as most of a flood is: giving the GIL up would cost
    /// more than the text.
    bool gather(Stream stream, pybind11::handle text);
    /// Without the GIL. Throws Python's exception.
    TextSink::Due writePiece(Stream stream, std::u16string_view piece);
    /// False when an interrupt broke the wait off.
    bool waitForGate(Way way, const OutputGate::IDType& id, OutputStreams& output);
    /// Has the text of the engine's thread synchronised before its next bytecode.
    void synchroniseSoon();

    OutputHost& host_;
    const YVM::Sink consoleOut_;
    const YVM::Sink consoleErr_;
    SinkTexts sinkTexts_;
    OutputStreams defaults_;
    /// Constant between start and end of the engine.
    std::unique_ptr<DescriptorCapture> capture_;
    PendingText pending_;
    GatedWriters gate_;
    /// Of the engine thread, with the GIL held.
    bool isSoonAsked_ = false;
};

}  // namespace yvm::engine
