#include "server/bayeux/ClientLifecycle.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"
#include "server/bayeux/Channels.hpp"
#include "server/bayeux/JsonText.hpp"
#include "server/bayeux/Secrets.hpp"
#include "server/bayeux/ServedVersions.hpp"

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

/// The fields of a request or response that matter here. What is absent or of another type stays
/// empty, and is left to the module to complain about.
struct Fields {
    std::string requestID;
    std::optional<std::string> requestIDtoDetach;
    std::vector<std::string> supportedApiVersions;
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
    if (simdjson::dom::array versions; !object["supportedApiVersions"].get(versions)) {
        for (const simdjson::dom::element version : versions) {
            if (std::string_view name; !version.get(name)) {
                fields.supportedApiVersions.emplace_back(name);
            }
        }
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

}  // namespace

ClientLifecycle::ClientLifecycle(std::shared_ptr<connector::message_service::Broker> broker,
                                 Callbacks callbacks)
    : broker_(std::move(broker)),
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
    if (auto refusal = refuseUnservedVersions(fields.supportedApiVersions)) {
        return refusal;
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
        publishDetach(waiting.front(), fields.requestIDtoDetach.value_or(""));
    }
    return std::nullopt;
}

void ClientLifecycle::detachAll(SessionNumber session, const std::string& lane) {
    for (const std::string& identifier : clients_.clientsOf(session)) {
        const std::string requestID = "server-" + randomHex(16);
        std::string request = R"({"requestID":")" + requestID + R"(","requestIDtoDetach":)";
        appendJsonString(request, identifier);
        request += '}';
        detachRequests_[requestID].push_back({session, lane, std::move(request)});
        publishDetach(detachRequests_[requestID].front(), identifier);
    }
}

void ClientLifecycle::publishDetach(const DetachRequest& detachRequest, const std::string& identifier) {
    const std::string& lane = detachRequest.lane;
    broker_->publish(std::string(kDetachRequest), DataBuffer(detachRequest.request), lane);
    if (!isClientIdentifier(identifier)) {
        return;
    }
    // An identifier that nobody has is taken for the time of the detach: an attach of another session
    // in another lane could overtake it, and would be undone.
    clients_.reserve(identifier, detachRequest.session);
    const auto detach = clients_.startDetach(identifier);
    const std::string marker = std::to_string(detach);
    markers_[marker] = {identifier, detach};
    broker_->publish(kMarkerChannel, DataBuffer(marker), lane);
}

void ClientLifecycle::onAttachResponse(const DataBuffer& payload) {
    const Fields fields = readResponse(payload);
    const auto owner = clients_.ownerOf(fields.requestID);
    if (!owner) {
        return;
    }
    callbacks_.deliver(*owner, {std::string(kAttachResponse), payload});
    if (clients_.attachAnswered(fields.requestID, !fields.hasError)) {
        callbacks_.freed(*owner, fields.requestID);
    }
}

void ClientLifecycle::onDetachResponse(const DataBuffer& payload) {
    const auto found = detachRequests_.find(readResponse(payload).requestID);
    if (found == detachRequests_.end()) {
        return;
    }
    std::deque<DetachRequest>& waiting = found->second;
    callbacks_.deliver(waiting.front().session, {std::string(kDetachResponse), payload});
    waiting.pop_front();
    while (!waiting.empty()) {
        const DetachRequest& next = waiting.front();
        const std::string identifier = readFields(next.request).requestIDtoDetach.value_or("");
        if (!policy_.mayDetach(next.session, identifier)) {
            publishDetach(next, identifier);
            return;
        }
        // While it waited another session took the identifier, so it names nothing of its own.
        waiting.pop_front();
    }
    detachRequests_.erase(found);
}

void ClientLifecycle::onMarker(const std::string& marker) {
    const auto found = markers_.find(marker);
    if (found == markers_.end()) {
        return;
    }
    const Marker reached = found->second;
    markers_.erase(found);
    const auto owner = clients_.ownerOf(reached.identifier);
    if (owner && clients_.finishDetach(reached.identifier, reached.detach)) {
        callbacks_.freed(*owner, reached.identifier);
    }
}

}  // namespace server::bayeux
