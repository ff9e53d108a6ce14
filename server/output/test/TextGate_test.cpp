#include "server/output/TextGate.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "testing/FakeThreadPool.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

namespace server::output {
namespace {

using std::chrono::milliseconds;
using IDType = TextGate::IDType;
using Way = TextGate::Way;

class FakeReader final : public TextReader {
  public:
    void giveUp() noexcept override { ++givenUp; }

    int givenUp = 0;
};

class TextGateTest : public testing::Test {
  protected:
    static TextGate::Options smallOptions() {
        TextGate::Options options;
        options.maxUnpublished = 100;
        options.publishWait = milliseconds(500);
        options.maxWait = milliseconds(10'000);
        return options;
    }

    TextGateTest() {
        gate->onOpened([this] { ++openings; });
    }

    /// As the text of `command` brings the queue of `by` above the high water.
    void hold(const std::shared_ptr<FakeReader>& by, const IDType& command, Way way = Way::OwnStreams) const {
        const cmddistributor::RequestIdScope scope(command);
        gate->hold(by, way);
    }
    bool ownMayWrite(const IDType& command) const { return gate->mayWrite(Way::OwnStreams, command); }
    bool clientWideMayWrite() const { return gate->mayWrite(Way::ClientWideSinks, first); }

    const std::shared_ptr<platform_testing::FakeThreadPool> pool =
        std::make_shared<platform_testing::FakeThreadPool>();
    const std::shared_ptr<TextGate> gate = std::make_shared<TextGate>(smallOptions(), pool);
    const std::shared_ptr<FakeReader> reader = std::make_shared<FakeReader>();
    const IDType first;
    const IDType second;
    int openings = 0;
};

TEST_F(TextGateTest, EverybodyMayWriteAtFirst) {
    EXPECT_TRUE(ownMayWrite(first));
    EXPECT_TRUE(ownMayWrite(IDType::null()));
    EXPECT_TRUE(clientWideMayWrite());
    EXPECT_EQ(gate->waits(), 0U);
}

TEST_F(TextGateTest, AReaderHoldsTheCommandWhoseTextItTakesAndNoOther) {
    hold(reader, first);
    EXPECT_FALSE(ownMayWrite(first));
    EXPECT_TRUE(ownMayWrite(second));
    EXPECT_TRUE(clientWideMayWrite());
    EXPECT_EQ(gate->waits(), 1U);
}

TEST_F(TextGateTest, AReaderOfClientWideTextHoldsAllThatWriteThere) {
    hold(reader, IDType::null(), Way::ClientWideSinks);
    EXPECT_FALSE(gate->mayWrite(Way::ClientWideSinks, first));
    EXPECT_FALSE(gate->mayWrite(Way::ClientWideSinks, second));
    EXPECT_TRUE(ownMayWrite(first));
}

TEST_F(TextGateTest, AReaderThatHasCaughtUpLetsItsWritersGoOn) {
    hold(reader, first);
    hold(reader, second);
    hold(reader, first, Way::ClientWideSinks);
    gate->release(*reader);
    EXPECT_TRUE(ownMayWrite(first));
    EXPECT_TRUE(ownMayWrite(second));
    EXPECT_TRUE(clientWideMayWrite());
    EXPECT_EQ(openings, 1);
    gate->release(*reader);
    EXPECT_EQ(openings, 1) << "it held nobody any more";
}

TEST_F(TextGateTest, ACommandWaitsForAllItsReaders) {
    const auto other = std::make_shared<FakeReader>();
    hold(reader, first);
    hold(other, first);
    gate->release(*reader);
    EXPECT_FALSE(ownMayWrite(first));
    gate->release(*other);
    EXPECT_TRUE(ownMayWrite(first));
}

TEST_F(TextGateTest, AReaderIsGivenUpWhenAWriterHasWaitedTooLong) {
    hold(reader, first);
    pool->advance(milliseconds(60'000));
    EXPECT_EQ(reader->givenUp, 0) << "nobody has waited";
    EXPECT_FALSE(ownMayWrite(first));
    pool->advance(milliseconds(9'999));
    EXPECT_FALSE(ownMayWrite(first));
    EXPECT_EQ(reader->givenUp, 0);
    pool->advance(milliseconds(1));
    EXPECT_EQ(reader->givenUp, 1);
    EXPECT_TRUE(ownMayWrite(first));
    EXPECT_EQ(openings, 2) << "to ask again, and to write";
}

TEST_F(TextGateTest, AReaderWhoseWriterWaitsNoMoreIsNotGivenUp) {
    hold(reader, first);
    EXPECT_FALSE(ownMayWrite(first));
    pool->advance(milliseconds(60'000));
    EXPECT_EQ(reader->givenUp, 0) << "the writer was told to ask again, and did not";
    EXPECT_EQ(pool->waiting(), 0U);

    EXPECT_FALSE(ownMayWrite(first));
    pool->advance(milliseconds(9'999));
    EXPECT_FALSE(ownMayWrite(first));
    EXPECT_EQ(reader->givenUp, 0) << "who waits then has the whole wait";
    pool->advance(milliseconds(1));
    EXPECT_EQ(reader->givenUp, 1);
}

TEST_F(TextGateTest, AReaderOfSinksThatWereReplacedIsNotGivenUp) {
    hold(reader, first, Way::ClientWideSinks);
    EXPECT_FALSE(clientWideMayWrite());
    gate->sinksReplaced();
    EXPECT_TRUE(clientWideMayWrite());
    pool->advance(milliseconds(60'000));
    EXPECT_EQ(reader->givenUp, 0);
}

TEST_F(TextGateTest, AReaderThatHasCaughtUpInTimeHasTheWholeWaitAgain) {
    hold(reader, first);
    EXPECT_FALSE(ownMayWrite(first));
    pool->advance(milliseconds(9'000));
    gate->release(*reader);
    hold(reader, first);
    EXPECT_FALSE(ownMayWrite(first));
    pool->advance(milliseconds(9'999));
    EXPECT_FALSE(ownMayWrite(first));
    EXPECT_EQ(reader->givenUp, 0);
    pool->advance(milliseconds(1));
    EXPECT_EQ(reader->givenUp, 1);
}

TEST_F(TextGateTest, AReaderThatHasGoneIsNotGivenUp) {
    hold(reader, first);
    EXPECT_FALSE(ownMayWrite(first));
    gate->release(*reader);
    pool->advance(milliseconds(60'000));
    EXPECT_EQ(reader->givenUp, 0);
    EXPECT_EQ(pool->waiting(), 0U);
}

TEST_F(TextGateTest, TextThatWaitsToBePublishedHoldsTheClientWideWritersAlone) {
    gate->hasWritten(Way::OwnStreams, first, 1'000);
    gate->hasWritten(Way::ClientWideSinks, first, 100);
    EXPECT_TRUE(clientWideMayWrite()) << "the bound itself is within it";
    gate->hasWritten(Way::ClientWideSinks, second, 1);
    EXPECT_FALSE(clientWideMayWrite());
    EXPECT_TRUE(ownMayWrite(first));
    gate->published();
    EXPECT_TRUE(clientWideMayWrite());
    EXPECT_EQ(openings, 1);
    gate->published();
    EXPECT_EQ(openings, 1) << "nobody waited";
}

TEST_F(TextGateTest, TextThatNobodyPublishesAnyMoreIsForgottenAfterAWait) {
    gate->hasWritten(Way::ClientWideSinks, first, 101);
    EXPECT_FALSE(clientWideMayWrite());
    EXPECT_FALSE(clientWideMayWrite());
    pool->advance(milliseconds(499));
    EXPECT_FALSE(clientWideMayWrite());
    pool->advance(milliseconds(1));
    EXPECT_TRUE(clientWideMayWrite());
    EXPECT_EQ(openings, 1);

    gate->hasWritten(Way::ClientWideSinks, first, 101);
    EXPECT_FALSE(clientWideMayWrite());
    pool->advance(milliseconds(500));
    EXPECT_TRUE(clientWideMayWrite()) << "and so each time";
}

TEST_F(TextGateTest, OtherSinksBeginAnew) {
    gate->hasWritten(Way::ClientWideSinks, first, 101);
    hold(reader, first, Way::ClientWideSinks);
    hold(reader, second);
    EXPECT_FALSE(clientWideMayWrite());
    gate->sinksReplaced();
    EXPECT_TRUE(clientWideMayWrite());
    EXPECT_FALSE(ownMayWrite(second)) << "its own text has nothing to do with it";
    EXPECT_EQ(openings, 1);
}

TEST_F(TextGateTest, NobodyIsToldWhoDoesNotWantToBe) {
    hold(reader, first);
    gate->onOpened({});
    gate->release(*reader);
    EXPECT_EQ(openings, 0);
}

TEST_F(TextGateTest, AGateThatHasGoneLeavesItsTimersHarmless) {
    auto gone = std::make_shared<TextGate>(smallOptions(), pool);
    gone->hold(reader, Way::ClientWideSinks);
    EXPECT_FALSE(gone->mayWrite(Way::ClientWideSinks, first));
    gone.reset();
    pool->advance(milliseconds(60'000));
    EXPECT_EQ(reader->givenUp, 0);
}

}  // namespace
}  // namespace server::output
