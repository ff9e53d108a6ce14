#pragma once

#include "connector/message_service/MessageService.hpp"

#include <memory>
#include <string>

namespace yvm::JSClient {

/// Blocks until the subscription to `channel` is confirmed and returns it, which is never null. Throws what
/// the future throws, and `std::runtime_error` when what it holds is null.
std::shared_ptr<connector::message_service::Subscription> awaitSubscription(
    connector::Future<std::shared_ptr<connector::message_service::Subscription>> future,
    const std::string& channel);

}  // namespace yvm::JSClient
