#include "services/io/HomeEvent.hpp"

namespace services::io {

HomeEvent::HomeEvent(std::optional<IDType> commandId) : CommandEvent(commandId) {}

HomeEvent::~HomeEvent() = default;

}  // namespace services::io
