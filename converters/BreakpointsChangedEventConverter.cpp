#include "converters/BreakpointsChangedEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "fl/i18n/ustring.hpp"
#include "yvm/BreakpointsChangedEvent.hpp"

#include <utility>
#include <variant>

namespace converters {

namespace {

using foundation::json::Object;
using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;

const char* textOf(GlobalBreakpoint::Condition condition) {
    using Condition = GlobalBreakpoint::Condition;
    switch (condition) {
        case Condition::Error:
            return "ERROR";
        case Condition::Warning:
            return "WARNING";
        case Condition::CaughtError:
            return "CAUGHT_ERROR";
        case Condition::NanInf:
            return "NAN_INF";
        case Condition::UnsuppressedOutput:
            return "UNSUPPRESSED_OUTPUT";
    }
    return "unknown";
}

Object toJson(const GlobalBreakpoint& breakpoint) {
    Object object{{"type", textOf(breakpoint.condition())}};
    if (const auto& messageId = breakpoint.messageId()) {
        object.emplace("messageId", *messageId);
    }
    return object;
}

Object toJson(const LineBreakpoint::Location& location) {
    if (const auto& localFunction = location.localFunction()) {
        return {{"localFunction", *localFunction}};
    }
    Object object{{"lineNumber", location.lineNumber()}};
    if (const auto index = location.anonymousIndex()) {
        object.emplace("anonymousIndex", *index);
    }
    return object;
}

Object toJson(const LineBreakpoint& breakpoint) {
    Object object{{"fileName", fl::i18n::to_string(breakpoint.fileName())}};
    if (const auto& location = breakpoint.location()) {
        object.emplace("location", toJson(*location));
    }
    if (const auto& expression = breakpoint.expression()) {
        object.emplace("expression", fl::i18n::to_string(*expression));
    }
    return object;
}

}  // namespace

std::map<std::string, foundation::json::Value> BreakpointsChangedEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& entries = eventAs<yvm::BreakpointsChangedEvent>(event).breakpoints();
    foundation::json::Array breakpoints;
    breakpoints.reserve(entries.size());
    for (const auto& entry : entries) {
        Object object =
            std::visit([](const auto& breakpoint) { return toJson(breakpoint); }, entry.breakpoint);
        if (entry.lineNumber) {
            object.emplace("lineNumber", *entry.lineNumber);
        }
        breakpoints.emplace_back(std::move(object));
    }
    return {{"breakpoints", std::move(breakpoints)}};
}

}  // namespace converters
