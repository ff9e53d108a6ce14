#include "cmddistributor/CmdDistributor.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace cmddistributor {
namespace {

/// Keeps submissions, or refuses them.
class KeepingDistributor final : public CmdDistributor {
  public:
    boost::shared_future<CancelStatus> cancel(const IDType&, bool) override { return {}; }
    void cancelGroup(const std::string&, bool) override {}

    bool refuses = false;
    std::vector<Submission> kept;

  private:
    void enqueueImpl(Submission& submission) override {
        if (refuses) {
            throw std::runtime_error("refused");
        }
        kept.push_back(std::move(submission));
    }
};

std::shared_ptr<CmdRequest> makeRequest() {
    return std::make_shared<EvalCmdRequest>(false, -2, nullptr, nullptr, u"1", "test");
}

class CmdDistributorTest : public ::testing::Test {
  protected:
    boost::future<void> enqueue(std::shared_ptr<CmdRequest> request) {
        return distributor.enqueueWithFuture<void>(
            std::move(request), [this](boost::future<void>) { ++completions; }, RunOptions(), id, context);
    }

    void expectThrows(std::shared_ptr<CmdRequest> request, const std::string& text) {
        try {
            enqueue(std::move(request));
            FAIL() << "accepted";
        } catch (const std::exception& error) {
            EXPECT_EQ(error.what(), text);
        }
        EXPECT_EQ(completions, 0);
        EXPECT_TRUE(distributor.kept.empty());
    }

    int completions = 0;
    KeepingDistributor distributor;
    CmdDistributor::IDType id;
    std::shared_ptr<void> context = std::make_shared<int>(1);
};

TEST_F(CmdDistributorTest, ASubmissionCarriesWhatItWasGiven) {
    const auto request = makeRequest();
    enqueue(request);
    ASSERT_EQ(distributor.kept.size(), 1u);
    EXPECT_EQ(distributor.kept[0].id, id);
    EXPECT_EQ(distributor.kept[0].request, request);
    EXPECT_EQ(distributor.kept[0].context, context);
    EXPECT_EQ(completions, 0);
}

TEST_F(CmdDistributorTest, ANullRequestIsRefused) {
    EXPECT_THROW(enqueue(nullptr), std::invalid_argument);
    expectThrows(nullptr, "request cannot be null.");
}

TEST_F(CmdDistributorTest, ARequestWithoutAnIIPIsRefused) {
    const auto request = std::make_shared<CmdRequest>(nullptr, 0, nullptr, nullptr, "test");
    EXPECT_THROW(enqueue(request), std::invalid_argument);
    expectThrows(request, "request must contain an IIP.");
}

TEST_F(CmdDistributorTest, ASubmissionThatThrowsNeverRunsItsCompletion) {
    distributor.refuses = true;
    expectThrows(makeRequest(), "refused");
}

TEST_F(CmdDistributorTest, TheFutureIsFulfilledWhenTheCompletionHasRun) {
    auto done = enqueue(makeRequest());
    EXPECT_FALSE(done.is_ready());
    distributor.kept[0].delegate->succeed({});
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(done.is_ready());
}

}  // namespace
}  // namespace cmddistributor
