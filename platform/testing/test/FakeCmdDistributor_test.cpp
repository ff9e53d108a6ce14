#include "testing/FakeCmdDistributor.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace platform_testing {
namespace {

using cmddistributor::RuntimeException;
using IDType = FakeCmdDistributor::IDType;

class FakeCmdDistributorTest : public ::testing::Test {
  protected:
    IDType submit() {
        const IDType id;
        distributor->enqueueWithFuture<void>(
            std::make_shared<cmddistributor::EvalCmdRequest>(true, 0, nullptr, nullptr, u"1+1", "test"),
            [this](boost::future<void> future) {
                try {
                    future.get();
                    outcomes.push_back("ok");
                } catch (const std::exception& error) {
                    outcomes.push_back(error.what());
                }
            },
            {}, id, nullptr);
        return id;
    }

    std::vector<std::string> outcomes;
    boost::shared_ptr<FakeCmdDistributor> distributor = FakeCmdDistributor::create();
};

TEST_F(FakeCmdDistributorTest, RecordsCommandsAndSettlesThemByHand) {
    const auto first = submit();
    const auto second = submit();
    ASSERT_TRUE(distributor->waitForCommands(2));
    EXPECT_EQ(distributor->commands().front().id, first);
    EXPECT_EQ(distributor->lastCommand().id, second);
    EXPECT_EQ(distributor->lastCommand().eval().command, u"1+1");
    EXPECT_TRUE(outcomes.empty());

    distributor->fail(second, RuntimeException(RuntimeException::Status::CommandFailed, u"failed"));
    distributor->succeed(first);
    EXPECT_EQ(outcomes, (std::vector<std::string>{"failed", "ok"}));
    EXPECT_FALSE(distributor->isUnsettled(first));
    EXPECT_THROW(distributor->succeed(first), std::out_of_range);
    EXPECT_EQ(distributor->commands().size(), 2u);
}

TEST_F(FakeCmdDistributorTest, SettlesWithAnyException) {
    distributor->fail(submit(), std::make_exception_ptr(std::runtime_error("plain")));
    EXPECT_EQ(outcomes, std::vector<std::string>{"plain"});
}

TEST_F(FakeCmdDistributorTest, ASubmissionThatIsToldToFailThrowsAndRunsNoCompletion) {
    distributor->failSubmissions(std::make_exception_ptr(std::runtime_error("full")));
    EXPECT_THROW(submit(), std::runtime_error);
    EXPECT_TRUE(distributor->commands().empty());
    EXPECT_TRUE(outcomes.empty());
    distributor->failSubmissions(nullptr);
    EXPECT_TRUE(distributor->isUnsettled(submit()));
}

TEST_F(FakeCmdDistributorTest, SettlesAtOnceWhenToldSo) {
    distributor->succeedAtOnce();
    submit();
    EXPECT_EQ(outcomes, std::vector<std::string>{"ok"});
}

TEST_F(FakeCmdDistributorTest, RecordsCancelsAndAnswersThemAsTold) {
    const IDType id;
    EXPECT_EQ(distributor->cancel(id, true).get(), FakeCmdDistributor::UNABLE_TO_CANCEL_OTHER);
    distributor->answerCancels(static_cast<FakeCmdDistributor::CancelStatus>(7));
    EXPECT_EQ(distributor->cancel(id, false).get(), 7);

    boost::promise<FakeCmdDistributor::CancelStatus> pending;
    distributor->answerCancels(pending.get_future().share());
    EXPECT_FALSE(distributor->cancel(id, true).is_ready());

    distributor->failCancels(std::make_exception_ptr(std::runtime_error("no")));
    EXPECT_THROW(distributor->cancel(id, true), std::runtime_error);
    EXPECT_THROW(distributor->cancelGroup("group", false), std::runtime_error);

    ASSERT_EQ(distributor->cancels().size(), 4u);
    EXPECT_EQ(distributor->cancels()[1].id, id);
    EXPECT_FALSE(distributor->cancels()[1].interrupt);
    ASSERT_EQ(distributor->groupCancels().size(), 1u);
    EXPECT_EQ(distributor->groupCancels()[0].groupName, "group");
}

TEST_F(FakeCmdDistributorTest, WhatIsLeftUnsettledFailsAtTheEnd) {
    submit();
    distributor.reset();
    EXPECT_EQ(outcomes, std::vector<std::string>{"The command was dropped before the engine answered it."});
}

}  // namespace
}  // namespace platform_testing
