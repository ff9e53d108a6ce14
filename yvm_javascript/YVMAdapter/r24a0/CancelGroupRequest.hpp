#pragma once

#include "common/BaseRequest.hpp"

#include <string>

namespace yvm::JSClient::r24a0 {

/// Cancels every eval and feval whose run options carry a group name:
/// `{"requestID":"2","interrupt":true,"requestGroupNametoCancel":"plots"}`, of which `interrupt`, false by
/// default, may be left out.
class CancelGroupRequest : public BaseRequest {
  public:
    /// Throws as the lookups of `BaseRequest` do, `interrupt` first.
    explicit CancelGroupRequest(const BaseRequest& request);

    /// Whether commands that are already running are to be interrupted.
    bool getInterrupt() const noexcept { return interrupt_; }
    const std::string& getRequestGroupNametoCancel() const noexcept { return requestGroupNametoCancel_; }

  private:
    bool interrupt_;
    std::string requestGroupNametoCancel_;
};

}  // namespace yvm::JSClient::r24a0
