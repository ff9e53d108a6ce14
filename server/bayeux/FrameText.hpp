#pragma once

#include "connector/common/DataBuffer.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace server::bayeux {

/// The text of one frame, in pieces. A long payload is not copied into it, but shared with the publisher
/// and all other sessions that it goes to.
class FrameText {
  public:
    /// From here on a payload is shared. What is shorter is copied sooner than sent as a piece of its own.
    static constexpr std::size_t kSharedBytes = 32UL * 1024;

    FrameText() = default;
    explicit FrameText(std::string text) : tail_(std::move(text)) {}

    void append(std::string_view text) { tail_ += text; }
    void append(const connector::common::DataBuffer& payload);

    std::size_t size() const;
    bool empty() const { return shared_.empty() && tail_.empty(); }

    /// The pieces in their order. They stay where they are while this instance does, unchanged.
    std::vector<std::string_view> pieces() const;

    /// One text of them all, which leaves this instance empty.
    std::string take();

    /// Takes the elements of `next` in, where both are JSON arrays with elements. False, and nothing
    /// done, when that would make a frame of more than `maxBytes` or move shared pieces about.
    bool join(const FrameText& next, std::size_t maxBytes);

  private:
    struct Shared {
        std::string textBefore;
        connector::common::DataBuffer payload;
    };

    std::vector<Shared> shared_;
    /// What stands behind the last of them.
    std::string tail_;
};

}  // namespace server::bayeux
