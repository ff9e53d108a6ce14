#include "common/RequestResponse.hpp"

#include "yvm/json_serializers/serialize.hpp"

#include <utility>

namespace yvm::JSClient {

RequestResponse::RequestResponse(std::string requestID)
    : json_{{"requestID", requestID}}, requestID_(std::move(requestID)) {}

void RequestResponse::setValue(const std::string& key, foundation::json::Value value) {
    json_.insert_or_assign(key, std::move(value));
}

void RequestResponse::setError(const cmddistributor::RuntimeException& exception) {
    setValue("error", json_serializers::serialize(exception));
}

void RequestResponse::setError(const std::string& message, Status status) {
    setError(cmddistributor::RuntimeException(status, message));
}

void RequestResponse::setError(std::exception_ptr error, std::optional<Status> status) noexcept {
    const auto statusOfOthers = status.value_or(Status::Unclassified);
    if (!error) {
        // There is nothing to rethrow, and trying to would end the program.
        setError("Unknown Exception", statusOfOthers);
        return;
    }
    try {
        std::rethrow_exception(std::move(error));
    } catch (const cmddistributor::RuntimeException& exception) {
        setError(status ? exception.withStatus(*status) : exception);
    } catch (const std::exception& exception) {
        setError(exception.what(), statusOfOthers);
    } catch (...) {
        setError("Unknown Exception", statusOfOthers);
    }
}

}  // namespace yvm::JSClient
