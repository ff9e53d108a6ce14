#include "services/prompt/InputRequestEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace services::prompt {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(InputRequestEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(
        InputRequestEvent(std::nullopt, "", u"", false).getStaticTags(),
        ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"services::prompt::InputRequestEvent"));
}

TEST(InputRequestEventTest, CarriesItsCommandIdentifierAndPrompt) {
    const IDType id;
    const InputRequestEvent event(id, "7", u"name? ", true);
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.id(), "7");
    EXPECT_EQ(event.prompt(), u"name? ");
    EXPECT_TRUE(event.password());
    EXPECT_EQ(InputRequestEvent(std::nullopt, "", u"", false).commandId(), std::nullopt);
}

}  // namespace
}  // namespace services::prompt
