// The three events of the debugger.

#include "yvm/BreakpointsChangedEvent.hpp"
#include "yvm/DebuggerResumedEvent.hpp"
#include "yvm/DebuggerStoppedEvent.hpp"

#include <gtest/gtest.h>

namespace yvm {
namespace {

using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;
using IDType = foundation::msg_svc::exchange::IDType;

TEST(DebuggerStoppedEventTest, CarriesWhereAndWhyTheCommandStopped) {
    const IDType id;
    const std::vector<cmddistributor::StackFrame> frames = {{"a.py", "<module>", 9, "f()"},
                                                            {"a.py", "f", 3, "x = 1"}};
    const DebuggerStoppedEvent event(id, DebuggerStoppedEvent::Reason::Step, 2, frames, u"why");
    EXPECT_EQ(event.getStaticTags().back(), u"yvm::DebuggerStoppedEvent");
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.reason(), DebuggerStoppedEvent::Reason::Step);
    EXPECT_EQ(event.level(), 2U);
    EXPECT_EQ(event.frames(), frames);
    EXPECT_EQ(event.message(), u"why");
}

TEST(DebuggerResumedEventTest, CarriesItsCommandAndLevel) {
    const IDType id;
    const DebuggerResumedEvent event(id, 1);
    EXPECT_EQ(event.getStaticTags().back(), u"yvm::DebuggerResumedEvent");
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.level(), 1U);
}

TEST(BreakpointsChangedEventTest, CarriesTheBreakpointsThatThereAre) {
    const std::vector<BreakpointsChangedEvent::Entry> entries = {
        {LineBreakpoint(u"a.py", LineBreakpoint::Location(3)), 4},
        {GlobalBreakpoint(GlobalBreakpoint::Condition::Error), std::nullopt}};
    const BreakpointsChangedEvent event(std::nullopt, entries);
    EXPECT_EQ(event.getStaticTags().back(), u"yvm::BreakpointsChangedEvent");
    EXPECT_EQ(event.commandId(), std::nullopt);
    EXPECT_EQ(event.breakpoints(), entries);
}

}  // namespace
}  // namespace yvm
