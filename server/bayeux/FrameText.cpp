#include "server/bayeux/FrameText.hpp"

#include <utility>

namespace server::bayeux {

void FrameText::append(const connector::common::DataBuffer& payload) {
    if (payload.size() < kSharedBytes) {
        tail_ += payload.view();
    } else {
        shared_.push_back({std::exchange(tail_, {}), payload});
    }
}

std::size_t FrameText::size() const {
    std::size_t size = tail_.size();
    for (const Shared& shared : shared_) {
        size += shared.textBefore.size() + shared.payload.size();
    }
    return size;
}

std::vector<std::string_view> FrameText::pieces() const {
    std::vector<std::string_view> pieces;
    pieces.reserve(2 * shared_.size() + 1);
    for (const Shared& shared : shared_) {
        pieces.emplace_back(shared.textBefore);
        pieces.push_back(shared.payload.view());
    }
    pieces.emplace_back(tail_);
    return pieces;
}

std::string FrameText::take() {
    if (shared_.empty()) {
        return std::exchange(tail_, {});
    }
    std::string text;
    text.reserve(size());
    for (const std::string_view piece : pieces()) {
        text += piece;
    }
    *this = {};
    return text;
}

bool FrameText::join(const FrameText& next, std::size_t maxBytes) {
    if (!shared_.empty() || !next.shared_.empty() || tail_.size() + next.tail_.size() > maxBytes) {
        return false;
    }
    tail_.back() = ',';
    tail_.append(next.tail_, 1);
    return true;
}

}  // namespace server::bayeux
