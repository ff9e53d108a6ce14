#include "server/bayeux/ClientLifecycle.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"
#include "server/bayeux/Channels.hpp"
#include "server/bayeux/JsonText.hpp"
#include "server/bayeux/Secrets.hpp"

#include <simdjson.h>

#include <variant>

namespace server::bayeux {

namespace {

using connector::common::DataBuffer;
using connector::message_service::JsonMessage;

/// Below /yvm, so that it waits with the detach while the plug-in is being loaded. No client may
/// publish or subscribe there.
constexpr const char* kMarkerChannel = "/yvm/detach/marker";

foundation::log::diagnostic_logger& logger() {
    static auto& instance = *new foundation::log::diagnostic_logger("server::bayeux");
    return instance;
}

/// Behind the prefix of a client.
constexpr std::string_view kSinksRequest = "/yvmSinks/request";

/// The fields of a request or response that matter here. What is absent or of another type stays
/// empty, and is left to the module to complain about.
struct Fields {
    std::string requestID;
    std::optional<std::string> requestIDtoDetach;
    std::string apiVersion;
    bool hasError = false;
};

/// Throws `simdjson_error` when the text holds numbers beyond simdjson's range.
Fields readFields(std::string_view text) {
    simdjson::dom::parser parser;
    const simdjson::dom::object object = parser.parse(text.data(), text.size());
    Fields fields;
    if (std::string_view requestID; !object["requestID"].get(requestID)) {
        fields.requestID = requestID;
    }
    if (std::string_view toDetach; !object["requestIDtoDetach"].get(toDetach)) {
        fields.requestIDtoDetach = toDetach;
    }
    if (std::string_view version; !object["apiVersion"].get(version)) {
        fields.apiVersion = version;
    }
    fields.hasError = object["error"].error() == simdjson::SUCCESS;
    return fields;
}

std::variant<Fields, Refusal> readRequest(std::string_view text) {
    try {
        Fields fields = readFields(text);
        if (fields.requestID.empty()) {
            return Refusal{ErrorCode::BadRequest, "the request needs a requestID - a string"};
        }
        return fields;
    } catch (const simdjson::simdjson_error& error) {
        return Refusal{ErrorCode::BadRequest, std::string("the request cannot be read - ") + error.what()};
    }
}

/// An answer that cannot be read belongs to nobody.
Fields readResponse(const DataBuffer& payload) {
    try {
        return readFields(payload.view());
    } catch (const simdjson::simdjson_error& error) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "a response on attach or detach cannot be read: " << error.what();
        return {};
    }
}

/// The answer to a request that the module does not answer, in the module's form.
DataBuffer errorResponse(const std::string& requestID, const std::string& why) {
    std::string response =
        R"({"error":{"arguments":[],"causes":[],"exceptionJson":null,"functionName":"","identifier":"",)"
        R"("message":)";
    appendJsonString(response, why);
    response += R"(,"shutdown":false,"stackFrames":[],"status":5},"requestID":)";
    appendJsonString(response, requestID);
    response += '}';
    return DataBuffer(std::move(response));
}

}  // namespace

ClientLifecycle::ClientLifecycle(std::shared_ptr<connector::message_service::Broker> broker,
                                 std::size_t maxClientsPerSession, Callbacks callbacks)
    : broker_(std::move(broker)),
      maxClientsPerSession_(maxClientsPerSession),
      callbacks_(std::move(callbacks)),
      service_(broker_->createService("server")) {
    const auto onServerThread = [this](void (ClientLifecycle::*handler)(const DataBuffer&)) {
        return [this, handler, post = callbacks_.post,
                alive = std::weak_ptr(alive_)](const JsonMessage& message) {
            post([this, handler, alive, payload = message.payload()] {
                if (!alive.expired()) {
                    (this->*handler)(payload);
                }
            });
        };
    };
    subscriptions_.push_back(broker_->subscribeInline(std::string(kAttachResponse),
                                                      onServerThread(&ClientLifecycle::onAttachResponse)));
    subscriptions_.push_back(broker_->subscribeInline(std::string(kDetachResponse),
                                                      onServerThread(&ClientLifecycle::onDetachResponse)));
    // Not inline: it has to arrive behind the detach, in its lane.
    subscriptions_.push_back(
        service_
            ->subscribe(
                kMarkerChannel,
                [this, post = callbacks_.post, alive = std::weak_ptr(alive_)](const JsonMessage& message) {
                    post([this, alive, marker = std::string(message.payload().view())] {
                        if (!alive.expired()) {
                            onMarker(marker);
                        }
                    });
                })
            .get());
}

