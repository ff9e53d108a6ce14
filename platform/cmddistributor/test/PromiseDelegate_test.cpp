#include "cmddistributor/PromiseDelegate.hpp"

#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

namespace cmddistributor {
namespace {

using Arrays = std::vector<foundation::yorlabdata::Array>;
using Status = RuntimeException::Status;

/// Keeps what came to a completion.
template <typename T>
struct Outcomes {
    std::vector<boost::future<T>> futures;

    std::function<void(boost::future<T>)> completion() {
        return [this](boost::future<T> future) { futures.push_back(std::move(future)); };
    }
};

TEST(PromiseDelegateTest, SuccessDeliversTheOutputs) {
    Outcomes<Arrays> outcomes;
    PromiseDelegateT<Arrays> delegate(outcomes.completion());
    delegate.succeed(FEvalResult({foundation::yorlabdata::Array(std::u16string(u"a"))}));
    ASSERT_EQ(outcomes.futures.size(), 1u);
    EXPECT_TRUE(outcomes.futures[0].is_ready());
    EXPECT_EQ(outcomes.futures[0].get(), Arrays{foundation::yorlabdata::Array(std::u16string(u"a"))});
}

TEST(PromiseDelegateTest, ACompletionOfNothingDropsTheOutputs) {
    Outcomes<void> outcomes;
    PromiseDelegateT<void> delegate(outcomes.completion());
    delegate.succeed(FEvalResult({foundation::yorlabdata::Array()}));
    ASSERT_EQ(outcomes.futures.size(), 1u);
    EXPECT_NO_THROW(outcomes.futures[0].get());
}

TEST(PromiseDelegateTest, FailureKeepsARuntimeException) {
    const RuntimeException error(Status::CommandFailed, u"text", "SomeError");
    for (const bool asPointer : {false, true}) {
        Outcomes<Arrays> outcomes;
        PromiseDelegateT<Arrays> delegate(outcomes.completion());
        if (asPointer) {
            delegate.fail(std::make_exception_ptr(error));
        } else {
            delegate.fail(error);
        }
        ASSERT_EQ(outcomes.futures.size(), 1u);
        try {
            outcomes.futures[0].get();
            FAIL() << "no failure";
        } catch (const RuntimeException& delivered) {
            EXPECT_EQ(delivered.GetID(), "SomeError");
        }
    }
}

TEST(PromiseDelegateTest, FailureByAnythingElseKeepsItsText) {
    Outcomes<void> outcomes;
    PromiseDelegateT<void> delegate(outcomes.completion());
    delegate.fail(std::make_exception_ptr(std::out_of_range("too far")));
    ASSERT_EQ(outcomes.futures.size(), 1u);
    try {
        outcomes.futures[0].get();
        FAIL() << "no failure";
    } catch (const std::exception& delivered) {
        EXPECT_STREQ(delivered.what(), "too far");
    }
}

TEST(PromiseDelegateTest, TheFirstOutcomeCounts) {
    Outcomes<void> outcomes;
    {
        PromiseDelegateT<void> delegate(outcomes.completion());
        delegate.succeed({});
        delegate.fail(RuntimeException(Status::CommandFailed, u"late"));
        delegate.succeed({});
    }
    ASSERT_EQ(outcomes.futures.size(), 1u);
    EXPECT_NO_THROW(outcomes.futures[0].get());
}

TEST(PromiseDelegateTest, ADelegateThatDiesUnsettledFailsItsSubmission) {
    Outcomes<void> outcomes;
    {
        const PromiseDelegateT<void> delegate(outcomes.completion());
    }
    ASSERT_EQ(outcomes.futures.size(), 1u);
    try {
        outcomes.futures[0].get();
        FAIL() << "no failure";
    } catch (const RuntimeException& delivered) {
        EXPECT_EQ(delivered.GetID(), abandonedIdentifier);
        EXPECT_EQ(delivered.getExecutionStatus(), Status::Unclassified);
        EXPECT_STREQ(delivered.what(), "The command was dropped before the engine answered it.");
    }
}

TEST(PromiseDelegateTest, ADismissedDelegateNeverRunsItsCompletion) {
    Outcomes<void> outcomes;
    {
        PromiseDelegateT<void> delegate(outcomes.completion());
        delegate.dismiss();
        delegate.succeed({});
    }
    EXPECT_TRUE(outcomes.futures.empty());
}

TEST(PromiseDelegateTest, TheEndIsToldAfterTheCompletionHasRun) {
    boost::future<void> done;
    bool readyInside = true;
    PromiseDelegateT<void> delegate([&](boost::future<void>) { readyInside = done.is_ready(); });
    done = delegate.getDone();
    delegate.succeed({});
    EXPECT_FALSE(readyInside);
    EXPECT_TRUE(done.is_ready());
    EXPECT_NO_THROW(done.get());
}

TEST(PromiseDelegateTest, WhatACompletionThrowsIsLoggedAndGoesNoFurther) {
    const platform_testing::LogCapture log;
    PromiseDelegateT<void> delegate([](boost::future<void>) { throw std::runtime_error("clumsy"); });
    auto done = delegate.getDone();
    EXPECT_NO_THROW(delegate.succeed({}));
    EXPECT_TRUE(done.is_ready());
    const auto texts = log.texts("cmddistributor::PromiseDelegate", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_TRUE(texts[0].starts_with("A completion threw: ")) << texts[0];
    EXPECT_NE(texts[0].find("clumsy"), std::string::npos) << texts[0];
}

}  // namespace
}  // namespace cmddistributor
