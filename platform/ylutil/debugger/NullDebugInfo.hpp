#pragma once

namespace ylutil::debugger {

/// Stands in the place of a breakpoint where an action concerns none in particular.
struct NullDebugInfo {};

}  // namespace ylutil::debugger
