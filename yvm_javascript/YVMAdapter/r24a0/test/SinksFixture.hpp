#pragma once

#include "common/test/textSupport.hpp"
#include "foundation/feature/IFeature.hpp"
#include "testing/FrameworkWithFakePool.hpp"

#include <chrono>

namespace yvm::JSClient::r24a0 {

constexpr std::chrono::milliseconds publishPeriod(150);

using test::Sent;

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
