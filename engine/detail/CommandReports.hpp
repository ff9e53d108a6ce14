#pragma once

#include "engine/detail/CommandRunner.hpp"
#include "engine/detail/EngineEvents.hpp"

#include <string>
#include <vector>

namespace yvm::engine {

// What the engine itself tells of a command. Engine thread, without the GIL.

/// Shows its source on the streams whose destination wants it, as it would stand at Python's own prompt.
void echo(Command& command);

/// Writes to its output where it has stopped, and `message` if there is one, unless its options suppress
/// that, and brings out what it wrote before. `frames` are its own, innermost last.
void showStop(Command& command, const std::vector<cmddistributor::StackFrame>& frames,
              const std::u16string& message);

/// Tells those who watch commands of its error: who sent it has that as the answer. That it was stopped is no
/// error.
void fireFailure(EngineEvents& events, const Outcome& outcome);

}  // namespace yvm::engine
