#include "converters/DebuggerStoppedEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "converters/stackFramesToJson.hpp"
#include "fl/i18n/ustring.hpp"
#include "yvm/DebuggerStoppedEvent.hpp"

namespace converters {

namespace {

using yvm::DebuggerStoppedEvent;

const char* textOf(DebuggerStoppedEvent::Reason reason) {
    using Reason = DebuggerStoppedEvent::Reason;
    switch (reason) {
        case Reason::Breakpoint:
            return "breakpoint";
        case Reason::Step:
            return "step";
        case Reason::Break:
            return "break";
        case Reason::Error:
            return "error";
        case Reason::Warning:
            return "warning";
        case Reason::CaughtError:
            return "caughtError";
        case Reason::NanInf:
            return "nanInf";
        case Reason::Output:
            return "output";
    }
    return "unknown";
}

}  // namespace

std::map<std::string, foundation::json::Value> DebuggerStoppedEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& stop = eventAs<DebuggerStoppedEvent>(event);
    const auto& frames = stop.frames();
    const auto place = frames.empty() ? DebuggerStoppedEvent::StackFrame() : frames.back();
    return {{"reason", textOf(stop.reason())},
            {"level", stop.level()},
            {"message", fl::i18n::to_string(stop.message())},
            {"fileName", place.fileName},
            {"lineNumber", place.lineNumber},
            {"stackFrames", stackFramesToJson(frames)}};
}

}  // namespace converters
