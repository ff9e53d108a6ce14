#include "foundation/log/sinks.hpp"

#include "foundation/log/function_trace.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace foundation::log;

namespace {

class Sinks : public testing::Test {
  protected:
    void SetUp() override {
        setLoggingEnabled(true);
        setDefaultMask(~0U);
    }
    void TearDown() override {
        removeSinks();
        setLoggingEnabled(false);
        setDefaultMask(CaughtException | RefusedEngine);
        std::filesystem::remove(file_);
    }

    std::vector<std::string> lines() const {
        std::ifstream stream(file_);
        std::vector<std::string> found;
        for (std::string line; std::getline(stream, line);) {
            found.push_back(line);
        }
        return found;
    }

    const std::filesystem::path file_ =
        std::filesystem::temp_directory_path() / ("sinks_test." + std::to_string(::getpid()) + ".log");
};

}  // namespace

TEST_F(Sinks, ALineOfAFileHasTimeSeverityChannelThreadIndentationAndMessage) {
    addFileSink(file_);
    const diagnostic_logger logger("log::test::Sinks");
    {
        const function_trace trace(logger, "void f()");
        FOUNDATION_LOG(logger, RefusedEngine) << "no such engine";
    }
    const std::string start = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]{6})? ";
    const std::string middle = " log::test::Sinks " + std::to_string(::gettid()) + " ";
    EXPECT_THAT(lines(),
                testing::ElementsAre(testing::MatchesRegex(start + "enter" + middle + "void f\\(\\)"),
                                     testing::MatchesRegex(start + "refused" + middle + "  no such engine"),
                                     testing::MatchesRegex(start + "exit" + middle + "void f\\(\\)")));
}

TEST_F(Sinks, AFileIsAppendedTo) {
    std::ofstream(file_) << "earlier\n";
    addFileSink(file_);
    const diagnostic_logger logger("log::test::Sinks");
    FOUNDATION_LOG(logger, Normal) << "later";
    const auto written = lines();
    ASSERT_EQ(written.size(), 2U);
    EXPECT_EQ(written[0], "earlier");
}

TEST_F(Sinks, AFileThatCannotBeOpenedIsNamed) {
    try {
        addFileSink("/nowhere/at/all.log");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(),
                     "cannot open the log file '/nowhere/at/all.log' for writing: No such file or directory");
    }
}

TEST_F(Sinks, TheConsoleSinkWritesToStandardError) {
    testing::internal::CaptureStderr();
    addConsoleSink();
    const diagnostic_logger logger("log::test::Sinks");
    FOUNDATION_LOG(logger, Normal) << "to the console";
    const auto text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find(" normal log::test::Sinks "), std::string::npos) << text;
    EXPECT_NE(text.find("to the console\n"), std::string::npos) << text;
}

TEST_F(Sinks, TheConsoleSinkStaysWithTheStandardErrorThatItFound) {
    testing::internal::CaptureStderr();
    addConsoleSink();
    const int found = ::dup(STDERR_FILENO);
    const int elsewhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(elsewhere, STDERR_FILENO);
    FOUNDATION_LOG(diagnostic_logger("log::test::Sinks"), Normal) << "to the console";
    ::dup2(found, STDERR_FILENO);
    ::close(elsewhere);
    ::close(found);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("to the console\n"));
}
