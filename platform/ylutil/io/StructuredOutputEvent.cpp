#include "ylutil/io/StructuredOutputEvent.hpp"

#include <utility>

namespace ylutil::io {

StructuredOutputEvent::StructuredOutputEvent(std::optional<IDType> commandId, Bundle data, Bundle metadata)
    : CommandEvent(commandId), data_(std::move(data)), metadata_(std::move(metadata)) {}

StructuredOutputEvent::~StructuredOutputEvent() = default;

}  // namespace ylutil::io
