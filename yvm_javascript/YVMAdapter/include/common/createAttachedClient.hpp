#pragma once

#include "common/ApiVersion.hpp"
#include "common/AttachedClientInterface.hpp"
#include "connector/message_service/MessageService.hpp"
#include "yvm/YVM.hpp"

#include <functional>
#include <memory>
#include <string>

namespace yvm::JSClient {

/// The client of that protocol version, all of its channels subscribed; an empty pointer for `Unsupported`
/// and any number that is no version. `disconnectHandler` is called with the name of the liveness channel
/// when its last subscriber leaves; an empty one means that nobody watches the channel.
///
/// Blocks on each subscription, and throws what one of them throws.
std::unique_ptr<AttachedClientInterface> createAttachedClient(
    ApiVersion version, std::string channelPrefix, std::shared_ptr<yvm::YVM> yvm,
    std::shared_ptr<connector::message_service::MessageService> messageService,
    std::function<void(const std::string&)> disconnectHandler);

}  // namespace yvm::JSClient
