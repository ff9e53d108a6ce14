#include "common/YVMAdapter.hpp"

#include "common/AttachRequest.hpp"
#include "common/DetachRequest.hpp"
#include "common/createAttachedClient.hpp"
#include "cppmicroservices/Bundle.hpp"
#include "cppmicroservices/BundleContext.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/LDAPFilter.hpp"
#include "cppmicroservices/ServiceEvent.hpp"
#include "cppmicroservices/ServiceReference.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"

#include <boost/algorithm/string/join.hpp>

#include <algorithm>
#include <stdexcept>

namespace yvm::JSClient {

namespace {

using connector::message_service::MessageService;

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::YVMAdapter");
    return instance;
}

std::string channelPrefixFor(const std::string& attachRequestID) {
    return "/yvm/" + attachRequestID;
}

/// The text before the third "/"; empty when there are fewer.
std::string prefixOfChannel(const std::string& channel) {
    std::size_t slash = std::string::npos;
    for (int count = 0; count < 3; ++count) {
        slash = channel.find('/', slash + 1);
        if (slash == std::string::npos) {
            return {};
        }
    }
    return channel.substr(0, slash);
}

}  // namespace

YVMAdapter::YVMAdapter() {
    const cppmicroservices::LDAPFilter filter("(&(objectClass=yvm::YVM)(user-yvm=true))");
    {
        // The listener may run on another thread before its token is stored.
        const std::lock_guard lock(mutex_);
        listenerToken_ = cppmicroservices::GetBundleContext().AddServiceListener(
            [this](const cppmicroservices::ServiceEvent& event) {
                if (event.GetType() != cppmicroservices::ServiceEvent::SERVICE_REGISTERED) {
                    return;
                }
                const cppmicroservices::ServiceReference<yvm::YVM> reference = event.GetServiceReference();
                if (reference) {
                    setYVMPtr(reference.GetBundle().GetBundleContext().GetService(reference));
                }
            },
            filter.ToString());
    }
    foundation::core::util::scope_guard stopListening([this] { removeListener(); });

    // Only now, so that no engine slips through in between.
    const auto context = cppmicroservices::GetBundleContext();
    const auto references = context.GetServiceReferences<yvm::YVM>(filter);
    if (!references.empty()) {
        if (auto yvm = context.GetService(references.front())) {
            setYVMPtr(std::move(yvm));
        }
    }
    stopListening.dismiss();
}

YVMAdapter::~YVMAdapter() {
    // The listener holds this address. A guard, since a context that has ended throws, and has no listeners.
    const foundation::core::util::scope_guard stopListening([this] { removeListener(); });
    // While both still stand, for the handlers that are waited for here look at them. Without the mutex,
    // which these may wait for.
    for (auto* connection : {&detachConnection_, &attachConnection_}) {
        if (*connection) {
            (*connection)->unsubscribe();
        }
    }
}

void YVMAdapter::removeListener() {
    cppmicroservices::ListenerToken token;
    {
        const std::lock_guard lock(mutex_);
        token = std::move(listenerToken_);
    }
    // Without the mutex, which a listener that is running may wait for.
    cppmicroservices::GetBundleContext().RemoveListener(std::move(token));
}

YVMConnection::Handler YVMAdapter::makeHandler(ConnectionSlot YVMAdapter::* connection,
                                               void (YVMAdapter::*handle)(const BaseRequest&)) {
    // The plain address: the destructor waits for a handler, which must not own what it would then destroy.
    return [this, connection, handle](const BaseRequest& request) {
        // A request may come in before the connection that delivers it has been stored.
        if (!(this->*connection)) {
            FOUNDATION_LOG(logger(), foundation::log::Normal) << "Returning early due to missing connection";
            return;
        }
        (this->*handle)(request);
    };
}

void YVMAdapter::initializeMessageService() {
    const auto messageService = connector::message_service::createMessageService("yvmJavascript", {}).get();
    setMessageService(messageService);
    attachConnection_.emplace(messageService, "/yvm/attach",
                              makeHandler(&YVMAdapter::attachConnection_, &YVMAdapter::handleAttachRequest));
    detachConnection_.emplace(messageService, "/yvm/detach",
                              makeHandler(&YVMAdapter::detachConnection_, &YVMAdapter::handleDetachRequest));
}

