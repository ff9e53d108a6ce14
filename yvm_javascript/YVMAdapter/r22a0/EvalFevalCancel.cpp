#include "r22a0/EvalFevalCancel.hpp"

#include "cmddistributor/CmdRequest.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/log/function_trace.hpp"
#include "foundation/msg_svc/threadutil/ConcurrentTBBHashMap.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <algorithm>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace yvm::JSClient::r22a0 {

namespace {

using cmddistributor::CmdDistributor;
using connector::message_service::MessageService;

constexpr const char* sourceTag = "r22a0/EvalFevalCancel";
constexpr cmddistributor::IqmStreamID streamID = -2;

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::EvalFevalCancel");
    return instance;
}

void logNullWeakThis() {
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Returning early due to null weakThis";
}

/// A connection that does not stand is like a service that has gone: nobody waits for its answers.
void publishResponse(ConnectionSlot& connection, const RequestResponse& response) {
    if (connection) {
        connection->publishResponse(response);
    } else {
        logNullWeakThis();
    }
}

/// The entries of the registry. Of a type with a name, so that each can be asked for its identity.
struct Canceller {
    void operator()(bool interrupt) const {
        if (!distributor) {
            throw std::runtime_error("Cannot find a distributor instance to cancel this YVM request");
        }
        distributor->cancel(id, interrupt);
    }

    boost::shared_ptr<CmdDistributor> distributor;
    CmdDistributor::IDType id;
};

foundation::json::Value toJson(const std::vector<foundation::yorlabdata::Array>& arrays) {
    foundation::json::Array values;
    values.reserve(arrays.size());
    for (const auto& array : arrays) {
        values.push_back(foundation::yorlabdata::json::yorlabdata_to_json(
            array, foundation::yorlabjson::ToJsonMode::preferYDAShort, foundation::yorlabjson::NanType{},
            foundation::yorlabdata::ObjectFilter{}));
    }
    return values;
}

}  // namespace

std::shared_ptr<EvalFevalCancel> EvalFevalCancel::create(
    std::string prefix, const std::shared_ptr<yvm::YVM>& yvm, std::shared_ptr<MessageService> messageService,
    const std::shared_ptr<EventManagerConnection>& eventManagerConnection) {
    FOUNDATION_FUNCTION_TRACE(logger());
    std::shared_ptr<EvalFevalCancel> service(
        new EvalFevalCancel(std::move(prefix), std::move(messageService)));
    // Apart from the constructor, in which there is no weak reference yet.
    service->createYVMConnections(yvm, eventManagerConnection);
    return service;
}

EvalFevalCancel::EvalFevalCancel(std::string prefix, std::shared_ptr<MessageService> messageService)
    : inFlightRequests_(
          std::make_shared<
              foundation::msg_svc::threadutil::ConcurrentTBBHashMap<std::string, CancelCallback>>()),
      channelPrefix_(std::move(prefix)),
      messageService_(std::move(messageService)) {
    FOUNDATION_FUNCTION_TRACE(logger());
}

EvalFevalCancel::~EvalFevalCancel() {
    FOUNDATION_FUNCTION_TRACE(logger());
    // Copied, since a cancel may run a completion that enters the registry, which is locked during a visit.
    std::vector<CancelCallback> callbacks;
    std::mutex mutex;
    inFlightRequests_->forEach([&callbacks, &mutex](const std::string&, const CancelCallback& callback) {
        const std::lock_guard lock(mutex);
        callbacks.emplace_back(callback);
    });
    // The newest first: as soon as what runs has stopped, the engine takes what has waited longest. Cancelled
    // behind it, commands would run that are to run no more.
    std::ranges::sort(callbacks, std::ranges::greater(),
                      [](const CancelCallback& callback) { return callback.target<Canceller>()->id; });
    for (const auto& callback : callbacks) {
        try {
            callback(true);
        } catch (...) {
            FOUNDATION_LOG(logger(), foundation::log::CaughtException)
                << "Exception caught: " << boost::current_exception_diagnostic_information(true);
        }
    }
    inFlightRequests_->clear();
}

void EvalFevalCancel::createYVMConnections(
    const std::shared_ptr<yvm::YVM>& yvm,
    const std::shared_ptr<EventManagerConnection>& eventManagerConnection) {
    FOUNDATION_FUNCTION_TRACE(logger());
    cancelConnection_.emplace(messageService_, channelPrefix_ + "/cancel",
                              makeHandler(&EvalFevalCancel::cancelConnection_,
                                          [](EvalFevalCancel& self, const BaseRequest& request) {
                                              self.handleCancelRequest(CancelRequest(request));
                                          }));
    fevalConnection_.emplace(
        messageService_, channelPrefix_ + "/feval",
        makeHandler(&EvalFevalCancel::fevalConnection_,
                    [yvm, eventManagerConnection](EvalFevalCancel& self, const BaseRequest& request) {
                        self.handleFevalRequest(
                            FevalRequest(request, eventManagerConnection, self.makePublishTextCallback()),
                            yvm);
                    }));
    evalConnection_.emplace(
        messageService_, channelPrefix_ + "/eval",
        makeHandler(&EvalFevalCancel::evalConnection_,
                    [yvm, eventManagerConnection](EvalFevalCancel& self, const BaseRequest& request) {
                        self.handleEvalRequest(
                            EvalRequest(request, eventManagerConnection, self.makePublishTextCallback()),
                            yvm);
                    }));
}

YVMConnection::Handler EvalFevalCancel::makeHandler(
    ConnectionSlot EvalFevalCancel::* connection,
    std::function<void(EvalFevalCancel&, const BaseRequest&)> handle) {
    return [weakThis = weak_from_this(), connection, handle = std::move(handle)](const BaseRequest& request) {
        FOUNDATION_FUNCTION_TRACE(logger());
        // A request may come in before the connection that delivers it has been stored.
        const auto self = weakThis.lock();
        if (!self || !((*self).*connection)) {
            logNullWeakThis();
            return;
        }
        handle(*self, request);
    };
}

