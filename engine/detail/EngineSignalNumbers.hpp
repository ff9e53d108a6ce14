#pragma once

#include <csignal>

namespace yvm::engine {

// The engine's own signals, to its own thread. SIGINT and SIGTERM are the server's.
//
// Real-time signals, since programs and libraries have a use of their own for the others; not the first
// ones, which debuggers and runtimes like to take.

/// Breaks into the innermost command, if that is to be interrupted.
inline int interruptSignal() {
    return SIGRTMIN + 4;
}

/// Runs the commands that may run at a pre-emption point.
inline int preemptionSignal() {
    return SIGRTMIN + 5;
}

}  // namespace yvm::engine
