#include "ylutil/io/TextBaseEvent.hpp"

#include <utility>

namespace ylutil::io {

TextBaseEvent::TextBaseEvent(const IDType& id, StreamTypeEnum stream, std::u16string text)
    : id_(id), stream_(stream), text_(std::move(text)) {}

TextBaseEvent::~TextBaseEvent() = default;

std::optional<TextBaseEvent::IDType> TextBaseEvent::commandId() const {
    return id_.isNull() ? std::nullopt : std::optional(id_);
}

}  // namespace ylutil::io
