#include "ylutil/debugger/Debugger.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace ylutil::debugger {
namespace {

using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;

/// An error as the engine's are: it derives from `std::exception` directly.
class EngineError : public std::exception {
  public:
    const char* what() const noexcept override { return "refused"; }
};

/// Records its operations and leaves them to the test.
class RecordingDebugger final : public Debugger {
  public:
    std::vector<std::string> calls;
    std::vector<Breakpoint> breakpoints;
    std::shared_ptr<OperationCompletion> completion;
    bool throws = false;

  private:
    void setImpl(Breakpoint breakpoint, std::shared_ptr<OperationCompletion> done) override {
        breakpoints.push_back(std::move(breakpoint));
        record("set", std::move(done));
    }
    void clearImpl(Breakpoint breakpoint, std::shared_ptr<OperationCompletion> done) override {
        breakpoints.push_back(std::move(breakpoint));
        record("clear", std::move(done));
    }
    void clearAllImpl(std::shared_ptr<OperationCompletion> done) override {
        record("clear all", std::move(done));
    }

    void record(const std::string& call, std::shared_ptr<OperationCompletion> done) {
        calls.push_back(call);
        if (throws) {
            throw EngineError();
        }
        completion = std::move(done);
    }
};

class DebuggerTest : public testing::Test {
  protected:
    std::future<void> set(LineBreakpoint breakpoint = LineBreakpoint(u"a.py")) {
        return debugger.setBreakpoint<void>(std::move(breakpoint), recorder());
    }

    /// Records "ok", or the text of the failure.
    std::function<void(boost::shared_future<void>)> recorder() {
        return [this](const boost::shared_future<void>& future) {
            EXPECT_TRUE(future.is_ready());
            try {
                future.get();
                outcomes.emplace_back("ok");
            } catch (const EngineError& error) {
                outcomes.emplace_back(std::string("engine: ") + error.what());
            } catch (const std::exception& error) {
                outcomes.emplace_back(error.what());
            }
        };
    }

    std::vector<std::string> outcomes;
    RecordingDebugger debugger;
};

TEST_F(DebuggerTest, EachOperationReachesTheEngineWithItsBreakpoint) {
    const GlobalBreakpoint global(GlobalBreakpoint::Condition::NanInf);
    const LineBreakpoint line(u"a.py", LineBreakpoint::Location(3));
    debugger.setBreakpoint<void>(global, recorder());
    debugger.clearBreakpoint<void>(global, recorder());
    debugger.setBreakpoint<void>(line, recorder());
    debugger.clearBreakpoint<void>(line, recorder());
    debugger.clearAllBreakpoints<void>(recorder());
    EXPECT_EQ(debugger.calls, (std::vector<std::string>{"set", "clear", "set", "clear", "clear all"}));
    EXPECT_EQ(debugger.breakpoints, (std::vector<Breakpoint>{global, global, line, line}));
}

TEST_F(DebuggerTest, TheCallbackRunsWhenTheEngineSettlesTheOperation) {
    auto future = set();
    EXPECT_TRUE(outcomes.empty());
    EXPECT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    debugger.completion->succeed();
    EXPECT_EQ(outcomes, std::vector<std::string>{"ok"});
    EXPECT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
}

TEST_F(DebuggerTest, AnErrorOfTheEngineKeepsItsType) {
    set();
    debugger.completion->fail(std::make_exception_ptr(EngineError()));
    EXPECT_EQ(outcomes, std::vector<std::string>{"engine: refused"});
}

TEST_F(DebuggerTest, AnyOtherErrorKeepsItsText) {
    set();
    debugger.completion->fail(std::make_exception_ptr(std::out_of_range("no such line")));
    EXPECT_EQ(outcomes, std::vector<std::string>{"no such line"});
}

TEST_F(DebuggerTest, WhatAnOperationThrowsFailsIt) {
    debugger.throws = true;
    set();
    EXPECT_EQ(outcomes, std::vector<std::string>{"engine: refused"});
}

TEST_F(DebuggerTest, OnlyTheFirstOutcomeCounts) {
    set();
    debugger.completion->succeed();
    debugger.completion->fail(std::make_exception_ptr(EngineError()));
    debugger.completion->succeed();
    debugger.completion.reset();
    EXPECT_EQ(outcomes, std::vector<std::string>{"ok"});
}

TEST_F(DebuggerTest, AnOperationThatIsDroppedFails) {
    set();
    debugger.completion.reset();
    EXPECT_EQ(outcomes,
              std::vector<std::string>{"The operation was dropped before the debugger answered it."});
}

TEST_F(DebuggerTest, TheReturnedFutureHoldsWhatTheCallbackThrows) {
    auto future =
        debugger.clearAllBreakpoints<void>([](const boost::shared_future<void>&) { throw EngineError(); });
    debugger.completion->succeed();
    EXPECT_THROW(future.get(), EngineError);
}

TEST(OperationCompletionTest, WhatACallbackThrowsGoesNoFurther) {
    int calls = 0;
    OperationCompletion completion([&calls](const boost::shared_future<void>&) {
        ++calls;
        throw EngineError();
    });
    completion.succeed();
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace ylutil::debugger
