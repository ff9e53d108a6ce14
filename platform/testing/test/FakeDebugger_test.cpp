#include "testing/FakeDebugger.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace platform_testing {
namespace {

using Operation = FakeDebugger::Operation;
using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;

class FakeDebuggerTest : public testing::Test {
  protected:
    /// Records "NAME ok", or "NAME" and the text of the failure.
    std::function<void(boost::shared_future<void>)> recorder(std::string name) {
        return [this, name = std::move(name)](const boost::shared_future<void>& future) {
            try {
                future.get();
                outcomes.push_back(name + " ok");
            } catch (const std::exception& error) {
                outcomes.push_back(name + " " + error.what());
            }
        };
    }

    std::vector<std::string> outcomes;
    std::shared_ptr<FakeDebugger> debugger = std::make_shared<FakeDebugger>();
    const LineBreakpoint line{u"a.py"};
    const GlobalBreakpoint global{GlobalBreakpoint::Condition::Error};
};

TEST_F(FakeDebuggerTest, RecordsOperationsAndSettlesThemInTheOrderOfTheTest) {
    debugger->setBreakpoint<void>(line, recorder("set"));
    debugger->clearBreakpoint<void>(global, recorder("clear"));
    debugger->clearAllBreakpoints<void>(recorder("all"));
    EXPECT_EQ(debugger->operations(),
              (std::vector<Operation>{{FakeDebugger::Action::Set, line},
                                      {FakeDebugger::Action::Clear, global},
                                      {FakeDebugger::Action::ClearAll, std::nullopt}}));
    EXPECT_TRUE(outcomes.empty());
    debugger->succeed(2);
    debugger->fail(0, std::make_exception_ptr(std::runtime_error("no")));
    EXPECT_EQ(outcomes, (std::vector<std::string>{"all ok", "set no"}));
    EXPECT_THROW(debugger->succeed(3), std::out_of_range);
    debugger.reset();
    EXPECT_EQ(outcomes.back(), "clear The operation was dropped before the debugger answered it.");
}

TEST_F(FakeDebuggerTest, AnswersAtOnceWhenTold) {
    debugger->answerAtOnce();
    debugger->setBreakpoint<void>(line, recorder("a"));
    debugger->answerAtOnce(std::make_exception_ptr(std::runtime_error("no")));
    debugger->setBreakpoint<void>(line, recorder("b"));
    EXPECT_EQ(outcomes, (std::vector<std::string>{"a ok", "b no"}));
}

TEST_F(FakeDebuggerTest, ThrowsFromItsOperationsWhenTold) {
    debugger->failOperations(std::make_exception_ptr(std::runtime_error("no")));
    debugger->setBreakpoint<void>(line, recorder("a"));
    EXPECT_EQ(outcomes, std::vector<std::string>{"a no"});
    EXPECT_TRUE(debugger->operations().empty());
}

}  // namespace
}  // namespace platform_testing
