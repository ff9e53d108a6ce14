#include "connector/common/DeferredService.hpp"
#include "connector/message_service/MessageService.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstanceImpl.hpp"

#include <memory>

CPPMICROSERVICES_INITIALIZE_BUNDLE(com_yorworks_EchoTest);

namespace plugintest {

using connector::message_service::JsonMessage;

/// Answers each message on /echo/request with the same text on /echo/response.
class Echo final : public connector::common::DeferredService {
  public:
    Echo()
        : service_(connector::message_service::createMessageService("echo", {}).get()),
          subscription_(service_
                            ->subscribe("/echo/request",
                                        [service = service_](const JsonMessage& message) {
                                            service->publish("/echo/response", message.payload());
                                        })
                            .get()) {}

  private:
    std::shared_ptr<connector::message_service::MessageService> service_;
    std::shared_ptr<connector::message_service::Subscription> subscription_;
};

}  // namespace plugintest

CPPMICROSERVICES_EXPORT_COMPONENT(plugintest_Echo, plugintest::Echo, connector::common::DeferredService);
