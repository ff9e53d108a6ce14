#include "yvm/WorkspaceEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace yvm {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(WorkspaceEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(WorkspaceEvent(std::nullopt, {}, {}, {}).getStaticTags(),
                ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"yvm::WorkspaceEvent"));
}

TEST(WorkspaceEventTest, CarriesItsCommandAndTheNames) {
    const IDType id;
    const WorkspaceEvent event(id, {"a", "b"}, {"c"}, {"d"});
    EXPECT_EQ(event.commandId(), id);
    EXPECT_THAT(event.appeared(), ElementsAre("a", "b"));
    EXPECT_THAT(event.changed(), ElementsAre("c"));
    EXPECT_THAT(event.gone(), ElementsAre("d"));
    EXPECT_EQ(WorkspaceEvent(std::nullopt, {}, {}, {}).commandId(), std::nullopt);
}

}  // namespace
}  // namespace yvm
