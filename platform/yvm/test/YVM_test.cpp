#include "yvm/YVM.hpp"

#include "testing/FakeCmdDistributor.hpp"
#include "testing/FakeYvm.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

namespace yvm {
namespace {

using cmddistributor::RuntimeException;
using foundation::yorlabdata::Array;
using platform_testing::FakeCmdDistributor;
using platform_testing::FakeYvm;
using Arrays = YVM::Arrays;

const Array text(std::u16string(u"a"));

class FevalWithCompletionTest : public ::testing::Test {
  protected:
    void feval(Arrays arguments = {text}, cmddistributor::RunOptions options = {}) {
        engine->fevalWithCompletion(
            "numpy.linalg.svd", std::move(arguments), 3,
            [this](Future<Arrays> future) {
                ++completions;
                outcome.emplace(std::move(future));
            },
            std::move(options), true, id, "a/Caller");
    }

    int completions = 0;
    std::optional<Future<Arrays>> outcome;
    YVM::IDType id;
    boost::shared_ptr<FakeCmdDistributor> distributor = FakeCmdDistributor::create();
    std::shared_ptr<FakeYvm> engine = FakeYvm::create(distributor);
};

TEST_F(FevalWithCompletionTest, QueuesARequestWithAllThatWasGiven) {
    cmddistributor::RunOptions options;
    options.addGroupName("group");
    options.setOutStream(boost::make_shared<ylutil::io::YLNoOutputStreamBuffer>(), {});
    feval({text, Array()}, options);

    const auto command = distributor->lastCommand();
    EXPECT_EQ(command.id, id);
    EXPECT_EQ(command.feval().function, "numpy.linalg.svd");
    EXPECT_EQ(command.feval().arguments, (Arrays{text, Array()}));
    EXPECT_EQ(command.feval().numOutputs, 3u);
    EXPECT_TRUE(command.feval().flag);
    EXPECT_EQ(command.request->getStreamID(), -2);
    EXPECT_EQ(command.request->getSourceTag(), "a/Caller");
    EXPECT_EQ(command.request->getOutSink(), options.getOutSink());
    EXPECT_FALSE(command.request->getErrSink());
    EXPECT_EQ(command.runOptions.getGroupNames(), std::vector<std::string>{"group"});
    EXPECT_FALSE(command.context);
    EXPECT_EQ(completions, 0);
}

TEST_F(FevalWithCompletionTest, DeliversTheOutputs) {
    feval();
    distributor->succeed(id, {text, text});
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(outcome->get(), (Arrays{text, text}));
    EXPECT_THROW(outcome->get(), std::runtime_error);
}

TEST_F(FevalWithCompletionTest, DeliversAnErrorWhole) {
    feval();
    distributor->fail(
        id, RuntimeException(RuntimeException::Status::CommandFailed, u"text", "LinAlgError", "svd"));
    ASSERT_EQ(completions, 1);
    try {
        outcome->get();
        FAIL() << "no failure";
    } catch (const RuntimeException& error) {
        EXPECT_EQ(error.GetID(), "LinAlgError");
        EXPECT_EQ(error.getFunctionName(), "svd");
    }
}

TEST_F(FevalWithCompletionTest, AnEngineWithoutADistributorThrows) {
    engine->setCmdDistributor({});
    try {
        feval();
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(),
                     "The engine has no command distributor to take the call of \"numpy.linalg.svd\".");
    }
    EXPECT_EQ(completions, 0);
}

TEST_F(FevalWithCompletionTest, AnArgumentWithoutMemoryThrowsBeforeAnythingIsQueued) {
    EXPECT_THROW(feval({Array(foundation::yorlabdata::Kind::float64, {2}, nullptr)}), std::invalid_argument);
    EXPECT_TRUE(distributor->commands().empty());
    EXPECT_EQ(completions, 0);
}

TEST_F(FevalWithCompletionTest, ASubmissionThatThrowsRunsNoCompletion) {
    distributor->failSubmissions(std::make_exception_ptr(std::runtime_error("full")));
    EXPECT_THROW(feval(), std::runtime_error);
    EXPECT_EQ(completions, 0);
}

}  // namespace
}  // namespace yvm
