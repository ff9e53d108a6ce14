#include "foundation/log/function_trace.hpp"

#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace foundation::log;
using platform_testing::LogCapture;
using platform_testing::LogRecord;

namespace {

constexpr const char* channel = "log::test::FunctionTrace";

diagnostic_logger& logger() {
    static auto* const instance = new diagnostic_logger(channel);
    return *instance;
}

void inner() {
    FOUNDATION_FUNCTION_TRACE(logger());
    FOUNDATION_LOG(logger(), Normal) << "inside";
}

void outer() {
    FOUNDATION_FUNCTION_TRACE(logger());
    inner();
}

void throwing() {
    FOUNDATION_FUNCTION_TRACE(logger());
    throw std::runtime_error("out");
}

/// Opens a trace while an exception is in flight, and leaves it normally.
struct TracesInDestructor {
    ~TracesInDestructor() { inner(); }
};

}  // namespace

TEST(FunctionTrace, LogsTheSignatureAtEntryAndExitAndIndentsInBetween) {
    const LogCapture log;
    outer();
    const std::string outerName = "void {anonymous}::outer()";
    const std::string innerName = "void {anonymous}::inner()";
    EXPECT_EQ(log.records(channel), (std::vector<LogRecord>{{channel, 32, 0, outerName},
                                                            {channel, 32, 1, innerName},
                                                            {channel, 8, 2, "inside"},
                                                            {channel, 64, 1, innerName},
                                                            {channel, 64, 0, outerName}}));
}

TEST(FunctionTrace, MarksAScopeThatEndsThroughAnException) {
    const LogCapture log;
    EXPECT_THROW(throwing(), std::runtime_error);
    EXPECT_EQ(log.texts(channel, FunctionExit),
              std::vector<std::string>{"void {anonymous}::throwing() [throw]"});
    inner();
    EXPECT_EQ(log.records(channel).back().indent, 0);
}

TEST(FunctionTrace, AScopeThatEndsNormallyDuringUnwindingIsNotMarked) {
    const LogCapture log;
    try {
        const TracesInDestructor object;
        throw std::runtime_error("in flight");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(log.texts(channel, FunctionExit), std::vector<std::string>{"void {anonymous}::inner()"});
}

TEST(FunctionTrace, WithoutTheEntryFlagNothingIsIndented) {
    const LogCapture log(Normal | FunctionExit);
    outer();
    for (const auto& record : log.records(channel)) {
        EXPECT_EQ(record.indent, 0) << record.text;
    }
    EXPECT_EQ(log.texts(channel, FunctionExit).size(), 2U);
    EXPECT_TRUE(log.texts(channel, FunctionEntry).empty());
}

TEST(FunctionTrace, IndentationIsThatOfTheWritingThread) {
    const LogCapture log;
    const function_trace trace(logger(), "here");
    std::thread(inner).join();
    EXPECT_EQ(log.records(channel).at(1), (LogRecord{channel, 32, 0, "void {anonymous}::inner()"}));
}

TEST(FunctionTrace, AMaskThatChangesInsideAScopeLeavesTheIndentationBalanced) {
    const LogCapture log;
    {
        const function_trace trace(logger(), "changing");
        setDefaultMask(Normal);
    }
    FOUNDATION_LOG(logger(), Normal) << "after";
    EXPECT_EQ(log.records(channel).back(), (LogRecord{channel, 8, 0, "after"}));
}
