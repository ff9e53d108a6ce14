#pragma once

#include "common/BaseRequest.hpp"

#include <string>

namespace yvm::JSClient {

/// A client lets go of what an earlier attach gave it: `{"requestID":"d","requestIDtoDetach":"a"}`. All keys
/// are required.
class DetachRequest : public BaseRequest {
  public:
    /// Throws as the lookups of `BaseRequest` do.
    explicit DetachRequest(const BaseRequest& request);

    /// The `requestID` of the attach. May be empty.
    const std::string& getRequestIDtoDetach() const noexcept { return requestIDtoDetach_; }

  private:
    std::string requestIDtoDetach_;
};

}  // namespace yvm::JSClient