PublishTextCallback EvalFevalCancel::makePublishTextCallback() {
    return [weakThis = weak_from_this()](std::string channel, JsonObject message) {
        if (const auto self = weakThis.lock()) {
            self->publishTextCallback(std::move(channel), std::move(message));
        } else {
            logNullWeakThis();
        }
    };
}

void EvalFevalCancel::publishTextCallback(std::string channel, JsonObject message) {
    FOUNDATION_FUNCTION_TRACE(logger());
    channel.insert(0, channelPrefix_);
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "publishTextCallback to " << channel;
    messageService_->publish(channel, connector::common::DataBuffer(foundation::json::Serializer::serialize(
                                          foundation::json::Value(std::move(message)))));
}

void EvalFevalCancel::handleCancelRequest(const CancelRequest& request) {
    FOUNDATION_FUNCTION_TRACE(logger());
    // The entry stays: the completion of its own request takes it out.
    const auto callback = inFlightRequests_->find(request.getRequestIDtoCancel());
    const RequestResponse response(request.getRequestID());
    if (callback) {
        (*callback)(request.getInterrupt());
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "Responding to cancel request " << request.getRequestID() << " for canceling "
        << request.getRequestIDtoCancel();
    publishResponse(cancelConnection_, response);
}

void EvalFevalCancel::handleEvalRequest(const EvalRequest& request, const std::shared_ptr<yvm::YVM>& yvm) {
    FOUNDATION_FUNCTION_TRACE(logger());
    const std::string& requestID = request.getRequestID();
    const cmddistributor::RunOptions& runOptions = request.getRunOptions();
    try {
        const auto distributor = yvm->getCmdDistributor();
        if (!distributor) {
            RequestResponse response(requestID);
            response.setError("Cannot find a distributor instance to submit this YVM request",
                              RequestResponse::Status::RequestInvalid);
            publishResponse(evalConnection_, response);
            return;
        }
        const IDType id;
        inFlightRequests_->findOrInsert(
            requestID, [&distributor, &id]() -> CancelCallback { return Canceller{distributor, id}; });
        auto command = std::make_shared<cmddistributor::EvalCmdRequest>(
            request.getIsUserEval(), streamID, runOptions.getOutSink(), runOptions.getErrSink(),
            fl::i18n::to_ustring(request.getCommand()), sourceTag);
        FOUNDATION_LOG(logger(), foundation::log::Normal)
            << "Enqueueing \"" << request.getCommand() << "\" to run at "
            << static_cast<int>(runOptions.getDequeueMode());
        distributor->enqueueWithFuture<void>(
            std::move(command),
            [weakThis = weak_from_this(), requestID](boost::future<void> future) {
                completeEval(weakThis, requestID, std::move(future));
            },
            runOptions, id, nullptr);
    } catch (...) {
        RequestResponse response(requestID);
        response.setError(std::current_exception(), std::nullopt);
        publishResponse(evalConnection_, response);
    }
}

void EvalFevalCancel::handleFevalRequest(const FevalRequest& request, const std::shared_ptr<yvm::YVM>& yvm) {
    FOUNDATION_FUNCTION_TRACE(logger());
    const std::string& requestID = request.getRequestID();
    try {
        // Null when the engine has none: the engine refuses the call below, and its cancel throws.
        const auto distributor = yvm->getCmdDistributor();
        const IDType id;
        inFlightRequests_->findOrInsert(
            requestID, [&distributor, &id]() -> CancelCallback { return Canceller{distributor, id}; });
        yvm->fevalWithCompletion(
            request.getFunction(), request.getRhsArgs(), request.getNumOutputsExpected(),
            [weakThis = weak_from_this(), requestID](yvm::Future<Arrays> future) {
                completeFeval(weakThis, requestID, std::move(future));
            },
            request.getRunOptions(), false, id, sourceTag);
    } catch (...) {
        RequestResponse response(requestID);
        response.setError(std::current_exception(), std::nullopt);
        publishResponse(fevalConnection_, response);
    }
}

void EvalFevalCancel::completeEval(const std::weak_ptr<EvalFevalCancel>& weakThis,
                                   const std::string& requestID, boost::future<void> future) {
    FOUNDATION_FUNCTION_TRACE(logger());
    const auto self = weakThis.lock();
    if (!self) {
        logNullWeakThis();
        return;
    }
    self->inFlightRequests_->erase(requestID);
    RequestResponse response(requestID);
    try {
        future.get();
    } catch (const cmddistributor::RuntimeException& error) {
        // As below, without throwing it once more: thousands fail at once when their group is cancelled.
        response.setError(error);
    } catch (...) {
        response.setError(std::current_exception(), std::nullopt);
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Responding to eval request " << requestID;
    publishResponse(self->evalConnection_, response);
}

void EvalFevalCancel::completeFeval(const std::weak_ptr<EvalFevalCancel>& weakThis,
                                    const std::string& requestID, yvm::Future<Arrays> future) {
    FOUNDATION_FUNCTION_TRACE(logger());
    const auto self = weakThis.lock();
    if (!self) {
        logNullWeakThis();
        return;
    }
    self->inFlightRequests_->erase(requestID);
    RequestResponse response(requestID);
    try {
        // Set only when every output has been converted: a response never has both `result` and `error`.
        response.setValue("result", toJson(future.get()));
    } catch (...) {
        response.setError(std::current_exception(), std::nullopt);
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Responding to feval request " << requestID;
    publishResponse(self->fevalConnection_, response);
}

}  // namespace yvm::JSClient::r22a0