void YVMAdapter::setMessageService(std::shared_ptr<MessageService> messageService) {
    const std::lock_guard lock(mutex_);
    messageService_ = std::move(messageService);
}

void YVMAdapter::setYVMPtr(std::shared_ptr<yvm::YVM>&& yvm) {
    {
        const std::lock_guard lock(mutex_);
        yvm_ = std::move(yvm);
        for (const auto& [prefix, complete] : pendingAttaches_) {
            complete();
        }
        pendingAttaches_.clear();
    }
    removeListener();
}

void YVMAdapter::handleAttachRequest(const BaseRequest& baseRequest) {
    const AttachRequest request(baseRequest);
    RequestResponse response(request.getRequestID());

    if (request.getYvmID() != "user-yvm") {
        response.setError(request.getYvmID() + " is not supported", RequestResponse::Status::RequestInvalid);
        attachConnection_->publishResponse(response);
        FOUNDATION_LOG(logger(), foundation::log::RefusedEngine)
            << "Unsupported YVM ID: " << request.getYvmID();
        return;
    }
    if (request.getApiVersion() == ApiVersion::Unsupported) {
        // Thrown, not set on the response: clients know this refusal by the status of a thrown error.
        throw std::runtime_error(
            "None of the requested API versions are supported: " +
            boost::algorithm::join(request.getSupportedApiVersions(), ", ") +
            "\nSupported API versions include: " + boost::algorithm::join(supportedApiVersions(), ", "));
    }

    response.setValue("apiVersion", apiVersionToString(request.getApiVersion()));
    const std::string prefix = channelPrefixFor(request.getRequestID());
    response.setValue("channelPrefix", prefix);
    FOUNDATION_LOG(logger(), foundation::log::Normal) << prefix << " has requested attach";

    // The step is run under the mutex, by this function or by setYVMPtr, and dies with this adapter.
    auto completeAttach = [this, prefix, version = request.getApiVersion(), response = std::move(response)] {
        completeAttachLocked(prefix, version, response);
    };
    const bool engineIsThere = [this] {
        const std::lock_guard lock(mutex_);
        return yvm_ != nullptr;
    }();
    // An engine that arrives at this point finds nothing to complete, and this attach waits for the next.
    const std::lock_guard lock(mutex_);
    if (engineIsThere) {
        completeAttach();
    } else {
        pendingAttaches_.emplace_back(prefix, std::move(completeAttach));
    }
}

void YVMAdapter::completeAttachLocked(const std::string& prefix, ApiVersion version,
                                      const RequestResponse& response) {
    if (!yvm_ || !attachConnection_) {
        return;
    }
    // Under a prefix that is taken the older client stays, and the new one dies inside this line, before
    // anybody reads the answer. No disconnect handler: clients go by detach.
    clients_.emplace(prefix, createAttachedClient(version, prefix, yvm_, messageService_, {}));
    attachConnection_->publishResponse(response);
}

void YVMAdapter::handleDetachRequest(const BaseRequest& baseRequest) {
    const DetachRequest request(baseRequest);
    RequestResponse response(request.getRequestID());
    if (request.getRequestIDtoDetach().empty()) {
        response.setError("requestIDtoDetach is missing", RequestResponse::Status::RequestInvalid);
        detachConnection_->publishResponse(response);
        return;
    }
    const std::string prefix = channelPrefixFor(request.getRequestIDtoDetach());
    detachConnection_->publishResponse(response);
    FOUNDATION_LOG(logger(), foundation::log::Normal) << prefix << " has requested detach";

    const std::lock_guard lock(mutex_);
    clients_.erase(prefix);
    const auto pending = std::ranges::find(pendingAttaches_, prefix, &PendingAttach::first);
    if (pending != pendingAttaches_.end()) {
        pendingAttaches_.erase(pending);
    }
}

void YVMAdapter::onClientDisconnected(const std::string& channel) {
    const std::string prefix = prefixOfChannel(channel);
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Client disconnected from " << prefix;
    const std::lock_guard lock(mutex_);
    clients_.erase(prefix);
}

}  // namespace yvm::JSClient
