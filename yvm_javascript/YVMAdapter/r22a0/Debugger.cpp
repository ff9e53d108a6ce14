#include "r22a0/Debugger.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"
#include "r22a0/GlobalBreakpointRequest.hpp"
#include "r22a0/LineBreakpointRequest.hpp"

#include <utility>

namespace yvm::JSClient::r22a0 {

namespace {

using connector::message_service::MessageService;
using OperationCallback = std::function<void(boost::shared_future<void>)>;

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::Debugger");
    return instance;
}

void logNullDebugger() {
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Returning early due to null Debugger";
}

/// What answers the request once the engine has completed its operation.
OperationCallback makeDebuggerCallback(const std::string& requestID, Debugger::ResponseType type,
                                       std::weak_ptr<Debugger> debugger) {
    return [requestID, type, weakDebugger = std::move(debugger)](const boost::shared_future<void>& outcome) {
        const auto self = weakDebugger.lock();
        if (!self) {
            logNullDebugger();
            return;
        }
        RequestResponse response(requestID);
        try {
            outcome.get();
        } catch (...) {
            response.setError(std::current_exception(), std::nullopt);
        }
        self->publishResponse(type, response);
    };
}

}  // namespace

std::shared_ptr<Debugger> Debugger::create(const std::string& channelPrefix,
                                           const std::shared_ptr<yvm::YVM>& yvm,
                                           std::shared_ptr<MessageService> messageService) {
    std::shared_ptr<Debugger> service(new Debugger(yvm->getDebugger()));
    // Apart from the constructor, in which there is no weak reference yet.
    service->createYVMConnections(channelPrefix, yvm, std::move(messageService));
    return service;
}

Debugger::Debugger(std::shared_ptr<ylutil::debugger::Debugger> debugger) : debugger_(std::move(debugger)) {}

void Debugger::createYVMConnections(const std::string& channelPrefix, const std::shared_ptr<yvm::YVM>& yvm,
                                    std::shared_ptr<MessageService> messageService) {
    const auto callbackOf = [](Debugger& self, const BaseRequest& request, ResponseType type) {
        return makeDebuggerCallback(request.getRequestID(), type, self.weak_from_this());
    };
    const auto connect = [&](ConnectionSlot Debugger::* connection, const char* name,
                             std::function<void(Debugger&, const BaseRequest&)> handle) {
        (this->*connection)
            .emplace(messageService, channelPrefix + name, makeHandler(connection, std::move(handle)));
    };
    connect(&Debugger::setGlobalBreakpointConnection_, "/setGlobalBreakpoint",
            [callbackOf](Debugger& self, const BaseRequest& request) {
                self.debugger_->setBreakpoint<void>(
                    GlobalBreakpointRequest(request).getBreakpoint(),
                    callbackOf(self, request, ResponseType::SetGlobalBreakpoint));
            });
    connect(&Debugger::clearGlobalBreakpointConnection_, "/clearGlobalBreakpoint",
            [callbackOf](Debugger& self, const BaseRequest& request) {
                self.debugger_->clearBreakpoint<void>(
                    GlobalBreakpointRequest(request).getBreakpoint(),
                    callbackOf(self, request, ResponseType::ClearGlobalBreakpoint));
            });
    connect(&Debugger::setLineBreakpointConnection_, "/setLineBreakpoint",
            [callbackOf](Debugger& self, const BaseRequest& request) {
                self.debugger_->setBreakpoint<void>(
                    LineBreakpointRequest(request).getBreakpoint(),
                    callbackOf(self, request, ResponseType::SetLineBreakpoint));
            });
    connect(&Debugger::clearLineBreakpointConnection_, "/clearLineBreakpoint",
            [callbackOf](Debugger& self, const BaseRequest& request) {
                self.debugger_->clearBreakpoint<void>(
                    LineBreakpointRequest(request).getBreakpoint(),
                    callbackOf(self, request, ResponseType::ClearLineBreakpoint));
            });
    connect(&Debugger::breakInDebuggerConnection_, "/breakInDebugger",
            [yvm](Debugger& self, const BaseRequest& request) {
                yvm->breakInDebugger();
                self.breakInDebuggerConnection_->publishResponse(RequestResponse(request.getRequestID()));
            });
}

YVMConnection::Handler Debugger::makeHandler(ConnectionSlot Debugger::* connection,
                                             std::function<void(Debugger&, const BaseRequest&)> handle) {
    return [weakThis = weak_from_this(), connection, handle = std::move(handle)](const BaseRequest& request) {
        // A request may come in before the connection that delivers it has been stored.
        const auto self = weakThis.lock();
        if (!self || !((*self).*connection)) {
            logNullDebugger();
            return;
        }
        handle(*self, request);
    };
}

void Debugger::publishResponse(ResponseType type, const RequestResponse& response) {
    switch (type) {
        case ResponseType::SetGlobalBreakpoint:
            setGlobalBreakpointConnection_->publishResponse(response);
            break;
        case ResponseType::ClearGlobalBreakpoint:
            clearGlobalBreakpointConnection_->publishResponse(response);
            break;
        case ResponseType::SetLineBreakpoint:
            setLineBreakpointConnection_->publishResponse(response);
            break;
        case ResponseType::ClearLineBreakpoint:
            clearLineBreakpointConnection_->publishResponse(response);
            break;
    }
}

}  // namespace yvm::JSClient::r22a0
