#include "r24a0/EventManagerConnection.hpp"

#include "cppmicroservices/BundleContext.hpp"
#include "cppmicroservices/LDAPFilter.hpp"
#include "cppmicroservices/LDAPProp.hpp"
#include "cppmicroservices/ServiceObjects.hpp"
#include "event_json_converter/EventToJsonConverter.hpp"
#include "fl/filesystem/basic_path.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"
#include "r24a0/DisconnectRequest.hpp"
#include "r24a0/SubscribeRequest.hpp"
#include "r24a0/YVMSink.hpp"
#include "r24a0/isSmartBufEnabled.hpp"

#include <atomic>
#include <utility>

namespace yvm::JSClient::r24a0 {

namespace {

using connector::message_service::MessageService;
using event_json_converter::EventToJsonConverter;
using foundation::msg_svc::eventmgr::Connection;
using foundation::msg_svc::eventmgr::EventMgr;
using Status = RequestResponse::Status;

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance =
        *new foundation::log::diagnostic_logger("yvm::JSClient::EventManagerConnection");
    return instance;
}

/// Starts the module that brings the converters, once in the life of the process. A failure leaves the
/// function, and the next call tries again; after a success no call takes a lock.
void startConverters() {
    // A mutex and a flag, since an exception out of `std::call_once` hangs under the thread sanitizer.
    static std::mutex mutex;
    static std::atomic<bool> started{false};
    if (started.load(std::memory_order_acquire)) {
        return;
    }
    const std::lock_guard lock(mutex);
    if (!started.load(std::memory_order_relaxed)) {
        foundation::cppmicroservices::installAndStart(
            fl::filesystem::detail::make_native_form(LR"(bin\win64\json_event_converter)"));
        started.store(true, std::memory_order_release);
    }
}

/// The converter of the events of that name, null if there is none. Each call looks afresh.
std::shared_ptr<EventToJsonConverter> findConverter(const std::string& eventName) {
    startConverters();
    const std::string tag = fl::i18n::to_string(
        foundation::msg_svc::eventmgr::demangleEventForType(fl::i18n::to_ustring(eventName)));
    const cppmicroservices::LDAPFilter filter(cppmicroservices::LDAPProp("eventTag") == tag);
    const auto framework = foundation::cppmicroservices::getFramework();
    if (!framework) {
        return nullptr;
    }
    const auto context = framework->GetBundleContext();
    const auto references = context.GetServiceReferences<EventToJsonConverter>(filter);
    if (references.empty()) {
        return nullptr;
    }
    return std::static_pointer_cast<EventToJsonConverter>(
        cppmicroservices::ServiceObjectsBase(context, references.front()).GetService());
}

}  // namespace

std::shared_ptr<EventManagerConnection> EventManagerConnection::create(
    std::string channelPrefix, boost::shared_ptr<EventMgr> eventMgr,
    std::shared_ptr<MessageService> messageService, std::shared_ptr<YVMSink> sink) {
    return std::shared_ptr<EventManagerConnection>(new EventManagerConnection(
        std::move(channelPrefix), std::move(eventMgr), std::move(messageService), std::move(sink)));
}

EventManagerConnection::EventManagerConnection(std::string channelPrefix,
                                               boost::shared_ptr<EventMgr> eventMgr,
                                               std::shared_ptr<MessageService> messageService,
                                               std::shared_ptr<YVMSink> sink)
    : eventMgr_(std::move(eventMgr)),
      // The plain address: the connections die with this object, and wait for their handlers.
      subscribeConnection_(messageService, channelPrefix + "/subscribeEvent",
                           [this](const BaseRequest& request) {
                               subscribeConnection_.publishResponse(handleRequest(SubscribeRequest(request)));
                           }),
      disconnectConnection_(
          messageService, channelPrefix + "/disconnectEvent",
          [this](const BaseRequest& request) {
              disconnectConnection_.publishResponse(handleRequest(DisconnectRequest(request)));
          }),
      eventConnection_(std::move(messageService), std::move(channelPrefix) + "/event", nullptr),
      sink_(std::move(sink)) {}

