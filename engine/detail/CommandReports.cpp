#include "engine/detail/CommandReports.hpp"

#include "fl/i18n/ustring.hpp"
#include "ylutil/io/PrintableErrorEvent.hpp"

#include <string_view>
#include <utility>
#include <variant>

namespace yvm::engine {

namespace {

std::u16string withPrompts(std::u16string_view source) {
    const std::size_t end = source.find_last_not_of(u"\r\n");
    source = source.substr(0, end == std::u16string_view::npos ? 0 : end + 1);
    std::u16string result = u">>> ";
    for (const char16_t unit : source) {
        result += unit;
        if (unit == u'\n') {
            result += u"... ";
        }
    }
    return result + u'\n';
}

}  // namespace

void echo(Command& command) {
    const auto* eval = std::get_if<cmddistributor::EvalIIP>(&*command.request().getIIP());
    if (eval == nullptr) {
        return;
    }
    for (const auto stream : {OutputStreams::Stream::Output, OutputStreams::Stream::Error}) {
        if (command.output().traits(stream).useEcho()) {
            command.output().write(stream, withPrompts(eval->command));
        }
    }
}

void showStop(Command& command, const std::vector<cmddistributor::StackFrame>& frames,
              const std::u16string& message) {
    if (!command.runOptions().getSuppressDebugControlOutput() && !frames.empty()) {
        const auto& place = frames.back();
        std::string text = "> " + place.fileName + "(" + std::to_string(place.lineNumber) + ")" +
                           place.functionName + "()\n";
        if (!place.sourceLine.empty()) {
            text += "-> " + place.sourceLine + "\n";
        }
        std::u16string shown = fl::i18n::to_ustring(text);
        if (!message.empty()) {
            shown += message + u"\n";
        }
        command.output().write(OutputStreams::Stream::Output, shown);
    }
    command.output().synchroniseAll();
}

void fireFailure(EngineEvents& events, const Outcome& outcome) {
    using ylutil::io::PrintableErrorEvent;
    const auto* error = std::get_if<cmddistributor::RuntimeException>(&outcome.value);
    if (error == nullptr || outcome.stoppedByInterrupt || !events.isWanted<PrintableErrorEvent>()) {
        return;
    }
    std::vector<PrintableErrorEvent::Frame> stack;
    for (const auto& frame : error->getStackFrames()) {
        stack.push_back({frame.fileName, frame.functionName, frame.lineNumber, frame.sourceLine});
    }
    events.fire<PrintableErrorEvent>(error->GetID(), error->GetUnicodeMessageTxt(), std::move(stack));
}

}  // namespace yvm::engine
