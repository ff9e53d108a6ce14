#include "services/prompt/InputRequestEvent.hpp"

#include <utility>

namespace services::prompt {

InputRequestEvent::InputRequestEvent(std::optional<IDType> commandId, std::string id, std::u16string prompt,
                                     bool password)
    : CommandEvent(commandId), id_(std::move(id)), prompt_(std::move(prompt)), password_(password) {}

InputRequestEvent::~InputRequestEvent() = default;

}  // namespace services::prompt
