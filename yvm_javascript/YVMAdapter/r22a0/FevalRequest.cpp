#include "r22a0/FevalRequest.hpp"

#include "foundation/json/toUnsigned64.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"

#include <utility>

namespace yvm::JSClient::r22a0 {

FevalRequest::FevalRequest(const BaseRequest& request,
                           const std::shared_ptr<EventManagerConnection>& eventManagerConnection,
                           PublishTextCallback publishTextCallback)
    : BaseRequest(request),
      function_(findValue<std::string>("function")),
      numOutputsExpected_(foundation::json::toUnsigned64(findValue<double>("numOutputsExpected"))),
      rhsArgs_(readRhsArgs()),
      runOptions_(deserializeRunOptions(findOptionalValueWithDefault<JsonObject>("runOptions", {}),
                                        eventManagerConnection, getRequestID(),
                                        std::move(publishTextCallback))) {}

std::vector<foundation::yorlabdata::Array> FevalRequest::readRhsArgs() const {
    const auto elements = findValue<foundation::json::Array>("rhsArgs");
    const foundation::yorlabdata::ArrayFactory factory;
    std::vector<foundation::yorlabdata::Array> arrays;
    arrays.reserve(elements.size());
    for (const auto& element : elements) {
        arrays.push_back(foundation::yorlabdata::json::json_to_yorlabdata(element, factory));
    }
    return arrays;
}

}  // namespace yvm::JSClient::r22a0
