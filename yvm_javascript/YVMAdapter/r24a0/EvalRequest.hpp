#pragma once

#include "cmddistributor/RunOptions.hpp"
#include "common/BaseRequest.hpp"
#include "r24a0/deserializeRunOptions.hpp"

#include <memory>
#include <string>

namespace yvm::JSClient::r24a0 {

/// Runs a piece of source text: `{"requestID":"1","command":"1+1","isUserEval":false,"runOptions":{}}`, of
/// which `isUserEval` and `runOptions` may be left out.
///
/// Meant to stay alike with the class of r22a0.
class EvalRequest : public BaseRequest {
  public:
    /// Throws as the lookups of `BaseRequest` and as `deserializeRunOptions` do. Of several faults the first
    /// in the order `command`, `isUserEval`, `runOptions` is reported.
    EvalRequest(const BaseRequest& request,
                const std::shared_ptr<EventManagerConnection>& eventManagerConnection,
                PublishTextCallback publishTextCallback);

    /// UTF-8, as it came.
    const std::string& getCommand() const noexcept { return command_; }
    /// Whether a person typed the command.
    bool getIsUserEval() const noexcept { return isUserEval_; }
    const cmddistributor::RunOptions& getRunOptions() const noexcept { return runOptions_; }

  private:
    std::string command_;
    bool isUserEval_;
    cmddistributor::RunOptions runOptions_;
};

}  // namespace yvm::JSClient::r24a0
