#include "r22a0/YVMSink.hpp"

#include "cmddistributor/RunOptions.hpp"
#include "common/awaitSubscription.hpp"
#include "foundation/json/Parser.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/log/function_trace.hpp"
#include "r22a0/readSinkTraits.hpp"

#include <boost/make_shared.hpp>

#include <string>
#include <utility>

namespace yvm::JSClient::r22a0 {

namespace {

using connector::message_service::JsonMessage;
using connector::message_service::MessageService;

const std::string setChannel = "/yvm/sinks/set";
const std::string responseChannel = "/yvm/sinks/response";

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::YVMSink");
    return instance;
}

}  // namespace

std::shared_ptr<YVMSink> YVMSink::create(const std::shared_ptr<yvm::YVM>& engine,
                                         std::shared_ptr<MessageService> messageService) {
    std::shared_ptr<YVMSink> service(new YVMSink(std::move(messageService)));
    // Apart from the constructor, in which there is no weak reference yet.
    service->createYVMConnections(engine);
    return service;
}

YVMSink::YVMSink(std::shared_ptr<MessageService> messageService)
    : messageService_(std::move(messageService)) {
    FOUNDATION_FUNCTION_TRACE(logger());
}

YVMSink::~YVMSink() {
    FOUNDATION_FUNCTION_TRACE(logger());
}

void YVMSink::createYVMConnections(const std::shared_ptr<yvm::YVM>& engine) {
    auto future = messageService_->subscribe(
        setChannel, [weakThis = weak_from_this(), engine](const JsonMessage& message) {
            FOUNDATION_FUNCTION_TRACE(logger());
            const auto self = weakThis.lock();
            if (!self) {
                FOUNDATION_LOG(logger(), foundation::log::Normal) << "Returning early due to null weakThis";
                return;
            }
            if (!engine) {
                FOUNDATION_LOG(logger(), foundation::log::Normal) << "Returning early due to null YVM";
                return;
            }
            self->handleSinksMessage(message, *engine);
        });
    subscription_ = awaitSubscription(std::move(future), setChannel);
}

void YVMSink::handleSinksMessage(const JsonMessage& message, yvm::YVM& engine) const {
    using cmddistributor::RunOptions;
    using ylutil::io::StreamTypeEnum;
    const auto [outTraits, errTraits] =
        readSinkTraitsPair(foundation::json::parseText(message.payload().view()));
    const TextJSBuffer::SendFunction send = makeSendFunction();
    auto outBuffer = boost::make_shared<TextJSBuffer>(StreamTypeEnum::Output, send);
    auto errBuffer = boost::make_shared<TextJSBuffer>(StreamTypeEnum::Error, send);
    auto outSink = RunOptions::createSink(std::move(outBuffer), outTraits);
    auto errSink = RunOptions::createSink(std::move(errBuffer), errTraits);
    engine.replaceSinks(std::move(outSink), std::move(errSink));
}

TextJSBuffer::SendFunction YVMSink::makeSendFunction() const {
    // The service and not this object, which the sinks outlive.
    return [messageService = messageService_](JsonObject message) {
        messageService->publish(responseChannel,
                                connector::common::DataBuffer(foundation::json::Serializer::serialize(
                                    foundation::json::Value(std::move(message)))));
    };
}

}  // namespace yvm::JSClient::r22a0
