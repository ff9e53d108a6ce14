#pragma once

#include "common/AttachedClientInterface.hpp"
#include "common/SubscriptionCountMonitor.hpp"
#include "connector/message_service/MessageService.hpp"
#include "yvm/YVM.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace yvm::JSClient::r22a0 {

class Debugger;
class EvalFevalCancel;
class EventManagerConnection;
class YVMSink;

/// The services of one client of protocol r22a0. Holds no logic of its own, only the order in which they are
/// built.
///
/// Construction blocks on each subscription of the services and throws what it throws; what was built is
/// destroyed in reverse order. Destruction takes the monitor first, then the services, last made first. What
/// the engine keeps refers to the services weakly.
///
/// Differs from the class of r24a0 in the order of the services, and in what they receive.
class AttachedClient final : public AttachedClientInterface {
  public:
    /// A non-empty `disconnectHandler` is called with the channel `channelPrefix` + "/connection/stillAlive"
    /// when its last subscriber leaves.
    AttachedClient(std::string channelPrefix, std::shared_ptr<yvm::YVM> yvm,
                   std::shared_ptr<connector::message_service::MessageService> messageService,
                   std::function<void(const std::string&)> disconnectHandler);
    ~AttachedClient() override;
    AttachedClient(const AttachedClient&) = delete;
    AttachedClient& operator=(const AttachedClient&) = delete;

  private:
    // In the order of building.
    const std::string channelPrefix_;
    const std::shared_ptr<yvm::YVM> yvm_;
    const std::shared_ptr<connector::message_service::MessageService> messageService_;
    const std::shared_ptr<EventManagerConnection> eventManagerConnection_;
    const std::shared_ptr<EvalFevalCancel> evalFevalCancel_;
    const std::shared_ptr<Debugger> debugger_;
    const std::shared_ptr<YVMSink> yvmSink_;
    std::optional<SubscriptionCountMonitor> monitor_;
};

}  // namespace yvm::JSClient::r22a0
