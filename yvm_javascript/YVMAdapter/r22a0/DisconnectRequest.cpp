#include "r22a0/DisconnectRequest.hpp"

namespace yvm::JSClient::r22a0 {

DisconnectRequest::DisconnectRequest(const BaseRequest& request)
    : BaseRequest(request), requestIDtoDisconnect_(findValue<std::string>("requestIDtoDisconnect")) {}

}  // namespace yvm::JSClient::r22a0
