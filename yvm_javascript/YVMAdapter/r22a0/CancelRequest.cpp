#include "r22a0/CancelRequest.hpp"

namespace yvm::JSClient::r22a0 {

CancelRequest::CancelRequest(const BaseRequest& request)
    : BaseRequest(request),
      interrupt_(findOptionalValueWithDefault<bool>("interrupt", false)),
      requestIDtoCancel_(findValue<std::string>("requestIDtoCancel")) {}

}  // namespace yvm::JSClient::r22a0
