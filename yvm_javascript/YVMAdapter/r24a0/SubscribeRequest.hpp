#pragma once

#include "common/BaseRequest.hpp"

#include <string>

namespace yvm::JSClient::r24a0 {

/// Asks for the events of one type: `{"requestID":"3","eventName":"ylutil::prompt::PromptEvent"}`. The
/// `requestID` names the subscription from then on.
///
/// Meant to stay alike with the class of r22a0.
class SubscribeRequest : public BaseRequest {
  public:
    /// Throws as `findValue` does.
    explicit SubscribeRequest(const BaseRequest& request);

    const std::string& getEventName() const noexcept { return eventName_; }

  private:
    std::string eventName_;
};

}  // namespace yvm::JSClient::r24a0
