#pragma once

#include "common/ApiVersion.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace yvm::JSClient::test {

/// A test that runs for each protocol version.
class ForEachVersion : public testing::WithParamInterface<ApiVersion> {
  protected:
    static bool isR22a0() { return GetParam() == ApiVersion::r22a0; }

    /// The expectation of the version under test, of the two that stand side by side.
    template <typename T>
    static T perVersion(T inR22a0, T inR24a0) {
        return isR22a0() ? std::move(inR22a0) : std::move(inR24a0);
    }
};

/// For `INSTANTIATE_TEST_SUITE_P`.
inline auto bothVersions() {
    return testing::Values(ApiVersion::r22a0, ApiVersion::r24a0);
}
inline std::string nameOfVersion(const testing::TestParamInfo<ApiVersion>& info) {
    return apiVersionToString(info.param);
}

}  // namespace yvm::JSClient::test
