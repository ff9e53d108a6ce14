#pragma once

#include "common/BaseRequest.hpp"

#include <string>

namespace yvm::JSClient::r22a0 {

/// Ends a subscription to events: `{"requestID":"4","requestIDtoDisconnect":"3"}`.
///
/// Meant to stay alike with the class of r24a0.
class DisconnectRequest : public BaseRequest {
  public:
    /// Throws as `findValue` does.
    explicit DisconnectRequest(const BaseRequest& request);

    const std::string& getRequestIDtoDisconnect() const noexcept { return requestIDtoDisconnect_; }

  private:
    std::string requestIDtoDisconnect_;
};

}  // namespace yvm::JSClient::r22a0
