#include "connector/message_service/MessageService.hpp"

#include <mutex>
#include <stdexcept>

namespace connector::message_service {

namespace {

struct InstalledFactory {
    std::mutex mutex;
    MessageServiceFactory factory;  // guarded by mutex
};

InstalledFactory& installed() {
    static InstalledFactory instance;
    return instance;
}

}  // namespace

Subscription::~Subscription() = default;
MessageService::~MessageService() = default;

Future<std::shared_ptr<MessageService>> createMessageService(const std::string& name,
                                                             const MessageServiceOptions& options) {
    MessageServiceFactory factory;
    {
        const std::lock_guard lock(installed().mutex);
        factory = installed().factory;
    }
    if (!factory) {
        return makeFailedFuture<std::shared_ptr<MessageService>>(
            std::make_exception_ptr(std::runtime_error("no message broker is installed in this process")));
    }
    return factory(name, options);
}

void setMessageServiceFactory(MessageServiceFactory factory) {
    const std::lock_guard lock(installed().mutex);
    // Swapped, so that the previous one dies with its owner's argument, behind the lock.
    installed().factory.swap(factory);
}

}  // namespace connector::message_service
