#include "common/awaitSubscription.hpp"

#include <stdexcept>

namespace yvm::JSClient {

using connector::message_service::Subscription;

std::shared_ptr<Subscription> awaitSubscription(connector::Future<std::shared_ptr<Subscription>> future,
                                                const std::string& channel) {
    auto subscription = future.get();
    if (!subscription) {
        throw std::runtime_error("The message service gave no subscription to " + channel);
    }
    return subscription;
}

}  // namespace yvm::JSClient
