#include "ylutil/prompt/PromptState.hpp"

namespace ylutil::prompt {

std::string_view toString(PromptState state) noexcept {
    switch (state) {
        case PromptState::busy:
            return "busy";
        case PromptState::idle:
            return "idle";
        case PromptState::paused:
            return "paused";
        case PromptState::debug:
            return "debug";
    }
    return "unknown";
}

}  // namespace ylutil::prompt
