#include "engine/detail/SinkTexts.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "engine/detail/EngineEvents.hpp"
#include "engine/detail/EngineOutput.hpp"
#include "ylutil/io/SinkTextEvent.hpp"

#include <utility>

namespace yvm::engine {

using ylutil::io::SinkTextEvent;

void SinkTexts::add(Stream stream, std::u16string_view text) {
    if (!host_.events().isWanted<SinkTextEvent>()) {
        return;
    }
    const auto command = cmddistributor::RequestIdAdapter().getRequestId();
    const std::lock_guard lock(mutex_);
    if (!pieces_.empty() && pieces_.back().command == command && pieces_.back().stream == stream &&
        pieces_.back().text.size() + text.size() <= longestPiece) {
        pieces_.back().text += text;
    } else {
        pieces_.push_back({command, stream, std::u16string(text)});
    }
}

void SinkTexts::hasLeft() noexcept {
    const std::lock_guard lock(mutex_);
    due_ = due_ || !pieces_.empty();
}

void SinkTexts::fire() {
    const std::lock_guard firing(firing_);
    while (auto piece = takeNext()) {
        const cmddistributor::RequestIdScope writer(piece->command);
        host_.events().fire<SinkTextEvent>(piece->stream, std::move(piece->text));
    }
}

std::optional<SinkTexts::Piece> SinkTexts::takeNext() {
    const std::lock_guard lock(mutex_);
    if (pieces_.empty()) {
        due_ = false;
        return std::nullopt;
    }
    std::optional<Piece> piece(std::move(pieces_.front()));
    pieces_.pop_front();
    return piece;
}

SinkTexts::Firing::~Firing() {
    if (texts_ != nullptr && texts_->areDue()) {
        texts_->fire();
    }
}

}  // namespace yvm::engine
