#include "ylutil/prompt/PromptEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ylutil::prompt {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(PromptEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(PromptEvent(std::nullopt, PromptState::idle).getStaticTags(),
                ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"ylutil::prompt::PromptEvent"));
}

TEST(PromptEventTest, CarriesItsCommandAndState) {
    const IDType id;
    const PromptEvent event(id, PromptState::paused);
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.state(), PromptState::paused);
    EXPECT_EQ(PromptEvent(std::nullopt, PromptState::idle).commandId(), std::nullopt);
}

TEST(PromptStateTest, IsToldByItsWord) {
    EXPECT_EQ(toString(PromptState::busy), "busy");
    EXPECT_EQ(toString(PromptState::idle), "idle");
    EXPECT_EQ(toString(PromptState::paused), "paused");
    EXPECT_EQ(toString(PromptState::debug), "debug");
    EXPECT_EQ(toString(static_cast<PromptState>(9)), "unknown");
}

}  // namespace
}  // namespace ylutil::prompt
