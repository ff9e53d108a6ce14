#include "common/createAttachedClient.hpp"

#include "r24a0/AttachedClient.hpp"

#include <stdexcept>
#include <utility>

namespace yvm::JSClient {

void requireAttachableVersion(ApiVersion version) {
    if (version == ApiVersion::r22a0) {
        throw std::runtime_error("API version r22a0 is not available; attach with r24a0");
    }
}

std::unique_ptr<AttachedClientInterface> createAttachedClient(
    ApiVersion version, std::string channelPrefix, std::shared_ptr<yvm::YVM> yvm,
    std::shared_ptr<connector::message_service::MessageService> messageService,
    std::function<void(const std::string&)> disconnectHandler) {
    requireAttachableVersion(version);
    if (version == ApiVersion::r24a0) {
        return std::make_unique<r24a0::AttachedClient>(std::move(channelPrefix), std::move(yvm),
                                                       std::move(messageService),
                                                       std::move(disconnectHandler));
    }
    return nullptr;
}

}  // namespace yvm::JSClient
