#include "r24a0/FevalRequest.hpp"

#include "foundation/json/Serializer.hpp"
#include "foundation/json/toUnsigned64.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <stdexcept>
#include <utility>

namespace yvm::JSClient::r24a0 {

using foundation::yorlabjson::ToJsonMode;

FevalRequest::FevalRequest(const BaseRequest& request,
                           const std::shared_ptr<EventManagerConnection>& eventManagerConnection,
                           PublishTextCallback publishTextCallback)
    : BaseRequest(request),
      function_(findValue<std::string>("function")),
      numOutputsExpected_(foundation::json::toUnsigned64(findValue<double>("numOutputsExpected"))),
      rhsArgs_(readRhsArgs()),
      runOptions_(deserializeRunOptions(findOptionalValueWithDefault<JsonObject>("runOptions", {}),
                                        eventManagerConnection, getRequestID(),
                                        std::move(publishTextCallback))),
      ydaOutputFormat_(readYdaOutputFormat()) {}

std::vector<foundation::yorlabdata::Array> FevalRequest::readRhsArgs() const {
    const auto elements = findValue<foundation::json::Array>("rhsArgs");
    try {
        const foundation::yorlabdata::ArrayFactory factory;
        std::vector<foundation::yorlabdata::Array> arrays;
        arrays.reserve(elements.size());
        for (const auto& element : elements) {
            arrays.push_back(
                foundation::yorlabdata::json::string_to_yorlabdata(element.as<std::string>(), factory));
        }
        return arrays;
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "Exception caught: " << boost::current_exception_diagnostic_information(true);
        FOUNDATION_LOG(logger(), foundation::log::Normal)
            << "Failed to deserialize the following into YDA: "
            << foundation::json::Serializer::serialize(elements);
        throw;
    }
}

ToJsonMode FevalRequest::readYdaOutputFormat() const {
    const auto text = findOptionalValueWithDefault<std::string>("ydaOutputFormat", "preferYDAShort");
    if (text == "preferYDAShort") {
        return ToJsonMode::preferYDAShort;
    }
    if (text == "alwaysYDALong") {
        return ToJsonMode::alwaysYDALong;
    }
    throw std::runtime_error("Invalid YDA output format");
}

}  // namespace yvm::JSClient::r24a0
