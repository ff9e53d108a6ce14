#include "r22a0/AttachedClient.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"
#include "r22a0/Debugger.hpp"
#include "r22a0/EvalFevalCancel.hpp"
#include "r22a0/EventManagerConnection.hpp"
#include "r22a0/YVMSink.hpp"

#include <utility>

namespace yvm::JSClient::r22a0 {

namespace {

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::AttachedClient");
    return instance;
}

}  // namespace

AttachedClient::AttachedClient(std::string channelPrefix, std::shared_ptr<yvm::YVM> yvm,
                               std::shared_ptr<connector::message_service::MessageService> messageService,
                               std::function<void(const std::string&)> disconnectHandler)
    : channelPrefix_(std::move(channelPrefix)),
      yvm_(std::move(yvm)),
      messageService_(std::move(messageService)),
      eventManagerConnection_(
          EventManagerConnection::create(channelPrefix_, yvm_->getEventMgr(), messageService_)),
      evalFevalCancel_(
          EvalFevalCancel::create(channelPrefix_, yvm_, messageService_, eventManagerConnection_)),
      debugger_(Debugger::create(channelPrefix_, yvm_, messageService_)),
      yvmSink_(YVMSink::create(yvm_, messageService_)) {
    if (disconnectHandler) {
        monitor_.emplace(channelPrefix_ + "/connection/stillAlive", messageService_,
                         std::move(disconnectHandler));
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "New attached client for YVM " << yvm_->getIdentifier() << " at " << channelPrefix_;
}

AttachedClient::~AttachedClient() {
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "Destroying client for YVM " << yvm_->getIdentifier() << " at " << channelPrefix_;
}

}  // namespace yvm::JSClient::r22a0