ClientLifecycle::~ClientLifecycle() = default;

std::optional<Refusal> ClientLifecycle::attach(SessionNumber session, const std::string& lane,
                                               std::string request) {
    const auto read = readRequest(request);
    if (const auto* refusal = std::get_if<Refusal>(&read)) {
        return *refusal;
    }
    const Fields& fields = std::get<Fields>(read);
    if (auto refusal = policy_.mayAttach(session, fields.requestID)) {
        return refusal;
    }
    const bool isNew = !clients_.ownerOf(fields.requestID) || clients_.isDetaching(fields.requestID);
    if (isNew && clients_.countOf(session) >= maxClientsPerSession_) {
        return Refusal{ErrorCode::TooLarge,
                       "a session may have " + std::to_string(maxClientsPerSession_) + " clients at most",
                       metrics::RefusalReason::ClientsPerSession};
    }
    clients_.reserve(fields.requestID, session);
    broker_->publish(std::string(kAttachRequest), DataBuffer(std::move(request)), lane);
    return std::nullopt;
}

std::optional<Refusal> ClientLifecycle::detach(SessionNumber session, const std::string& lane,
                                               std::string request) {
    const auto read = readRequest(request);
    if (const auto* refusal = std::get_if<Refusal>(&read)) {
        return *refusal;
    }
    const Fields& fields = std::get<Fields>(read);
    if (fields.requestIDtoDetach) {
        if (auto refusal = policy_.mayDetach(session, *fields.requestIDtoDetach)) {
            return refusal;
        }
    }
    std::deque<DetachRequest>& waiting = detachRequests_[fields.requestID];
    waiting.push_back({session, lane, std::move(request)});
    if (waiting.size() == 1) {
        publishDetach(waiting.front(), fields.requestID, fields.requestIDtoDetach.value_or(""));
    }
    return std::nullopt;
}

void ClientLifecycle::observe(std::string_view channel, std::string_view request) {
    const auto parts = asClientChannel(channel);
    if (parts && parts->rest == kSinksRequest && !clients_.isAttached(parts->client, kSharedSinksVersion)) {
        sinks_.requested(std::string(parts->client), request);
    } else if (channel == kSinksSet) {
        sinks_.requestedShared();
    }
}

void ClientLifecycle::detachAll(SessionNumber session, const std::string& lane) {
    for (auto& [requestID, waiting] : detachRequests_) {
        std::erase_if(waiting, [session](const DetachRequest& detachRequest) {
            return detachRequest.session == session && detachRequest.marker == 0;
        });
    }
    // Ahead of all detaches: the sinks that one client goes back to may be another's of this session.
    while (const auto client = sinks_.inForce()) {
        if (clients_.ownerOf(*client) != session) {
            break;
        }
        revertSinks(*client, lane);
    }
    for (const std::string& identifier : clients_.clientsOf(session)) {
        const std::string requestID = "server-" + randomHex(16);
        std::string request = R"({"requestID":")" + requestID + R"(","requestIDtoDetach":)";
        appendJsonString(request, identifier);
        request += '}';
        std::deque<DetachRequest>& waiting = detachRequests_[requestID];
        waiting.push_back({session, lane, std::move(request)});
        publishDetach(waiting.front(), requestID, identifier);
    }
}

