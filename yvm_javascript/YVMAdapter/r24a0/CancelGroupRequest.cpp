#include "r24a0/CancelGroupRequest.hpp"

namespace yvm::JSClient::r24a0 {

CancelGroupRequest::CancelGroupRequest(const BaseRequest& request)
    : BaseRequest(request),
      interrupt_(findOptionalValueWithDefault<bool>("interrupt", false)),
      requestGroupNametoCancel_(findValue<std::string>("requestGroupNametoCancel")) {}

}  // namespace yvm::JSClient::r24a0
