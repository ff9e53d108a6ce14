#include "testing/FakeThreadPool.hpp"

#include "cppmicroservices/Framework.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "testing/FrameworkWithFakePool.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

namespace platform_testing {
namespace {

using namespace std::chrono_literals;
using foundation::concurrent::threadpool::ThreadPool;

TEST(FakeThreadPoolTest, RunsWhatIsDueInTheOrderOfMomentsAndSubmissions) {
    FakeThreadPool pool;
    std::string order;
    const auto append = [&order](char letter) {
        return [&order, letter]() -> std::optional<ThreadPool::Duration> {
            order += letter;
            return std::nullopt;
        };
    };
    pool.submitAfter(2ms, append('c'));
    pool.submitAfter(1ms, append('a'));
    pool.submitAfter(1ms, append('b'));
    pool.submitAfter(4ms, append('d'));
    EXPECT_EQ(order, "");
    pool.advance(3ms);
    EXPECT_EQ(order, "abc");
    EXPECT_EQ(pool.waiting(), 1U);
}

TEST(FakeThreadPoolTest, ATaskThatTakesTimeDelaysWhatIsDueMeanwhile) {
    FakeThreadPool pool;
    int slow = 0;
    int other = 0;
    pool.submitAfter(1ms, [&]() -> std::optional<ThreadPool::Duration> {
        ++slow;
        pool.takeTime(10ms);
        return 1ms;
    });
    pool.submitAfter(2ms, [&]() -> std::optional<ThreadPool::Duration> {
        EXPECT_EQ(slow, 1);
        ++other;
        return std::nullopt;
    });
    pool.advance(2ms);
    EXPECT_EQ(other, 1) << "late, but due";
    EXPECT_EQ(slow, 1);
    pool.advance(1ms);
    EXPECT_EQ(slow, 2);
}

TEST(FrameworkWithFakePoolTest, ServesItsPoolAsTheOneOfTheProcess) {
    {
        FrameworkWithFakePool owner;
        const auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
        EXPECT_EQ(
            context.GetService(context.GetServiceReference<ThreadPool>(cppmicroservices::LDAPFilter())).get(),
            &owner.pool());
        EXPECT_EQ(cppmicroservices::us_service_interface_iid<ThreadPool>(),
                  "foundation::concurrent::threadpool::ThreadPool");
    }
    EXPECT_EQ(foundation::cppmicroservices::getFramework(), nullptr);
}

}  // namespace
}  // namespace platform_testing