void ClientLifecycle::publishDetach(DetachRequest& detachRequest, const std::string& requestID,
                                    const std::string& identifier) {
    detachRequest.marker = ++lastMarker_;
    Marker& marker = markers_[detachRequest.marker];
    marker.requestID = requestID;
    marker.identifier = identifier;
    if (isClientIdentifier(identifier)) {
        // Taken also when nobody has it: an attach of another session in another lane could overtake the
        // detach, and would be undone.
        marker.detach = clients_.startDetach(identifier, detachRequest.session);
    }
    if (sinks_.inForce() == identifier) {
        revertSinks(identifier, detachRequest.lane);
    }
    sinks_.forget(identifier);
    broker_->publish(std::string(kDetachRequest), DataBuffer(detachRequest.request), detachRequest.lane);
    broker_->publish(kMarkerChannel, DataBuffer(std::to_string(detachRequest.marker)), detachRequest.lane);
}

void ClientLifecycle::revertSinks(const std::string& client, const std::string& lane) {
    std::string request = InstalledSinks::revertRequest("server-" + randomHex(16));
    sinks_.requested(client, request);
    broker_->publish("/yvm/" + client + std::string(kSinksRequest), DataBuffer(std::move(request)), lane);
}

void ClientLifecycle::onAttachResponse(const DataBuffer& payload) {
    const Fields fields = readResponse(payload);
    const auto owner = clients_.ownerOf(fields.requestID);
    if (!owner) {
        return;
    }
    callbacks_.deliver(*owner, {std::string(kAttachResponse), payload});
    if (clients_.attachAnswered(fields.requestID, !fields.hasError, fields.apiVersion)) {
        sinks_.forget(fields.requestID);
        callbacks_.freed(fields.requestID);
    } else if (clients_.isAttached(fields.requestID, kSharedSinksVersion)) {
        // It has no sinks of its own, whatever it asked for before it could know.
        sinks_.forget(fields.requestID);
    }
    callbacks_.rightsChanged(*owner);
}

void ClientLifecycle::onDetachResponse(const DataBuffer& payload) {
    const auto found = detachRequests_.find(readResponse(payload).requestID);
    if (found != detachRequests_.end()) {
        settleDetach(found, payload);
    }
}

void ClientLifecycle::settleDetach(DetachRequests::iterator found, const DataBuffer& response) {
    const std::string& requestID = found->first;
    std::deque<DetachRequest>& waiting = found->second;
    callbacks_.deliver(waiting.front().session, {std::string(kDetachResponse), response});
    waiting.pop_front();
    while (!waiting.empty()) {
        DetachRequest& next = waiting.front();
        const std::string identifier = readFields(next.request).requestIDtoDetach.value_or("");
        const auto refusal = policy_.mayDetach(next.session, identifier);
        if (!refusal) {
            publishDetach(next, requestID, identifier);
            return;
        }
        // While it waited another session took the identifier.
        callbacks_.deliver(next.session,
                           {std::string(kDetachResponse), errorResponse(requestID, refusal->text)});
        waiting.pop_front();
    }
    detachRequests_.erase(found);
}

void ClientLifecycle::onMarker(const std::string& text) {
    const auto marker = markers_.find(std::stoull(text));
    if (marker == markers_.end()) {
        return;
    }
    const std::uint64_t number = marker->first;
    const Marker reached = std::move(marker->second);
    markers_.erase(marker);
    const auto owner = clients_.ownerOf(reached.identifier);
    if (owner && reached.detach && clients_.finishDetach(reached.identifier, *reached.detach)) {
        callbacks_.freed(reached.identifier);
        callbacks_.rightsChanged(*owner);
    }
    const auto unanswered = detachRequests_.find(reached.requestID);
    if (unanswered != detachRequests_.end() && unanswered->second.front().marker == number) {
        settleDetach(unanswered, errorResponse(reached.requestID, "the request was not answered"));
    }
}

}  // namespace server::bayeux
