#include "common/YVMConnection.hpp"

#include "common/awaitSubscription.hpp"
#include "common/repairCommand.hpp"
#include "foundation/json/Parser.hpp"
#include "foundation/json/ParserException.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/log/function_trace.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <exception>
#include <optional>
#include <utility>

namespace yvm::JSClient {

namespace {

using connector::message_service::MessageService;
using foundation::json::Serializer;

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::YVMConnection");
    return instance;
}

void logCaughtException() {
    FOUNDATION_LOG(logger(), foundation::log::CaughtException)
        << "Exception caught: " << boost::current_exception_diagnostic_information(true);
}

void publishText(MessageService& messageService, const std::string& channel, std::string text) {
    messageService.publish(channel, connector::common::DataBuffer(std::move(text)));
}

}  // namespace

YVMConnection::YVMConnection(std::shared_ptr<MessageService> messageService, std::string channel,
                             Handler handler)
    : parts_(std::make_shared<const Parts>(
          Parts{std::move(messageService), channel + "/response", std::move(channel), std::move(handler)})) {
    FOUNDATION_FUNCTION_TRACE(logger());
    if (parts_->handler) {
        subscription_ = subscribe(
            "request", [parts = parts_](JsonObject json) { handleRequest(*parts, std::move(json)); });
    }
}

YVMConnection::~YVMConnection() {
    FOUNDATION_FUNCTION_TRACE(logger());
}

void YVMConnection::unsubscribe() {
    subscription_ = {};
}

void YVMConnection::publish(const std::string& subChannel, JsonObject message) {
    FOUNDATION_FUNCTION_TRACE(logger());
    publishText(*parts_->messageService, parts_->channel + "/" + subChannel,
                Serializer::serialize(foundation::json::Value(std::move(message))));
}

void YVMConnection::publishResponse(const RequestResponse& response) {
    publishResponse(*parts_, response);
}

void YVMConnection::publishResponse(const Parts& parts, const RequestResponse& response) {
    FOUNDATION_FUNCTION_TRACE(logger());
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "response id = " << response.getRequestID() << " for " << parts.responseChannel;
    // Not as a Value, into which a long result would be copied.
    publishText(*parts.messageService, parts.responseChannel, Serializer::serialize(response.getJson()));
}

foundation::core::util::scope_guard YVMConnection::subscribe(const std::string& subChannel,
                                                             MessageCallback callback) {
    FOUNDATION_FUNCTION_TRACE(logger());
    const std::string fullChannel = parts_->channel + "/" + subChannel;
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "subscribe to " << fullChannel;
    auto future = parts_->messageService->subscribe(
        fullChannel, [parts = parts_, callback = std::move(callback)](
                         const connector::message_service::JsonMessage& message) {
            onMessage(*parts, callback, message);
        });
    auto subscription = awaitSubscription(std::move(future), fullChannel);
    return foundation::core::util::scope_guard(
        [subscription = std::move(subscription)] { subscription->unsubscribe(); });
}

void YVMConnection::onMessage(const Parts& parts, const MessageCallback& callback,
                              const connector::message_service::JsonMessage& message) {
    try {
        std::string text(message.payload().view());
        JsonObject parsed;
        std::exception_ptr savedException;
        // On two kinds of text this never ends, which is part of the contract: one that parses to an empty
        // object, and one that, as it stands or as repaired, ends where a further token is due, for then the
        // repair deletes nothing. Whoever lets clients in keeps such texts out.
        do {
            try {
                parsed = std::move(foundation::json::parseText(text).as<JsonObject>());
            } catch (const foundation::json::ParserException& exception) {
                savedException = std::current_exception();
                text = repairCommand(exception, std::move(text));
            }
        } while (parsed.empty() && !text.empty());

        if (savedException) {
            RequestResponse response(BaseRequest(text).getRequestID());
            response.setError(savedException, RequestResponse::Status::RequestInvalid);
            publishResponse(parts, response);
        } else {
            callback(std::move(parsed));
        }
    } catch (...) {
        logCaughtException();
    }
}

void YVMConnection::handleRequest(const Parts& parts, JsonObject json) {
    FOUNDATION_FUNCTION_TRACE(logger());
    std::optional<BaseRequest> request;
    try {
        request.emplace(std::move(json));
        FOUNDATION_LOG(logger(), foundation::log::Normal) << "request id = " << request->getRequestID();
    } catch (...) {
        logCaughtException();
        return;
    }

    try {
        parts.handler(*request);
    } catch (...) {
        logCaughtException();
        RequestResponse response(request->getRequestID());
        response.setError(std::current_exception(), std::nullopt);
        publishResponse(parts, response);
    }
}

}  // namespace yvm::JSClient
