#pragma once

#include "connector/common/DataBuffer.hpp"

#include <string>
#include <utility>

namespace connector::message_service {

/// One message as a subscriber receives it: the exact channel that it was published on and its JSON
/// text. A message without a payload has a null data pointer.
class JsonMessage {
  public:
    JsonMessage(std::string channel, common::DataBuffer payload)
        : channel_(std::move(channel)), payload_(std::move(payload)) {}

    const std::string& channel() const noexcept { return channel_; }
    const common::DataBuffer& payload() const noexcept { return payload_; }

  private:
    std::string channel_;
    common::DataBuffer payload_;
};

}  // namespace connector::message_service
