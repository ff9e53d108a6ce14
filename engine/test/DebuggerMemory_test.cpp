#include "engine/test/DebuggerFixture.hpp"

#include <gmock/gmock.h>

#include <string>

namespace yvm::engine::test {
namespace {

/// Has the allocations of Python fail at a stop, one by one: the first in the first run, and so on.
class DebuggerMemoryTest : public DebuggerTest {
  public:
    void SetUp() override {
        DebuggerTest::SetUp();
        eval("import _testcapi, numpy, warnings\none = numpy.ones(1)");
    }

  protected:
    /// Behind the last one that a stop of these tests and its resumption need.
    static constexpr int failures = 150;

    /// Each run of `body` is to end, by what the failure causes or its own error, and the last one, in which
    /// nothing fails, to stop.
    void failOneByOne(const std::string& body, const std::string& ownError = "") {
        using testing::AnyOf;
        const std::string source = "_testcapi.set_nomemory(failing, failing + 1)\n" + body;
        for (int failing = 0; failing < failures; ++failing) {
            eval("failing = " + std::to_string(failing));
            auto command = submitEval(source);
            endWithoutEval(command);
            EXPECT_THAT(errorOf(command), AnyOf("", "MemoryError", ownError, "RuntimeError")) << failing;
        }
        const std::size_t before = stops->all().size();
        auto command = submitEval(body);
        stops->waitForCount(before + 1);
        act("resume");
        errorOf(command);
        EXPECT_EQ(stops->all().size(), before + 1);
    }

  private:
    /// Past the stop, if it comes to one. Python's compiler does not live through these failures.
    static void endWithoutEval(const Submitted& command) {
        for (int tries = 0; !command.isDone(); ++tries) {
            ASSERT_LT(tries, 10);
            errorOf(submitFeval("yvm.debug.resume", {}, 0));
        }
        while (!errorOf(submitFeval("_testcapi.remove_mem_hooks", {}, 0)).empty()) {
        }
    }
    /// The identifier, empty without one.
    static std::string errorOf(Submitted command) {
        try {
            command.get();
            return "";
        } catch (const RuntimeException& error) {
            return error.GetID();
        }
    }
};

TEST_F(DebuggerMemoryTest, EachAllocationMayFailAtAStopOnALine) {
    const auto file = writeModule("stops_without_memory", "def f(): return 1\n");
    eval("import stops_without_memory");
    ASSERT_EQ(set(LineBreakpoint(file, Location(1), u"True")), "");
    failOneByOne("stops_without_memory.f()");
}

TEST_F(DebuggerMemoryTest, EachAllocationMayFailAtABreakpointOfTheProgramsOwn) {
    failOneByOne("breakpoint()");
}

TEST_F(DebuggerMemoryTest, EachAllocationMayFailAtAnError) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Error, "ValueError")), "");
    failOneByOne("raise ValueError('x')", "ValueError");
}

TEST_F(DebuggerMemoryTest, EachAllocationMayFailAtACaughtError) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::CaughtError, "ValueError")), "");
    failOneByOne("try: raise ValueError('x')\nexcept ValueError: pass");
}

TEST_F(DebuggerMemoryTest, EachAllocationMayFailAtAWarning) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::Warning)), "");
    failOneByOne("warnings.warn('mind')");
}

TEST_F(DebuggerMemoryTest, EachAllocationMayFailAtANan) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::NanInf)), "");
    failOneByOne("one / 0;");
}

TEST_F(DebuggerMemoryTest, EachAllocationMayFailAtOutput) {
    ASSERT_EQ(set(GlobalBreakpoint(Condition::UnsuppressedOutput)), "");
    failOneByOne("'shown'");
}

}  // namespace
}  // namespace yvm::engine::test
