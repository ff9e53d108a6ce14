#include "common/ApiVersion.hpp"

#include <gtest/gtest.h>

namespace yvm::JSClient {
namespace {

TEST(ApiVersion, EachVersionHasItsText) {
    EXPECT_EQ(apiVersionToString(ApiVersion::Unsupported), "Unsupported");
    EXPECT_EQ(apiVersionToString(ApiVersion::r22a0), "r22a0");
    EXPECT_EQ(apiVersionToString(ApiVersion::r24a0), "r24a0");
    EXPECT_EQ(apiVersionToString(static_cast<ApiVersion>(3)), "Unknown");
    EXPECT_EQ(apiVersionToString(static_cast<ApiVersion>(-1)), "Unknown");
}

TEST(ApiVersion, TextsAreComparedExactly) {
    EXPECT_EQ(parseApiVersion("r22a0"), ApiVersion::r22a0);
    EXPECT_EQ(parseApiVersion("r24a0"), ApiVersion::r24a0);
    for (const char* text : {"", "R24A0", "r24a0 ", "r24a", "Unsupported"}) {
        EXPECT_EQ(parseApiVersion(text), ApiVersion::Unsupported) << text;
    }
}

TEST(ApiVersion, TheNewestWinsWhateverTheOrder) {
    EXPECT_EQ(newestApiVersion({"r22a0", "r24a0"}), ApiVersion::r24a0);
    EXPECT_EQ(newestApiVersion({"r24a0", "r22a0"}), ApiVersion::r24a0);
    EXPECT_EQ(newestApiVersion({"r22a0"}), ApiVersion::r22a0);
}

TEST(ApiVersion, AnUnknownTextHidesNoKnownOne) {
    EXPECT_EQ(newestApiVersion({"r24a0", "x"}), ApiVersion::r24a0);
    EXPECT_EQ(newestApiVersion({"x", "r22a0"}), ApiVersion::r22a0);
}

TEST(ApiVersion, NothingKnownIsUnsupported) {
    EXPECT_EQ(newestApiVersion({}), ApiVersion::Unsupported);
    EXPECT_EQ(newestApiVersion({"x"}), ApiVersion::Unsupported);
}

TEST(ApiVersion, TheSupportedVersionsAreListedOldestFirst) {
    EXPECT_EQ(supportedApiVersions(), (std::vector<std::string>{"r22a0", "r24a0"}));
}

}  // namespace
}  // namespace yvm::JSClient
