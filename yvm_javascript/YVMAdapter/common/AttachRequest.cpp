#include "common/AttachRequest.hpp"

namespace yvm::JSClient {

AttachRequest::AttachRequest(const BaseRequest& request)
    : BaseRequest(request),
      yvmID_(findValue<std::string>("yvmID")),
      supportedApiVersions_(findValue<std::vector<std::string>>("supportedApiVersions")),
      apiVersion_(newestApiVersion(supportedApiVersions_)) {}

}  // namespace yvm::JSClient
