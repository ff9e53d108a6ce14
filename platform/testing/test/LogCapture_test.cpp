#include "testing/LogCapture.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace foundation::log;
using platform_testing::LogCapture;

TEST(LogCapture, TurnsEverythingOnAndPutsItBack) {
    const diagnostic_logger logger("testing::LogCapture");
    ASSERT_FALSE(isLoggingEnabled());
    const unsigned before = defaultMask();
    {
        const LogCapture log;
        for (const auto flag :
             {LookupDetail, Normal, CaughtException, FunctionEntry, FunctionExit, RefusedEngine}) {
            EXPECT_TRUE(logger.isEnabled(flag)) << flag;
        }
    }
    EXPECT_FALSE(isLoggingEnabled());
    EXPECT_EQ(defaultMask(), before);
}

TEST(LogCapture, AnswersByChannelSeverityAndWholeText) {
    const diagnostic_logger one("testing::One");
    const diagnostic_logger two("testing::Two");
    LogCapture log;
    FOUNDATION_LOG(one, Normal) << "first";
    FOUNDATION_LOG(two, Normal) << "second";
    FOUNDATION_LOG(one, LookupDetail) << "third";
    FOUNDATION_LOG(one, Normal) << "first";
    EXPECT_EQ(log.records().size(), 4U);
    EXPECT_EQ(log.records("testing::One").size(), 3U);
    EXPECT_EQ(log.texts("testing::One", Normal), (std::vector<std::string>{"first", "first"}));
    EXPECT_EQ(log.count("testing::One", Normal, "first"), 2U);
    EXPECT_TRUE(log.contains("testing::Two", Normal, "second"));
    EXPECT_FALSE(log.contains("testing::Two", Normal, "secon"));
    EXPECT_FALSE(log.contains("testing::Two", LookupDetail, "second"));
    EXPECT_FALSE(log.contains("testing::One", Normal, "second"));
    log.clear();
    EXPECT_TRUE(log.records().empty());
}

TEST(LogCapture, NestedCapturesSeeTheRecordsOfTheirLifetime) {
    const diagnostic_logger logger("testing::Nested");
    const LogCapture outer;
    FOUNDATION_LOG(logger, Normal) << "before";
    {
        const LogCapture inner;
        FOUNDATION_LOG(logger, Normal) << "within";
        EXPECT_EQ(inner.texts("testing::Nested", Normal), std::vector<std::string>{"within"});
    }
    FOUNDATION_LOG(logger, Normal) << "after";
    EXPECT_EQ(outer.texts("testing::Nested", Normal),
              (std::vector<std::string>{"before", "within", "after"}));
}
