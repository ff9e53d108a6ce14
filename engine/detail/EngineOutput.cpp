#include "engine/detail/EngineOutput.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "engine/detail/ForkedChild.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/PythonText.hpp"

#include <boost/make_shared.hpp>

#include <utility>

namespace yvm::engine {

namespace py = pybind11;
using Destination = TextSink::Destination;

namespace {

YVM::Sink makeConsoleSink(const ConsoleBuffer::Console& console, bool error) {
    return boost::make_shared<ylutil::io::YLSink>(boost::make_shared<ConsoleBuffer>(console, error),
                                                  ylutil::io::SinkTraits());
}

std::shared_ptr<TextSink> makeDefault(const YVM::Sink& console, SinkTexts& texts, SinkTexts::Stream stream) {
    return std::make_shared<TextSink>(console, Destination::Console, &texts, stream);
}

/// Empty for the console, whose reader nobody waits for.
std::optional<OutputGate::Way> wayTo(Destination destination) {
    switch (destination) {
        case Destination::OwnStream:
            return OutputGate::Way::OwnStreams;
        case Destination::ClientWideSinks:
            return OutputGate::Way::ClientWideSinks;
        case Destination::Console:
            break;
    }
    return std::nullopt;
}

OutputGate::IDType idOfThisThread() {
    return cmddistributor::RequestIdAdapter().getRequestId();
}

}  // namespace

EngineOutput::EngineOutput(OutputHost& host, const ConsoleBuffer::Console& console,
                           std::shared_ptr<OutputGate> gate)
    : host_(host),
      consoleOut_(makeConsoleSink(console, false)),
      consoleErr_(makeConsoleSink(console, true)),
      sinkTexts_(host),
      defaults_(makeDefault(consoleOut_, sinkTexts_, Stream::Output),
                makeDefault(consoleErr_, sinkTexts_, Stream::Error)),
      gate_(std::move(gate), [&host] { host.wake(); }) {}

void EngineOutput::replaceSinks(YVM::Sink out, YVM::Sink err) {
    const auto destinationOf = [this](const YVM::Sink& sink) {
        return sink == consoleOut_ || sink == consoleErr_ ? Destination::Console
                                                          : Destination::ClientWideSinks;
    };
    const auto outDestination = destinationOf(out);
    const auto errDestination = destinationOf(err);
    defaults_.out()->replaceSink(std::move(out), outDestination);
    defaults_.err()->replaceSink(std::move(err), errDestination);
    gate_.sinksReplaced();
    if (sinkTexts_.areDue() && pending_.add(defaults_.out(), idOfThisThread())) {
        host_.wake();
    }
}

void EngineOutput::write(Stream stream, py::handle text) {
    if (gather(stream, text)) {
        return;
    }
    const PythonTextPieces pieces(text, pieceSize);
    TextSink::Due due = TextSink::Due::Never;
    {
        const WithoutGil released;
        pieces.forEach([&](std::u16string_view piece) { due = writePiece(stream, piece); });
    }
    if (due == TextSink::Due::AtOnce) {
        synchroniseSoon();
    }
}

void EngineOutput::captureDescriptors() {
    capture_ = std::make_unique<DescriptorCapture>(
        [this](Stream stream, std::u16string_view text) { receive(stream, text); });
}

void EngineOutput::releaseDescriptors() {
    if (capture_ != nullptr) {
        capture_->stop();
    }
}

void EngineOutput::drainDescriptors() {
    if (capture_ != nullptr && !ForkedChild::isThis()) {
        capture_->drainToTheEnd();
    }
}

void EngineOutput::synchroniseBeforeEvent() {
    if (capture_ != nullptr) {
        capture_->drain();
    }
    ofThisThread().synchroniseAll(TextSink::HeldSurrogate::Keep);
}

void EngineOutput::receive(Stream stream, std::u16string_view text) {
    const auto command = host_.commandOfPrompt();
    std::optional<CommandScope> scope;
    if (command != nullptr) {
        scope.emplace(command);
    }
    OutputStreams& output = command != nullptr ? command->output() : defaults_;
    if (text.empty()) {
        output.flush(stream);
        return;
    }
    output.write(stream, text);
    if (const auto way = wayTo(output.sinkOf(stream)->destination())) {
        gate_.hasWritten(*way, idOfThisThread(), text.size());
    }
}

void EngineOutput::writeToDefaults(Stream stream, std::u16string_view text) {
    if (defaults_.write(stream, text) != TextSink::Due::Never &&
        pending_.add(defaults_.sinkOf(stream), idOfThisThread()) && !host_.isEngineThread()) {
        host_.wake();
    }
}

void EngineOutput::flush(Stream stream) {
    const WithoutGil released;
    ofThisThread().flush(stream);
}

OutputStreams& EngineOutput::ofThisThread() noexcept {
    const auto& command = CommandScope::current();
    return command != nullptr ? command->output() : defaults_;
}

bool EngineOutput::gather(Stream stream, py::handle text) {
    const auto latin1 = asLatin1(text);
    if (!latin1 || ForkedChild::isThis()) {
        return false;
    }
    OutputStreams& output = ofThisThread();
    const auto way = wayTo(output.sinkOf(stream)->destination());
    const auto id = idOfThisThread();
    if ((way && !gate_.mayWrite(*way, id)) || !output.gather(stream, *latin1)) {
        return false;
    }
    if (way) {
        gate_.hasWritten(*way, id, latin1->size());
    }
    return true;
}

TextSink::Due EngineOutput::writePiece(Stream stream, std::u16string_view piece) {
    OutputStreams& output = ofThisThread();
    if (ForkedChild::isThis()) {
        return output.write(stream, piece);
    }
    const auto& sink = output.sinkOf(stream);
    const auto id = idOfThisThread();
    const bool isEngineThread = host_.isEngineThread();
    const auto way = wayTo(sink->destination());
    const bool waited = !way || waitForGate(*way, id, output);
    const auto due = output.write(
        stream, piece, isEngineThread ? TextSink::WithinLine::LeavesByCaller : TextSink::WithinLine::Leaves);
    if (way) {
        gate_.hasWritten(*way, id, piece.size());
    }
    if (due != TextSink::Due::Never && pending_.add(sink, id) && !isEngineThread) {
        // It may be waiting for commands, where no signal reaches Python.
        host_.wake();
    }
    if (!waited) {
        const WithGil gil;
        host_.raiseInterruptOfWriter();
    }
    return due;
}

void EngineOutput::writeOtherwise(const std::function<void()>& tell) {
    const bool waited =
        ForkedChild::isThis() || waitForGate(Way::OwnStreams, idOfThisThread(), ofThisThread());
    tell();
    if (!waited) {
        const WithGil gil;
        host_.raiseInterruptOfWriter();
    }
}

bool EngineOutput::waitForGate(Way way, const OutputGate::IDType& id, OutputStreams& output) {
    if (gate_.mayWrite(way, id)) {
        return true;
    }
    // What is not published is not read either.
    output.flush(Stream::Output);
    output.flush(Stream::Error);
    if (host_.isEngineThread()) {
        return host_.waitUntilMayWrite(way, id);
    }
    gate_.waitUntilMayWrite(way, id);
    return true;
}

void EngineOutput::synchroniseSoon() {
    if (isSoonAsked_) {
        return;
    }
    const auto synchronise = [](void* self) {
        auto& output = *static_cast<EngineOutput*>(self);
        output.isSoonAsked_ = false;
        if (!ForkedChild::isThis()) {
            output.flush(Stream::Output);
            output.flush(Stream::Error);
        }
        return 0;
    };
    // Called by the interpreter at its next look at what is pending: after `print` has returned, so that a
    // line and its end leave as one. If there is no room, the text is synchronised in time all the same.
    isSoonAsked_ = Py_AddPendingCall(synchronise, this) == 0;
}

}  // namespace yvm::engine
