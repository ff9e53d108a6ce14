#include "common/DetachRequest.hpp"

namespace yvm::JSClient {

DetachRequest::DetachRequest(const BaseRequest& request)
    : BaseRequest(request), requestIDtoDetach_(findValue<std::string>("requestIDtoDetach")) {}

}  // namespace yvm::JSClient
