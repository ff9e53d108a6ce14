#include "engine/detail/Prompt.hpp"

#include "ylutil/prompt/PromptEvent.hpp"

namespace yvm::engine {

using cmddistributor::Moment;

void Prompt::takesCommand() {
    state_ = State::busy;
    events_.fire<ylutil::prompt::PromptEvent>(State::busy);
}

void Prompt::waitsForCommands(Moment moment) {
    if (moment == Moment::TopPrompt) {
        enter(State::idle);
    } else if (moment == Moment::DebugPrompt) {
        enter(State::debug);
    }
}

void Prompt::enter(State state) {
    if (state_.exchange(state) != state) {
        events_.fire<ylutil::prompt::PromptEvent>(state);
    }
}

Prompt::Stay::Stay(Prompt& prompt, State state)
    : prompt_(prompt),
      before_(prompt.state_),
      counts_(state == State::debug ||
              (CommandScope::current() != nullptr && CommandScope::current()->isOfPrompt())) {
    if (counts_) {
        prompt_.enter(state);
    }
}

Prompt::Stay::~Stay() {
    if (counts_) {
        prompt_.enter(before_);
    }
}

}  // namespace yvm::engine
