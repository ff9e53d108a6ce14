#include "ylutil/prompt/PromptEvent.hpp"

namespace ylutil::prompt {

PromptEvent::PromptEvent(std::optional<IDType> commandId, PromptState state)
    : CommandEvent(commandId), state_(state) {}

PromptEvent::~PromptEvent() = default;

}  // namespace ylutil::prompt
