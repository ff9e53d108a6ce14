#include "common/createAttachedClient.hpp"

#include "r22a0/AttachedClient.hpp"
#include "r24a0/AttachedClient.hpp"

#include <utility>

namespace yvm::JSClient {

std::unique_ptr<AttachedClientInterface> createAttachedClient(
    ApiVersion version, std::string channelPrefix, std::shared_ptr<yvm::YVM> yvm,
    std::shared_ptr<connector::message_service::MessageService> messageService,
    std::function<void(const std::string&)> disconnectHandler) {
    switch (version) {
        case ApiVersion::r22a0:
            return std::make_unique<r22a0::AttachedClient>(std::move(channelPrefix), std::move(yvm),
                                                           std::move(messageService),
                                                           std::move(disconnectHandler));
        case ApiVersion::r24a0:
            return std::make_unique<r24a0::AttachedClient>(std::move(channelPrefix), std::move(yvm),
                                                           std::move(messageService),
                                                           std::move(disconnectHandler));
        case ApiVersion::Unsupported:
            break;
    }
    return nullptr;
}

}  // namespace yvm::JSClient
