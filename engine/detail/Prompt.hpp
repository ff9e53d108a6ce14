#pragma once

#include "cmddistributor/CommandQueue.hpp"
#include "engine/detail/EngineEvents.hpp"
#include "ylutil/prompt/PromptState.hpp"

#include <atomic>

namespace yvm::engine {

/// What the engine does with the commands that its prompts take, told to subscribers as it changes.
///
/// Commands that run in a pause or at a pre-emption point of others change nothing about it: a page that asks
/// for the engine's state would otherwise see itself.
///
/// For the engine thread, without the GIL and locks.
class Prompt {
  public:
    using State = ylutil::prompt::PromptState;

    explicit Prompt(EngineEvents& events) : events_(events) {}

    /// Any thread.
    State state() const noexcept { return state_; }

    /// A prompt has taken the command that the thread works for. Told for each of them.
    void takesCommand();
    /// The thread waits for commands, at whatever moment. Told once.
    void waitsForCommands(cmddistributor::Moment moment);

    /// While it lasts, the command that the thread works for waits, of its own will or stopped by others.
    class Stay {
      public:
        /// A command that no prompt took leaves the state as it is, unless it stops in the debugger.
        Stay(Prompt& prompt, State state);
        ~Stay();
        Stay(const Stay&) = delete;
        Stay& operator=(const Stay&) = delete;

      private:
        Prompt& prompt_;
        const State before_;
        const bool counts_;
    };

  private:
    void enter(State state);

    EngineEvents& events_;
    /// Written by the engine thread.
    std::atomic<State> state_{State::busy};
};

}  // namespace yvm::engine
