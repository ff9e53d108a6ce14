#include "r22a0/SubscribeRequest.hpp"

namespace yvm::JSClient::r22a0 {

SubscribeRequest::SubscribeRequest(const BaseRequest& request)
    : BaseRequest(request), eventName_(findValue<std::string>("eventName")) {}

}  // namespace yvm::JSClient::r22a0