EventManagerConnection::~EventManagerConnection() {
    clearConnections();
    // While all members stand, for the handlers that are waited for here use them.
    disconnectConnection_.unsubscribe();
    subscribeConnection_.unsubscribe();
}

EventManagerConnection::EventHandler EventManagerConnection::makeEventHandler(const std::string& eventName,
                                                                              const std::string& requestId) {
    FOUNDATION_LOG(logger(), foundation::log::LookupDetail)
        << " eventName=" << eventName << " requestId=" << requestId;
    auto converter = findConverter(eventName);
    if (!converter) {
        FOUNDATION_LOG(logger(), foundation::log::Normal) << "Could not find converter for " << eventName;
        return {};
    }
    return [requestId, eventName, converter = std::move(converter),
            owner = weak_from_this()](const BaseEvent& event) {
        FOUNDATION_LOG(logger(), foundation::log::Normal)
            << "inside event callback for " << eventName << " for " << requestId;
        const auto self = owner.lock();
        if (!self) {
            return;
        }
        if (isSmartBufEnabled() && self->sink_) {
            self->sink_->flushForEvent(event);
        }
        JsonObject message{{"requestID", requestId}};
        message.emplace("eventData", converter->convert(event));
        self->eventConnection_.publish("fireEvent", std::move(message));
    };
}

EventManagerConnection::EventHandler EventManagerConnection::makeRunOptionsEventHandler(
    const std::string& eventName, const std::string& requestId) {
    if (!emplaceConnection(requestId, nullptr)) {
        FOUNDATION_LOG(logger(), foundation::log::Normal) << "Unable to emplaceConnection for " << requestId;
        return {};
    }
    return makeEventHandler(eventName, requestId);
}

bool EventManagerConnection::emplaceConnection(const std::string& requestId,
                                               std::unique_ptr<Connection> connection) {
    const std::lock_guard lock(connectionsMutex_);
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "connect for connectionId " << subscribeConnection_.channel() << " requestId " << requestId;
    const auto [entry, inserted] = connections_.try_emplace(requestId);
    // Also into an entry that was there, which clients see as an error and a live subscription.
    entry->second.assign(std::move(connection));
    return inserted;
}

RequestResponse EventManagerConnection::handleRequest(const SubscribeRequest& request) {
    RequestResponse response(request.getRequestID());
    const std::string& eventName = request.getEventName();
    auto handler = makeEventHandler(eventName, request.getRequestID());
    if (!handler) {
        response.setError("No converter for " + eventName, Status::RequestInvalid);
        return response;
    }
    const std::u16string tag = fl::i18n::to_ustring(eventName);
    auto connection = eventMgr_ ? eventMgr_->subscribe(std::move(handler), &tag, &tag + 1) : nullptr;
    if (!connection) {
        response.setError("Unable to subscribe to " + eventName, Status::RequestInvalid);
        return response;
    }
    if (emplaceConnection(request.getRequestID(), std::move(connection))) {
        FOUNDATION_LOG(logger(), foundation::log::Normal)
            << "Subscribed to " << eventName << " on " << request.getRequestID();
    } else {
        response.setError("Unable to emplaceConnection for " + eventName, Status::RequestInvalid);
    }
    return response;
}

RequestResponse EventManagerConnection::handleRequest(const DisconnectRequest& request) {
    RequestResponse response(request.getRequestID());
    const std::string& id = request.getRequestIDtoDisconnect();
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "disconnect for " << id;
    const std::lock_guard lock(connectionsMutex_);
    if (connections_.erase(id) == 0) {
        response.setError("No subscription for " + id, Status::RequestInvalid);
    }
    return response;
}

void EventManagerConnection::handleDisconnect(const std::string& channel) {
    if (channel.find("disconnectEvent") == std::string::npos) {
        return;
    }
    const std::lock_guard lock(connectionsMutex_);
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "Lost connection to " << channel << ". Removing " << connections_.size()
        << " related event subscriptions";
    connections_.clear();
}

void EventManagerConnection::clearConnections() {
    const std::lock_guard lock(connectionsMutex_);
    connections_.clear();
}

}  // namespace yvm::JSClient::r24a0
