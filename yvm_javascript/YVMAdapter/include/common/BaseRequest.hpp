#pragma once

#include "common/JsonObject.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"

#include <concepts>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace yvm::JSClient {

/// One message of a client, parsed: a JSON object with at least the string `requestID`, for example
/// `{"requestID":"7","command":"1+1"}`.
///
/// A plain value that never changes. Request classes derive from it and read their own keys in their
/// constructors, so that a request that exists is well formed. Keys that no class reads are ignored.
///
/// All lookups use top-level keys only. They take a value only as the alternative that it is: an integer is
/// no double, a number no string, and a value of another alternative never counts as absent. It throws
/// `std::runtime_error` "invalid conversion: STORED to WANTED".
class BaseRequest {
  public:
    /// Throws `std::runtime_error` when `requestID` is missing or is no string. The empty string is a valid
    /// one.
    explicit BaseRequest(JsonObject json);

    /// Parses the whole of `text`. Throws `foundation::json::ParserException` when it is no JSON or goes on
    /// behind the value, `std::runtime_error` when the value is no object, and as the constructor above.
    explicit BaseRequest(const std::string& text);

    const std::string& getRequestID() const noexcept { return requestID_; }

    /// The value of a required key. For `std::vector<std::string>` the key holds an array of strings.
    ///
    /// Throws `std::runtime_error` "key: KEY is missing from MESSAGE", with the message pretty-printed.
    template <typename T>
    T findValue(const std::string& key) const;

    /// Empty when the key is absent.
    template <foundation::json::Alternative T>
    std::optional<T> findOptionalValue(const std::string& key) const;

    /// The default stands in for an absent key only, never for one of the wrong type.
    template <foundation::json::Alternative T>
    T findOptionalValueWithDefault(const std::string& key, const T& defaultValue) const;

  protected:
    /// The logger of all request classes, "yvm::JSClient::Request".
    static const foundation::log::diagnostic_logger& logger();

  private:
    [[noreturn]] void throwMissing(const std::string& key) const;

    JsonObject json_;
    std::string requestID_;
};

template <typename T>
T BaseRequest::findValue(const std::string& key) const {
    if constexpr (std::same_as<T, std::vector<std::string>>) {
        std::vector<std::string> strings;
        for (const auto& element : findValue<foundation::json::Array>(key)) {
            strings.push_back(element.as<std::string>());
        }
        return strings;
    } else {
        auto value = findOptionalValue<T>(key);
        if (!value) {
            throwMissing(key);
        }
        return *std::move(value);
    }
}

template <foundation::json::Alternative T>
std::optional<T> BaseRequest::findOptionalValue(const std::string& key) const {
    FOUNDATION_LOG(logger(), foundation::log::LookupDetail) << " keyName=" << key;
    if (const auto member = json_.find(key); member != json_.end()) {
        return member->second.as<T>();
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Can't find value for " << key;
    return std::nullopt;
}

template <foundation::json::Alternative T>
T BaseRequest::findOptionalValueWithDefault(const std::string& key, const T& defaultValue) const {
    FOUNDATION_LOG(logger(), foundation::log::LookupDetail) << " keyName=" << key;
    if (auto value = findOptionalValue<T>(key)) {
        return *std::move(value);
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "Returning default value ";
    return defaultValue;
}

}  // namespace yvm::JSClient
