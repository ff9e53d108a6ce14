#pragma once

#include "common/BaseRequest.hpp"

#include <string>

namespace yvm::JSClient::r22a0 {

/// Cancels one eval or feval: `{"requestID":"2","interrupt":true,"requestIDtoCancel":"1"}`, of which
/// `interrupt`, false by default, may be left out.
///
/// Meant to stay alike with the class of r24a0.
class CancelRequest : public BaseRequest {
  public:
    /// Throws as the lookups of `BaseRequest` do, `interrupt` first.
    explicit CancelRequest(const BaseRequest& request);

    /// Whether a command that is already running is to be interrupted.
    bool getInterrupt() const noexcept { return interrupt_; }
    const std::string& getRequestIDtoCancel() const noexcept { return requestIDtoCancel_; }

  private:
    bool interrupt_;
    std::string requestIDtoCancel_;
};

}  // namespace yvm::JSClient::r22a0
