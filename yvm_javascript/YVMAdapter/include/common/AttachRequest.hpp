#pragma once

#include "common/ApiVersion.hpp"
#include "common/BaseRequest.hpp"

#include <string>
#include <vector>

namespace yvm::JSClient {

/// A client asks for an engine and says which protocol versions it speaks, in any order:
/// `{"requestID":"a","yvmID":"user-yvm","supportedApiVersions":["r22a0","r24a0"]}`. All keys are required.
class AttachRequest : public BaseRequest {
  public:
    /// Throws as the lookups of `BaseRequest` do.
    explicit AttachRequest(const BaseRequest& request);

    const std::string& getYvmID() const noexcept { return yvmID_; }
    const std::vector<std::string>& getSupportedApiVersions() const noexcept { return supportedApiVersions_; }
    /// The best of these that this module speaks.
    ApiVersion getApiVersion() const noexcept { return apiVersion_; }

  private:
    std::string yvmID_;
    std::vector<std::string> supportedApiVersions_;
    ApiVersion apiVersion_;
};

}  // namespace yvm::JSClient
