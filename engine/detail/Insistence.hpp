#pragma once

#include "engine/detail/TraceFunction.hpp"

namespace yvm::engine {

/// While it lives, the interrupt of a command is raised anew before each line of its code; see
/// `TraceFunction::insist`. On the engine thread with the GIL held, from beginning to end.
class Insistence {
  public:
    /// Both must outlive this. Throws `std::bad_alloc`.
    Insistence(TraceFunction& tracing, const Command& command) : tracing_(tracing), command_(command) {
        tracing_.insist(command_);
    }
    ~Insistence() { tracing_.relent(command_); }
    Insistence(const Insistence&) = delete;
    Insistence& operator=(const Insistence&) = delete;

  private:
    TraceFunction& tracing_;
    const Command& command_;
};

}  // namespace yvm::engine
