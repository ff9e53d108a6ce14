#include "common/BaseRequest.hpp"

#include "foundation/json/Parser.hpp"
#include "foundation/json/Serializer.hpp"

#include <stdexcept>

namespace yvm::JSClient {

BaseRequest::BaseRequest(JsonObject json)
    : json_(std::move(json)), requestID_(findValue<std::string>("requestID")) {}

BaseRequest::BaseRequest(const std::string& text)
    : BaseRequest(std::move(foundation::json::parseText(text).as<JsonObject>())) {}

const foundation::log::diagnostic_logger& BaseRequest::logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::Request");
    return instance;
}

void BaseRequest::throwMissing(const std::string& key) const {
    throw std::runtime_error("key: " + key + " is missing from " + foundation::json::pretty_print(json_));
}

}  // namespace yvm::JSClient
