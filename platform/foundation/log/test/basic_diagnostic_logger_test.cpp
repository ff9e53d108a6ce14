#include "foundation/log/basic_diagnostic_logger.hpp"

#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace foundation::log;
using platform_testing::LogCapture;
using platform_testing::LogRecord;

TEST(DiagnosticLogger, ARecordCarriesChannelSeverityAndIndent) {
    const LogCapture log;
    const diagnostic_logger logger("log::test::Attributes");
    FOUNDATION_LOG(logger, Normal) << "count is " << 3;
    EXPECT_EQ(log.records("log::test::Attributes"),
              (std::vector<LogRecord>{{"log::test::Attributes", 8, 0, "count is 3"}}));
}

TEST(DiagnosticLogger, TheOperandsOfARefusedRecordAreNotEvaluated) {
    const LogCapture log;
    diagnostic_logger logger("log::test::Lazy");
    logger.setMask(CaughtException);
    int evaluations = 0;
    FOUNDATION_LOG(logger, Normal) << ++evaluations;
    EXPECT_EQ(evaluations, 0);
    FOUNDATION_LOG(logger, CaughtException) << ++evaluations;
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(log.texts("log::test::Lazy", CaughtException), std::vector<std::string>{"1"});
}

TEST(DiagnosticLogger, NothingIsFormedWhileTheCoreIsOff) {
    const LogCapture log;
    const diagnostic_logger logger("log::test::Off");
    setLoggingEnabled(false);
    EXPECT_FALSE(isLoggingEnabled());
    int evaluations = 0;
    FOUNDATION_LOG(logger, CaughtException) << ++evaluations;
    setLoggingEnabled(true);
    EXPECT_EQ(evaluations, 0);
    EXPECT_TRUE(log.records("log::test::Off").empty());
}

TEST(DiagnosticLogger, TheInitialDefaultMaskHoldsCaughtExceptionsAndRefusedEngines) {
    EXPECT_EQ(defaultMask(), 16U | 512U);
    const diagnostic_logger logger("log::test::Initial");
    setLoggingEnabled(true);
    EXPECT_TRUE(logger.isEnabled(CaughtException));
    EXPECT_TRUE(logger.isEnabled(RefusedEngine));
    EXPECT_FALSE(logger.isEnabled(LookupDetail));
    EXPECT_FALSE(logger.isEnabled(Normal));
    EXPECT_FALSE(logger.isEnabled(FunctionEntry));
    EXPECT_FALSE(logger.isEnabled(FunctionExit));
    setLoggingEnabled(false);
    EXPECT_FALSE(logger.isEnabled(CaughtException));
}

TEST(DiagnosticLogger, AMaskMayBeSetBeforeTheLoggerExistsAndOutlastsTheDefault) {
    const LogCapture log;
    setMask("log::test::Early", Normal);
    const diagnostic_logger logger("log::test::Early");
    EXPECT_TRUE(logger.isEnabled(Normal));
    EXPECT_FALSE(logger.isEnabled(FunctionEntry));
    setDefaultMask(FunctionEntry);
    EXPECT_FALSE(logger.isEnabled(FunctionEntry));
}

TEST(DiagnosticLogger, AMaskReachesEveryLoggerOfTheName) {
    const LogCapture log;
    const diagnostic_logger one("log::test::Twins");
    const diagnostic_logger other("log::test::Twins");
    setMask("log::test::Twins", RefusedEngine);
    EXPECT_FALSE(one.isEnabled(Normal));
    EXPECT_FALSE(other.isEnabled(Normal));
    EXPECT_TRUE(one.isEnabled(RefusedEngine));
    EXPECT_TRUE(other.isEnabled(RefusedEngine));
}

TEST(DiagnosticLogger, AStatementWithElseStillBelongsToItsIf) {
    const LogCapture log;
    const diagnostic_logger logger("log::test::DanglingElse");
    bool elseTaken = false;
    if (log.records().empty())
        FOUNDATION_LOG(logger, Normal) << "then";
    else
        elseTaken = true;
    EXPECT_FALSE(elseTaken);
    EXPECT_TRUE(log.contains("log::test::DanglingElse", Normal, "then"));
}

TEST(DiagnosticLogger, ThreadsWriteAtOnce) {
    const LogCapture log;
    const diagnostic_logger logger("log::test::Threads");
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&logger] {
            for (int line = 0; line < 100; ++line) {
                FOUNDATION_LOG(logger, Normal) << "line";
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(log.count("log::test::Threads", Normal, "line"), 400U);
}
