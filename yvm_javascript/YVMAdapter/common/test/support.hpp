#pragma once

#include "common/JsonObject.hpp"
#include "foundation/json/Parser.hpp"
#include "foundation/json/Value.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

namespace yvm::JSClient::test {

/// The members of a JSON text that is an object.
inline JsonObject parseObject(const std::string& text) {
    return foundation::json::parseText(text).as<JsonObject>();
}

/// A member of a member, for example `error.message` of a response. Throws when it is not there.
inline const foundation::json::Value& memberOf(const foundation::json::Value& value, const std::string& key) {
    return value.as<JsonObject>().at(key);
}

inline int statusOf(const foundation::json::Value& response) {
    return static_cast<int>(memberOf(memberOf(response, "error"), "status").as<double>());
}

inline std::string messageOf(const foundation::json::Value& response) {
    return memberOf(memberOf(response, "error"), "message").as<std::string>();
}

/// The text of the `Exception` that `call` throws; fails the test when it throws no such thing.
template <typename Exception, typename Call>
std::string textThrownBy(Call call) {
    try {
        call();
    } catch (const Exception& exception) {
        return exception.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

/// Waits until `condition` holds, for what cannot notify; false when that took more than a minute.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// All nine fields of `error`, as a failure has them that the module itself found: a status and a message
/// alone.
inline void expectPlainError(const foundation::json::Value& response, int status,
                             const std::string& message) {
    using foundation::json::Value;
    const JsonObject expected = {{"status", Value(static_cast<double>(status))},
                                 {"message", message},
                                 {"identifier", ""},
                                 {"functionName", ""},
                                 {"stackFrames", foundation::json::Array()},
                                 {"causes", foundation::json::Array()},
                                 {"shutdown", Value(false)},
                                 {"arguments", foundation::json::Array()},
                                 {"exceptionJson", foundation::json::Null()}};
    EXPECT_EQ(memberOf(response, "error"), Value(expected));
}

}  // namespace yvm::JSClient::test
