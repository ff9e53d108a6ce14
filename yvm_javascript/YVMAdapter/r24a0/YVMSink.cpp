#include "r24a0/YVMSink.hpp"

#include "cmddistributor/RunOptions.hpp"
#include "foundation/log/function_trace.hpp"
#include "r24a0/TextJSBuffer.hpp"
#include "r24a0/YVMSinksRequest.hpp"

#include <utility>

namespace yvm::JSClient::r24a0 {

namespace {

using connector::message_service::MessageService;
using foundation::core::util::scope_guard;

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::YVMSink");
    return instance;
}

}  // namespace

std::shared_ptr<YVMSink> YVMSink::create(std::string channelPrefix, const std::shared_ptr<yvm::YVM>& engine,
                                         std::shared_ptr<MessageService> messageService) {
    std::shared_ptr<YVMSink> service(new YVMSink(std::move(messageService)));
    // Apart from the constructor, in which there is no weak reference yet.
    service->createYVMConnections(engine, std::move(channelPrefix));
    return service;
}

YVMSink::YVMSink(std::shared_ptr<MessageService> messageService)
    : messageService_(std::move(messageService)) {
    FOUNDATION_FUNCTION_TRACE(logger());
}

YVMSink::~YVMSink() {
    FOUNDATION_FUNCTION_TRACE(logger());
    if (sinkGuard_) {
        sinkGuard_->dismiss();
    }
}

void YVMSink::flushForEvent(const foundation::msg_svc::eventmgr::BaseEvent& event) {
    std::unique_lock lock(mutex_);
    // Shared, so that the publisher outlasts the flush when a request replaces it meanwhile.
    const auto publisher = publisher_;
    lock.unlock();
    if (publisher) {
        publisher->flushForEvent(event);
    }
}

void YVMSink::createYVMConnections(const std::shared_ptr<yvm::YVM>& engine, std::string channelPrefix) {
    connection_.emplace(messageService_, std::move(channelPrefix) + "/yvmSinks",
                        [weakThis = weak_from_this(), engine](const BaseRequest& request) {
                            FOUNDATION_FUNCTION_TRACE(logger());
                            // A request may come in before the connection that delivers it has been stored.
                            const auto self = weakThis.lock();
                            if (!self || !self->connection_) {
                                FOUNDATION_LOG(logger(), foundation::log::Normal)
                                    << "Returning early due to null weakThis";
                                return;
                            }
                            self->handleSinksRequest(request, engine);
                        });
}

void YVMSink::handleSinksRequest(const BaseRequest& request, const std::shared_ptr<yvm::YVM>& engine) {
    // On every path; where an exception leaves, the connection sends a second response, with the error.
    const scope_guard respond([this, response = RequestResponse(request.getRequestID())] {
        connection_->publishResponse(response);
    });
    if (!engine) {
        FOUNDATION_LOG(logger(), foundation::log::Normal) << "Returning early due to null YVM";
        return;
    }
    const auto publisher = std::make_shared<TextJSBufferPublisher>(makeSendFunction());
    {
        // The destructor of the old publisher takes its own mutex here. No run of the timer and no flush can
        // hold that one: each has a reference of its own, with which the destructor would go to its thread.
        const std::lock_guard lock(mutex_);
        publisher_ = publisher;
    }
    auto [outBuffer, errBuffer] = makeTextJSBuffers(publisher);
    const YVMSinksRequest sinksRequest(request);
    if (sinksRequest.getUseDefaultSinks() && sinkGuard_) {
        FOUNDATION_LOG(logger(), foundation::log::Normal) << "Reverting to previous Sinks";
        sinkGuard_->run();
        sinkGuard_.reset();
        return;
    }
    if (!sinkGuard_) {
        sinkGuard_ = std::make_unique<scope_guard>(engine->makeSinkRestorer(engine));
    }
    using cmddistributor::RunOptions;
    auto outSink = RunOptions::createSink(std::move(outBuffer), sinksRequest.getOutSinkTraits());
    auto errSink = RunOptions::createSink(std::move(errBuffer), sinksRequest.getErrSinkTraits());
    engine->replaceSinks(std::move(outSink), std::move(errSink));
}

TextJSBufferPublisher::SendFunction YVMSink::makeSendFunction() {
    return [weakThis = weak_from_this()](JsonObject message) {
        if (const auto self = weakThis.lock()) {
            self->connection_->publish("output", std::move(message));
        }
    };
}

}  // namespace yvm::JSClient::r24a0
