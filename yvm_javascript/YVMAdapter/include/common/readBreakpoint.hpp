#pragma once

#include "YorWorks/lxe/GlobalBreakpoint.hpp"
#include "YorWorks/lxe/LineBreakpoint.hpp"
#include "common/JsonObject.hpp"

#include <span>
#include <string_view>

namespace yvm::JSClient {

/// What a client calls a condition.
struct ConditionName {
    std::string_view text;
    YorWorks::lxe::GlobalBreakpoint::Condition condition;
};

/// Reads the breakpoint of a request: `{"type":"ERROR","messageId":"ValueError"}`, of which `messageId` may
/// be left out. `names` are those that the client's protocol version knows.
///
/// Throws `std::runtime_error` "Unknown GlobalBreakpoint type" for a name that is not among them, and the
/// conversion error of `Value::as` for a member of the wrong type and a missing `type`.
YorWorks::lxe::GlobalBreakpoint readGlobalBreakpoint(const JsonObject& object,
                                                     std::span<const ConditionName> names);

/// Reads the breakpoint of a request:
/// `{"fileName":"a.py","location":{"lineNumber":3,"anonymousIndex":1},"expression":"x > 1"}`, where
/// `location` may be `{"localFunction":"f"}`, which goes before a line. `anonymousIndex`, `location` and
/// `expression` may be left out. Numbers are truncated as `foundation::json::toUnsigned64` does it, and not
/// checked.
///
/// Throws the conversion error of `Value::as` for a member of the wrong type, a missing `fileName`, and a
/// `location` without a name and a line.
YorWorks::lxe::LineBreakpoint readLineBreakpoint(const JsonObject& object);

}  // namespace yvm::JSClient
