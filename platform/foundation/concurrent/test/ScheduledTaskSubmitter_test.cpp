#include "foundation/concurrent/threadpool/ScheduledTaskSubmitter.hpp"

#include "foundation/log/Severity.hpp"
#include "testing/FakeThreadPool.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

namespace foundation::concurrent::threadpool {
namespace {

using namespace std::chrono_literals;
using platform_testing::FakeThreadPool;
using platform_testing::LogCapture;

const std::string logChannel = "foundation::concurrent::threadpool::ScheduledTaskSubmitter";

class ScheduledTaskSubmitterTest : public testing::Test {
  protected:
    const std::shared_ptr<FakeThreadPool> pool = std::make_shared<FakeThreadPool>();
    ScheduledTaskSubmitter submitter{pool};
    int runs = 0;
};

TEST_F(ScheduledTaskSubmitterTest, TheFirstRunIsOnePeriodAfterTheSubmission) {
    submitter.submit(ResubmittingWork([this] { ++runs; }, 150ms, false));
    pool->advance(149ms);
    EXPECT_EQ(runs, 0);
    pool->advance(1ms);
    EXPECT_EQ(runs, 1);
    pool->advance(150ms);
    EXPECT_EQ(runs, 2);
}

TEST_F(ScheduledTaskSubmitterTest, TheFirstRunIsDueAtOnceWhenAskedFor) {
    submitter.submit(ResubmittingWork([this] { ++runs; }, 150ms, true));
    EXPECT_EQ(runs, 0);
    pool->advance(0ms);
    EXPECT_EQ(runs, 1);
    pool->advance(149ms);
    EXPECT_EQ(runs, 1);
    pool->advance(1ms);
    EXPECT_EQ(runs, 2);
}

TEST_F(ScheduledTaskSubmitterTest, ThePeriodIsCountedFromTheEndOfARun) {
    submitter.submit(ResubmittingWork(
        [this] {
            ++runs;
            pool->takeTime(1s);
        },
        150ms, false));
    pool->advance(150ms);
    EXPECT_EQ(runs, 1);
    pool->advance(149ms);
    EXPECT_EQ(runs, 1);
    pool->advance(1ms);
    EXPECT_EQ(runs, 2);
}

TEST_F(ScheduledTaskSubmitterTest, PeriodsOfOtherUnitsAreKept) {
    submitter.submit(ResubmittingWork([this] { ++runs; }, std::chrono::minutes(1), false));
    pool->advance(59s);
    EXPECT_EQ(runs, 0);
    pool->advance(1s);
    EXPECT_EQ(runs, 1);
}

TEST_F(ScheduledTaskSubmitterTest, AStopBeforeTheFirstRunKeepsItFromRunning) {
    auto stop = submitter.submit(ResubmittingWork([this] { ++runs; }, 150ms, false));
    EXPECT_TRUE(stop.request_stop());
    pool->advance(1s);
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(pool->waiting(), 0U);
}

TEST_F(ScheduledTaskSubmitterTest, AStopFromWithinARunMakesItTheLast) {
    stop_source stop;
    stop = submitter.submit(ResubmittingWork(
        [&] {
            ++runs;
            stop.request_stop();
        },
        150ms, false));
    pool->advance(150ms);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(pool->waiting(), 0U);
}

TEST_F(ScheduledTaskSubmitterTest, AStopEndsTheWorkOfItsHandleOnly) {
    int others = 0;
    auto stop = submitter.submit(ResubmittingWork([this] { ++runs; }, 150ms, false));
    submitter.submit(ResubmittingWork([&] { ++others; }, 150ms, false));
    pool->advance(150ms);
    stop.request_stop();
    pool->advance(150ms);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(others, 2);
}

TEST_F(ScheduledTaskSubmitterTest, DroppingTheHandleStopsNothing) {
    {
        const auto stop = submitter.submit(ResubmittingWork([this] { ++runs; }, 150ms, false));
    }
    pool->advance(450ms);
    EXPECT_EQ(runs, 3);
}

TEST_F(ScheduledTaskSubmitterTest, WorkThatWasStoppedIsLetGoWhenItWouldHaveBeenDue) {
    auto held = std::make_shared<int>();
    auto stop = submitter.submit(ResubmittingWork([held] { ++*held; }, 150ms, false));
    stop.request_stop();
    EXPECT_EQ(held.use_count(), 2);
    pool->advance(150ms);
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ScheduledTaskSubmitterTest, ARunThatThrowsIsLoggedAndFollowedByTheNext) {
    const LogCapture log;
    submitter.submit(ResubmittingWork(
        [this] {
            if (++runs == 1) {
                throw std::runtime_error("the channel is gone");
            }
        },
        150ms, false));
    pool->advance(300ms);
    EXPECT_EQ(runs, 2);
    const auto texts = log.texts(logChannel, log::CaughtException);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_EQ(texts.front().find("A run of scheduled work threw: "), 0U) << texts.front();
    EXPECT_NE(texts.front().find("the channel is gone"), std::string::npos) << texts.front();
}

TEST_F(ScheduledTaskSubmitterTest, AStopWinsOverARunThatThrows) {
    const LogCapture log;
    stop_source stop;
    stop = submitter.submit(ResubmittingWork(
        [&] {
            ++runs;
            stop.request_stop();
            throw std::runtime_error("the channel is gone");
        },
        150ms, false));
    pool->advance(1s);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(pool->waiting(), 0U);
    EXPECT_EQ(log.texts(logChannel, log::CaughtException).size(), 1U);
}

TEST_F(ScheduledTaskSubmitterTest, WorkMaySubmitWork) {
    int inner = 0;
    auto stop = submitter.submit(ResubmittingWork(
        [&] { submitter.submit(ResubmittingWork([&] { ++inner; }, 10ms, true)); }, 150ms, false));
    pool->advance(150ms);
    EXPECT_EQ(inner, 1);
    stop.request_stop();
    pool->advance(20ms);
    EXPECT_EQ(inner, 3);
}

TEST_F(ScheduledTaskSubmitterTest, WhatItHandedOverNeedsItNoMore) {
    {
        ScheduledTaskSubmitter other(pool);
        other.submit(ResubmittingWork([this] { ++runs; }, 150ms, false));
    }
    pool->advance(150ms);
    EXPECT_EQ(runs, 1);
}

TEST_F(ScheduledTaskSubmitterTest, RefusesWhatItCannotDo) {
    EXPECT_THROW(ScheduledTaskSubmitter(nullptr), std::invalid_argument);
    EXPECT_THROW(submitter.submit(ResubmittingWork({}, 150ms, false)), std::invalid_argument);
    EXPECT_THROW(submitter.submit(ResubmittingWork([] {}, -1ms, false)), std::invalid_argument);
    EXPECT_EQ(pool->waiting(), 0U);
}

}  // namespace
}  // namespace foundation::concurrent::threadpool
