#pragma once

#include "common/JsonObject.hpp"
#include "common/test/support.hpp"
#include "foundation/feature/IFeature.hpp"
#include "foundation/json/Serializer.hpp"
#include "testing/FrameworkWithFakePool.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace yvm::JSClient::r24a0 {

constexpr std::chrono::milliseconds publishPeriod(150);

/// A text message, as a client reads it.
struct Sent {
    ylutil::io::StreamTypeEnum stream{};
    std::string text;

    explicit Sent(const JsonObject& message) : Sent(foundation::json::Serializer::serialize(message)) {}
    explicit Sent(const std::string& json) {
        const auto message = test::parseObject(json);
        EXPECT_EQ(message.size(), 2U) << json;
        stream = static_cast<ylutil::io::StreamTypeEnum>(message.at("stream").as<double>());
        text = message.at("text").as<std::string>();
    }
    Sent(ylutil::io::StreamTypeEnum ownStream, std::string ownText)
        : stream(ownStream), text(std::move(ownText)) {}

    bool operator==(const Sent&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Sent& sent) {
        return out << sent.stream << ": " << sent.text;
    }
};

/// Switches the two features of batched text, both on at first, and makes both unset again.
class FeatureSwitches {
  public:
    FeatureSwitches() { setBatching(true); }
    ~FeatureSwitches() {
        features_.reset("YVMJS_SmartBuf");
        features_.reset("webui");
    }
    FeatureSwitches(const FeatureSwitches&) = delete;
    FeatureSwitches& operator=(const FeatureSwitches&) = delete;

    void setBatching(bool enabled) { set(enabled, enabled); }
    void set(bool smartBuf, bool webui) {
        features_.set("YVMJS_SmartBuf", smartBuf);
        features_.set("webui", webui);
    }

  private:
    foundation::feature::IFeature& features_ = foundation::feature::IFeature::instance();
};

}  // namespace yvm::JSClient::r24a0
