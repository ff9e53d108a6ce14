#include "r22a0/EvalRequest.hpp"

#include <utility>

namespace yvm::JSClient::r22a0 {

EvalRequest::EvalRequest(const BaseRequest& request,
                         const std::shared_ptr<EventManagerConnection>& eventManagerConnection,
                         PublishTextCallback publishTextCallback)
    : BaseRequest(request),
      command_(findValue<std::string>("command")),
      isUserEval_(findOptionalValueWithDefault<bool>("isUserEval", false)),
      runOptions_(deserializeRunOptions(findOptionalValueWithDefault<JsonObject>("runOptions", {}),
                                        eventManagerConnection, getRequestID(),
                                        std::move(publishTextCallback))) {}

}  // namespace yvm::JSClient::r22a0
