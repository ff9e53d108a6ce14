#include "connector/Future.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace connector {
namespace {

template <typename Function>
std::string messageOfThrown(Function function) {
    try {
        function();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

/// Not derived from a standard exception: a future must carry any type whole.
struct Oddity {
    int number;
};

TEST(FutureTest, WithoutAStateSaysSo) {
    Future<int> future;
    EXPECT_FALSE(future.valid());
    EXPECT_EQ(messageOfThrown([&] { future.get(); }), "Future state isn't valid!");
}

TEST(FutureTest, AMovedFromFutureHasNoState) {
    Promise<int> promise;
    auto future = promise.getFuture();
    const auto taker = std::move(future);
    EXPECT_TRUE(taker.valid());
    EXPECT_EQ(messageOfThrown([&] { future.get(); }), "Future state isn't valid!");
}

TEST(FutureTest, GivesItsValueOnce) {
    auto future = makeReadyFuture<std::string>("text");
    EXPECT_EQ(future.get(), "text");
    EXPECT_EQ(messageOfThrown([&] { future.get(); }),
              "Future already returned it's value or has an associated continuation.");
}

TEST(FutureTest, TellsThatTheValueWasTakenBeforeItTellsOfTheCancel) {
    auto future = Promise<int>().getFuture();
    EXPECT_EQ(messageOfThrown([&] { future.get(); }), "Future has been cancelled.");
    EXPECT_EQ(messageOfThrown([&] { future.get(); }),
              "Future already returned it's value or has an associated continuation.");
}

TEST(FutureTest, ACancelledFutureSaysSo) {
    Promise<int> promise;
    auto future = promise.getFuture();
    promise.cancel();
    EXPECT_EQ(messageOfThrown([&] { future.get(); }), "Future has been cancelled.");
}

TEST(FutureTest, APromiseThatDiesOrIsReplacedCancels) {
    Promise<void> promise;
    auto future = promise.getFuture();
    promise = Promise<void>();
    EXPECT_EQ(messageOfThrown([&] { future.get(); }), "Future has been cancelled.");
}

TEST(FutureTest, RethrowsTheVeryException) {
    auto future = makeFailedFuture<int>(std::make_exception_ptr(Oddity{7}));
    try {
        future.get();
        FAIL() << "nothing was thrown";
    } catch (const Oddity& oddity) {
        EXPECT_EQ(oddity.number, 7);
    }
}

TEST(FutureTest, AnUnknownStateSaysSo) {
    auto state = std::make_shared<detail::FutureState<int>>();
    state->status = static_cast<detail::FutureStatus>(17);
    EXPECT_EQ(messageOfThrown([&] { Future<int>(state).get(); }), "Invalid Future state reached.");
}

TEST(FutureTest, TheFirstOutcomeCounts) {
    Promise<int> promise;
    auto future = promise.getFuture();
    promise.setValue(1);
    promise.setValue(2);
    promise.setException(std::make_exception_ptr(std::runtime_error("late")));
    promise.cancel();
    EXPECT_EQ(future.get(), 1);
}

TEST(FutureTest, CarriesAValueThatOnlyMoves) {
    Promise<std::unique_ptr<int>> promise;
    auto future = promise.getFuture();
    promise.setValue(std::make_unique<int>(5));
    EXPECT_EQ(*future.get(), 5);
}

TEST(FutureTest, CarriesAValueWithoutADefaultConstructor) {
    struct Plain {
        explicit Plain(int given) : number(given) {}
        int number;
    };
    Promise<Plain> promise;
    auto future = promise.getFuture();
    promise.setValue(Plain(3));
    EXPECT_EQ(future.get().number, 3);
}

TEST(FutureTest, WaitsForAnotherThreadEvenIfThePromiseDiesAtOnce) {
    // Many rounds, so that the waiter's end meets the setter's in different ways.
    for (int round = 0; round < 200; ++round) {
        Promise<int> promise;
        auto future = promise.getFuture();
        std::thread setter([promise = std::move(promise), round]() mutable { promise.setValue(round); });
        EXPECT_EQ(future.get(), round);
        setter.join();
    }
}

TEST(FutureTest, DroppingAFutureNeitherBlocksNorCancels) {
    Promise<int> promise;
    promise.getFuture();
    promise.setValue(4);
    EXPECT_EQ(promise.getFuture().get(), 4);
}

}  // namespace
}  // namespace connector
