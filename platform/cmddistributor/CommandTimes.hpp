#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace cmddistributor {

enum class CommandKind { Eval, FEval };

enum class CommandOutcome {
    Succeeded,
    Failed,
    Interrupted,  ///< while it ran
    Cancelled,    ///< before it ran
    Abandoned,    ///< the queue was closed before it ran
};

/// What became of one command, and when.
struct CommandTimes {
    CommandKind kind;
    CommandOutcome outcome;
    /// From its submission until it was taken, or until it was given up without that.
    std::chrono::nanoseconds queued;
    /// From when it was taken until its end was told, what ran above it meanwhile included. Its completion,
    /// which converts and publishes the result, is not. Nothing when it never ran.
    std::optional<std::chrono::nanoseconds> run;
};

/// Called once for each command that was accepted, before its completion, on the thread that settles it: the
/// engine's, or that of whoever cancels or closes. Must not block, throw or call back.
using CommandObserver = std::function<void(const CommandTimes&)>;

}  // namespace cmddistributor
