#include "ylutil/io/SinkTextEvent.hpp"

#include <utility>

namespace ylutil::io {

SinkTextEvent::SinkTextEvent(std::optional<IDType> commandId, StreamTypeEnum stream, std::u16string text)
    : CommandEvent(commandId), stream_(stream), text_(std::move(text)) {}

SinkTextEvent::~SinkTextEvent() = default;

}  // namespace ylutil::io
