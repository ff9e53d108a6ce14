#include "testing/FakeYvm.hpp"

#include "testing/FakeCmdDistributor.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

namespace platform_testing {
namespace {

TEST(FakeYvmTest, HasThePartsThatItWasGiven) {
    const auto bare = FakeYvm::create();
    EXPECT_FALSE(bare->getCmdDistributor());
    EXPECT_FALSE(bare->getEventMgr());

    const auto distributor = FakeCmdDistributor::create();
    const auto events = foundation::msg_svc::eventmgr::EventMgr::create();
    const auto engine = FakeYvm::create(distributor, events);
    EXPECT_EQ(engine->getCmdDistributor(), distributor);
    EXPECT_EQ(engine->getEventMgr(), events);
    EXPECT_NE(engine->getIdentifier(), bare->getIdentifier());

    engine->setCmdDistributor({});
    engine->setEventMgr({});
    EXPECT_FALSE(engine->getCmdDistributor());
    EXPECT_FALSE(engine->getEventMgr());
}

TEST(FakeYvmTest, CountsInterruptsAndThrowsWhenTold) {
    const auto engine = FakeYvm::create();
    engine->interrupt();
    engine->failInterrupts(std::make_exception_ptr(std::runtime_error("no")));
    EXPECT_THROW(engine->interrupt(), std::runtime_error);
    EXPECT_EQ(engine->interruptCount(), 2);
}

TEST(FakeYvmTest, CountsBreakInsAndThrowsWhenTold) {
    const auto engine = FakeYvm::create();
    engine->breakInDebugger();
    engine->failBreakIns(std::make_exception_ptr(std::runtime_error("no")));
    EXPECT_THROW(engine->breakInDebugger(), std::runtime_error);
    EXPECT_EQ(engine->breakInCount(), 2);
}

TEST(FakeYvmTest, RestoresTheSinksOfTheTimeAndThrowsWhenTold) {
    const auto engine = FakeYvm::create();
    const auto makeSink = [] {
        return boost::make_shared<ylutil::io::YLSink>(
            boost::make_shared<ylutil::io::YLNoOutputStreamBuffer>(), ylutil::io::SinkTraits());
    };
    const auto out = makeSink();
    const auto err = makeSink();
    engine->replaceSinks(out, err);
    auto restorer = engine->makeSinkRestorer(engine);
    engine->replaceSinks(makeSink(), makeSink());
    EXPECT_NE(engine->outSink(), out);
    engine->failSinks(std::make_exception_ptr(std::runtime_error("no")));
    EXPECT_THROW(engine->replaceSinks({}, {}), std::runtime_error);
    EXPECT_NE(engine->outSink(), nullptr) << "a call that throws replaces nothing";
    engine->failSinks(nullptr);
    restorer.run();
    EXPECT_EQ(engine->outSink(), out);
    EXPECT_EQ(engine->errSink(), err);
}

}  // namespace
}  // namespace platform_testing
