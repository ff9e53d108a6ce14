#include "foundation/concurrent/threadpool/WorkerPool.hpp"

#include "foundation/concurrent/threadpool/ScheduledTaskSubmitter.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace foundation::concurrent::threadpool {
namespace {

using namespace std::chrono_literals;

/// Only for failures: nothing takes that long.
constexpr auto deadline = 60s;

/// A moment that one thread announces and another waits for.
class Signal {
  public:
    void set() { promise_.set_value(); }
    [[nodiscard]] bool wait() const { return future_.wait_for(deadline) == std::future_status::ready; }

  private:
    std::promise<void> promise_;
    std::future<void> future_ = promise_.get_future();
};

/// A task that is called once.
template <typename Function>
ThreadPool::Task once(Function function) {
    return [function = std::move(function)]() mutable -> std::optional<ThreadPool::Duration> {
        function();
        return std::nullopt;
    };
}

TEST(WorkerPoolTest, CallsATaskOnAThreadOfItsOwnWhenItIsDue) {
    Signal called;
    std::thread::id caller;
    WorkerPool pool;
    const auto submitted = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point begun;
    pool.submitAfter(20ms, once([&] {
                         caller = std::this_thread::get_id();
                         begun = std::chrono::steady_clock::now();
                         called.set();
                     }));
    ASSERT_TRUE(called.wait());
    EXPECT_NE(caller, std::this_thread::get_id());
    EXPECT_GE(begun - submitted, 20ms);
}

TEST(WorkerPoolTest, CallsTasksInTheOrderOfTheirMomentsAndOfTheirSubmission) {
    Signal submitted;
    Signal done;
    std::vector<int> order;
    WorkerPool pool(1);
    // Holds the only thread until all are in the queue, and due.
    pool.submitAfter(0ms, once([&] { EXPECT_TRUE(submitted.wait()); }));
    pool.submitAfter(20ms, once([&] { order.push_back(3); }));
    pool.submitAfter(0ms, once([&] { order.push_back(1); }));
    pool.submitAfter(0ms, once([&] { order.push_back(2); }));
    pool.submitAfter(40ms, once([&] { done.set(); }));
    submitted.set();
    ASSERT_TRUE(done.wait());
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST(WorkerPoolTest, AnEarlierTaskOvertakesTheOneThatIsWaitedFor) {
    Signal called;
    WorkerPool pool;
    pool.submitAfter(24h, once([] { FAIL() << "too early by a day"; }));
    pool.submitAfter(0ms, once([&] { called.set(); }));
    EXPECT_TRUE(called.wait());
}

TEST(WorkerPoolTest, ASlowTaskDoesNotHoldUpAnother) {
    Signal other;
    Signal slow;
    WorkerPool pool;
    pool.submitAfter(0ms, once([&] {
                         EXPECT_TRUE(other.wait());
                         slow.set();
                     }));
    pool.submitAfter(1ms, once([&] { other.set(); }));
    EXPECT_TRUE(slow.wait());
}

TEST(WorkerPoolTest, ATaskIsNeverCalledTwiceAtTheSameTime) {
    std::atomic<int> inside = 0;
    int calls = 0;
    Signal done;
    WorkerPool pool(4);
    pool.submitAfter(0ms, [&]() -> std::optional<ThreadPool::Duration> {
        EXPECT_EQ(++inside, 1);
        const bool last = ++calls == 1000;
        --inside;
        if (last) {
            done.set();
            return std::nullopt;
        }
        return 0ms;
    });
    ASSERT_TRUE(done.wait());
    EXPECT_EQ(calls, 1000);
}

TEST(WorkerPoolTest, AThousandTimersRunSideBySide) {
    constexpr int timers = 1000;
    constexpr int runsEach = 10;
    std::atomic<int> finished = 0;
    Signal done;
    WorkerPool pool;
    for (int i = 0; i < timers; ++i) {
        pool.submitAfter(std::chrono::microseconds(i),
                         [&, runs = 0]() mutable -> std::optional<ThreadPool::Duration> {
                             if (++runs < runsEach) {
                                 return 1ms;
                             }
                             if (++finished == timers) {
                                 done.set();
                             }
                             return std::nullopt;
                         });
    }
    EXPECT_TRUE(done.wait());
}

TEST(WorkerPoolTest, StopWaitsForTheTaskThatRuns) {
    Signal running;
    std::atomic<bool> finished = false;
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> watched = held;
    WorkerPool pool;
    const auto hasStopped = [&pool] {
        const auto probe = std::make_shared<int>();
        pool.submitAfter(24h, once([probe] {}));
        return probe.use_count() == 1;
    };
    pool.submitAfter(0ms, [&, held = std::move(held)]() -> std::optional<ThreadPool::Duration> {
        running.set();
        while (!hasStopped()) {
            std::this_thread::yield();
        }
        finished = true;
        return 0ms;
    });
    ASSERT_TRUE(running.wait());
    pool.stop();
    EXPECT_TRUE(finished);
    EXPECT_TRUE(watched.expired()) << "it asked to be called again, of a pool that had stopped";
    pool.stop();
}

TEST(WorkerPoolTest, DestructionLetsGoOfWhatWaits) {
    auto held = std::make_shared<int>();
    {
        WorkerPool pool;
        for (int i = 0; i < 1000; ++i) {
            pool.submitAfter(1h, once([held] { ++*held; }));
        }
        EXPECT_EQ(held.use_count(), 1001);
    }
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(*held, 0);
}

TEST(WorkerPoolTest, LetsGoOfWhatIsSubmittedAfterTheStop) {
    WorkerPool pool;
    pool.stop();
    auto held = std::make_shared<int>();
    pool.submitAfter(0ms, once([held] { ++*held; }));
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(*held, 0);
}

TEST(WorkerPoolTest, WhatATaskHoldsMaySubmitWhenItIsLetGo) {
    Signal called;
    WorkerPool pool;
    std::shared_ptr<void> submitsAtItsEnd(nullptr,
                                          [&](void*) { pool.submitAfter(0ms, once([&] { called.set(); })); });
    pool.submitAfter(0ms, once([held = std::move(submitsAtItsEnd)] {}));
    EXPECT_TRUE(called.wait());
}

TEST(WorkerPoolTest, ATaskMayDestroyThePool) {
    // Shared: the thread outlives the pool, and this test.
    const auto released = std::make_shared<Signal>();
    const auto destroyed = std::make_shared<Signal>();
    auto pool = std::make_shared<WorkerPool>();
    WorkerPool& borrowed = *pool;
    borrowed.submitAfter(
        0ms, [last = std::move(pool), released, destroyed]() mutable -> std::optional<ThreadPool::Duration> {
            EXPECT_TRUE(released->wait());
            last.reset();
            destroyed->set();
            return 0ms;
        });
    released->set();
    EXPECT_TRUE(destroyed->wait());
}

TEST(WorkerPoolTest, TasksMayBeSubmittedFromManyThreads) {
    constexpr int threads = 4;
    constexpr int tasksEach = 2000;
    std::atomic<int> called = 0;
    Signal done;
    WorkerPool pool;
    std::vector<std::thread> submitters;
    for (int i = 0; i < threads; ++i) {
        submitters.emplace_back([&] {
            for (int task = 0; task < tasksEach; ++task) {
                pool.submitAfter(std::chrono::microseconds(task % 50), once([&] {
                                     if (++called == threads * tasksEach) {
                                         done.set();
                                     }
                                 }));
            }
        });
    }
    for (auto& thread : submitters) {
        thread.join();
    }
    EXPECT_TRUE(done.wait());
}

TEST(WorkerPoolTest, AStopRequestDoesNotWaitForTheRunInProgress) {
    Signal running;
    Signal stopped;
    Signal over;
    const auto pool = std::make_shared<WorkerPool>();
    ScheduledTaskSubmitter submitter(pool);
    auto stop = submitter.submit(ResubmittingWork(
        [&] {
            running.set();
            EXPECT_TRUE(stopped.wait());
            over.set();
        },
        1ms, true));
    ASSERT_TRUE(running.wait());
    EXPECT_TRUE(stop.request_stop());
    stopped.set();
    ASSERT_TRUE(over.wait());
}

TEST(WorkerPoolTest, WorkGoesOnAfterARunThatThrows) {
    int runs = 0;
    Signal third;
    const auto pool = std::make_shared<WorkerPool>();
    ScheduledTaskSubmitter submitter(pool);
    submitter.submit(ResubmittingWork(
        [&] {
            if (++runs == 3) {
                third.set();
            }
            throw std::runtime_error("the channel is gone");
        },
        1ms, false));
    EXPECT_TRUE(third.wait());
    pool->stop();
}

TEST(WorkerPoolTest, StopRequestsFromOutsideEndAThousandTimersThatRun) {
    auto held = std::make_shared<std::atomic<int>>();
    const auto pool = std::make_shared<WorkerPool>();
    ScheduledTaskSubmitter submitter(pool);
    std::vector<stop_source> handles;
    handles.reserve(1000);
    for (int i = 0; i < 1000; ++i) {
        handles.push_back(submitter.submit(ResubmittingWork([held] { ++*held; }, 1ms, i % 2 == 0)));
    }
    for (auto& handle : handles) {
        handle.request_stop();
    }
    const auto until = std::chrono::steady_clock::now() + deadline;
    while (held.use_count() > 1 && std::chrono::steady_clock::now() < until) {
        std::this_thread::yield();
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST(WorkerPoolTest, RefusesToBeWithoutThreads) {
    EXPECT_THROW(WorkerPool(0), std::invalid_argument);
}

}  // namespace
}  // namespace foundation::concurrent::threadpool
