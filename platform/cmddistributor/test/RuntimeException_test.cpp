#include "cmddistributor/RuntimeException.hpp"

#include <boost/thread/future.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <type_traits>

namespace cmddistributor {
namespace {

using Status = RuntimeException::Status;

RuntimeException fullException() {
    return {Status::CommandFailed,
            std::u16string(u"division by zero"),
            "ZeroDivisionError",
            "divide",
            {{"<command>", "<module>", 1, "divide(1, 0)"}, {"lib.py", "divide", 7, "return a / b"}},
            {RuntimeException(Status::CommandFailed, u"the cause", "ValueError")},
            true,
            {std::int64_t{-7}, std::u16string(u"x")},
            {{"kind", "arithmetic"}}};
}

void expectFull(const RuntimeException& error) {
    EXPECT_EQ(error.getExecutionStatus(), Status::CommandFailed);
    EXPECT_STREQ(error.what(), "division by zero");
    EXPECT_EQ(error.GetUnicodeMessageTxt(), u"division by zero");
    EXPECT_EQ(error.GetID(), "ZeroDivisionError");
    EXPECT_EQ(error.getFunctionName(), "divide");
    ASSERT_EQ(error.getStackFrames().size(), 2u);
    EXPECT_EQ(error.getStackFrames()[1], (StackFrame{"lib.py", "divide", 7, "return a / b"}));
    ASSERT_EQ(error.getCauses().size(), 1u);
    EXPECT_EQ(error.getCauses()[0].GetID(), "ValueError");
    EXPECT_TRUE(error.getShutdown());
    ASSERT_EQ(error.GetArguments().size(), 2u);
    EXPECT_EQ(boost::get<std::int64_t>(error.GetArguments()[0]), -7);
    ASSERT_TRUE(error.getExceptionJson());
    EXPECT_EQ(error.getExceptionJson()->at("kind"), foundation::json::Value("arithmetic"));
}

void expectFullFrom(const std::function<void()>& thrower) {
    try {
        thrower();
        FAIL() << "nothing was thrown";
    } catch (const RuntimeException& error) {
        expectFull(error);
    } catch (const std::exception& error) {
        FAIL() << "sliced to " << typeid(error).name() << ": " << error.what();
    }
}

TEST(RuntimeExceptionTest, HoldsWhatItWasGiven) {
    expectFull(fullException());
}

TEST(RuntimeExceptionTest, WhatIsOptionalIsEmpty) {
    const RuntimeException error(Status::Unclassified, u"text");
    EXPECT_EQ(error.GetID(), "");
    EXPECT_EQ(error.getFunctionName(), "");
    EXPECT_TRUE(error.getStackFrames().empty());
    EXPECT_TRUE(error.getCauses().empty());
    EXPECT_FALSE(error.getShutdown());
    EXPECT_TRUE(error.GetArguments().empty());
    EXPECT_FALSE(error.getExceptionJson());
}

TEST(RuntimeExceptionTest, MessagesConvertLenientlyBothWays) {
    const RuntimeException fromUtf8(Status::RequestInvalid, std::string("caf\xC3\xA9 \xFF"));
    EXPECT_EQ(fromUtf8.GetUnicodeMessageTxt(), u"caf\u00e9 \ufffd");
    EXPECT_STREQ(fromUtf8.what(), "caf\xC3\xA9 \xEF\xBF\xBD");

    const std::u16string lone = u"a" + std::u16string(1, char16_t(0xDE00));
    const RuntimeException fromUnicode(Status::CommandFailed, lone);
    EXPECT_EQ(fromUnicode.GetUnicodeMessageTxt(), lone);
    EXPECT_STREQ(fromUnicode.what(), "a\xEF\xBF\xBD");
}

TEST(RuntimeExceptionTest, WithStatusChangesTheStatusAlone) {
    const auto changed = fullException().withStatus(Status::Cancelled);
    EXPECT_EQ(changed.getExecutionStatus(), Status::Cancelled);
    expectFull(changed.withStatus(Status::CommandFailed));
}

std::size_t depth(const RuntimeException& error) {
    std::size_t levels = 0;
    for (const auto* next = &error; !next->getCauses().empty(); next = &next->getCauses()[0]) {
        ++levels;
    }
    return levels;
}

TEST(RuntimeExceptionTest, CausesBelowTheBoundAreDroppedAndTheNearestKept) {
    RuntimeException error(Status::CommandFailed, u"0");
    for (int level = 1; level <= 500; ++level) {
        error = RuntimeException(Status::CommandFailed, std::to_string(level), {}, {}, {}, {error});
        ASSERT_EQ(depth(error), std::min<std::size_t>(level, RuntimeException::maxCauseDepth));
    }
    const auto* next = &error;
    for (int level = 500; level > 500 - static_cast<int>(RuntimeException::maxCauseDepth); --level) {
        EXPECT_EQ(next->what(), std::to_string(level));
        next = &next->getCauses().at(0);
    }
}

TEST(RuntimeExceptionTest, ACopyOutlivesItsOriginal) {
    auto original = std::make_unique<RuntimeException>(fullException());
    const RuntimeException copy = *original;
    const RuntimeException moved = std::move(*original);
    original.reset();
    expectFull(copy);
    expectFull(moved);
}

static_assert(std::is_base_of_v<std::exception, RuntimeException>);
static_assert(!std::is_base_of_v<std::runtime_error, RuntimeException>);
static_assert(std::is_nothrow_copy_constructible_v<RuntimeException>);

// Each way through a future that Boost offers. From a class that derives from std::runtime_error most of
// them would deliver that base alone.

TEST(RuntimeExceptionThroughBoostTest, SurvivesSetExceptionByItsStaticType) {
    expectFullFrom([] {
        boost::promise<int> promise;
        promise.set_exception(fullException());
        promise.get_future().get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesCurrentException) {
    expectFullFrom([] {
        boost::promise<int> promise;
        try {
            throw fullException();
        } catch (...) {
            promise.set_exception(boost::current_exception());
        }
        promise.get_future().get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesCurrentExceptionAfterARethrow) {
    expectFullFrom([] {
        boost::promise<int> promise;
        try {
            std::rethrow_exception(std::make_exception_ptr(fullException()));
        } catch (...) {
            promise.set_exception(boost::current_exception());
        }
        promise.get_future().get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesCopyException) {
    expectFullFrom([] {
        boost::promise<int> promise;
        promise.set_exception(boost::copy_exception(fullException()));
        promise.get_future().get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesEnableCurrentException) {
    expectFullFrom([] {
        boost::promise<int> promise;
        try {
            throw boost::enable_current_exception(fullException());
        } catch (...) {
            promise.set_exception(boost::current_exception());
        }
        promise.get_future().get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesAPackagedTask) {
    expectFullFrom([] {
        boost::packaged_task<int()> task([]() -> int { throw fullException(); });
        auto future = task.get_future();
        task();
        future.get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesAsync) {
    expectFullFrom([] { boost::async(boost::launch::async, []() -> int { throw fullException(); }).get(); });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesAThrowingContinuation) {
    expectFullFrom([] {
        boost::make_ready_future(1).then([](boost::future<int>) -> int { throw fullException(); }).get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesAContinuationThatPassesItOn) {
    expectFullFrom([] {
        boost::promise<int> promise;
        auto passedOn = promise.get_future().then([](boost::future<int> future) { return future.get(); });
        promise.set_exception(fullException());
        passedOn.get();
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesMakeExceptionalFuture) {
    expectFullFrom([] {
        try {
            throw fullException();
        } catch (...) {
            boost::make_exceptional_future<int>(boost::current_exception()).get();
        }
    });
}

TEST(RuntimeExceptionThroughBoostTest, SurvivesASharedFuture) {
    expectFullFrom([] {
        boost::promise<int> promise;
        promise.set_exception(fullException());
        const auto shared = promise.get_future().share();
        EXPECT_THROW(shared.get(), RuntimeException);
        shared.get();
    });
}

}  // namespace
}  // namespace cmddistributor
