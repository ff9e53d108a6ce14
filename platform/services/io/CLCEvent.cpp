#include "services/io/CLCEvent.hpp"

namespace services::io {

CLCEvent::CLCEvent(std::optional<IDType> commandId) : CommandEvent(commandId) {}

CLCEvent::~CLCEvent() = default;

}  // namespace services::io
