#pragma once

#include "cmddistributor/RuntimeException.hpp"
#include "common/JsonObject.hpp"
#include "ylutil/cmddistributor/inExecutionStatus.hpp"

#include <exception>
#include <optional>
#include <string>

namespace yvm::JSClient {

/// The answer to one request while it is being put together: a JSON object that begins as
/// `{"requestID":"7"}`. On failure it carries the member `error`, whose keys
/// `yvm::json_serializers::serialize` defines. A plain value, published once.
class RequestResponse {
  public:
    using Status = ylutil::cmddistributor::inExecutionStatus;

    explicit RequestResponse(std::string requestID);

    /// Inserts the member, or overwrites its value.
    void setValue(const std::string& key, foundation::json::Value value);

    void setError(const cmddistributor::RuntimeException& exception);

    /// An error that has a status and a message (UTF-8) and nothing else.
    void setError(const std::string& message, Status status);

    /// Classifies a caught exception. A `cmddistributor::RuntimeException` is stored whole, with `status` in
    /// place of its own if one is given; any other becomes an error with its `what()`, or "Unknown Exception"
    /// if it has none or `error` is null, and `status` or else 2. Nothing escapes; running out of memory here
    /// ends the program.
    void setError(std::exception_ptr error, std::optional<Status> status) noexcept;

    const JsonObject& getJson() const noexcept { return json_; }
    const std::string& getRequestID() const noexcept { return requestID_; }

  private:
    JsonObject json_;
    std::string requestID_;
};

}  // namespace yvm::JSClient
