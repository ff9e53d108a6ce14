#include "ylutil/cmddistributor/WhenToDequeue.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

namespace ylutil::cmddistributor {
namespace {

constexpr std::pair<WhenToDequeue::Enum, const char*> modes[] = {
    {WhenToDequeue::DEQUEUE_UNKNOWN, "DEQUEUE_UNKNOWN"},
    {WhenToDequeue::DEQUEUE_AT_PPE, "DEQUEUE_AT_PPE"},
    {WhenToDequeue::DEQUEUE_AT_PAUSE, "DEQUEUE_AT_PAUSE"},
    {WhenToDequeue::DEQUEUE_AT_PROMPT, "DEQUEUE_AT_PROMPT"},
    {WhenToDequeue::DEQUEUE_AT_NON_DEBUG_PROMPT, "DEQUEUE_AT_NON_DEBUG_PROMPT"},
    {WhenToDequeue::DEQUEUE_AT_DEBUG_PROMPT, "DEQUEUE_AT_DEBUG_PROMPT"},
    {WhenToDequeue::DEQUEUE_AT_IDLE, "DEQUEUE_AT_IDLE"},
    {WhenToDequeue::DEQUEUE_AT_BOOTSTRAP, "DEQUEUE_AT_BOOTSTRAP"},
};

TEST(WhenToDequeueTest, ModesAndTheirNamesConvertBothWays) {
    int number = 0;
    for (const auto& [mode, name] : modes) {
        EXPECT_EQ(static_cast<int>(mode), number++);
        EXPECT_EQ(WhenToDequeue::toString(mode), name);
        EXPECT_EQ(WhenToDequeue::toWhenToDequeue(name), mode);
    }
}

TEST(WhenToDequeueTest, ANumberOutsideTheTablePrintsAsUnknown) {
    EXPECT_EQ(WhenToDequeue::toString(static_cast<WhenToDequeue::Enum>(8)), "DEQUEUE_UNKNOWN");
    EXPECT_EQ(WhenToDequeue::toString(static_cast<WhenToDequeue::Enum>(-1)), "DEQUEUE_UNKNOWN");
}

TEST(WhenToDequeueTest, ATextThatNamesNoModeIsRefusedWithTheNamesThatDo) {
    for (const char* text : {"nonsense", "", "dequeue_at_prompt", "DEQUEUE_AT_PROMPT "}) {
        EXPECT_THROW(WhenToDequeue::toWhenToDequeue(text), std::invalid_argument) << text;
    }
    try {
        WhenToDequeue::toWhenToDequeue("nonsense");
        FAIL() << "accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "\"nonsense\" is no dequeue mode; accepted are DEQUEUE_UNKNOWN DEQUEUE_AT_PPE "
                     "DEQUEUE_AT_PAUSE DEQUEUE_AT_PROMPT DEQUEUE_AT_NON_DEBUG_PROMPT "
                     "DEQUEUE_AT_DEBUG_PROMPT DEQUEUE_AT_IDLE DEQUEUE_AT_BOOTSTRAP");
    }
}

}  // namespace
}  // namespace ylutil::cmddistributor
