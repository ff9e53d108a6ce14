#include "yvm/ProgressEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace yvm {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(ProgressEventTest, BearsItsQualifiedName) {
    const ProgressEvent event(std::nullopt, 1, u"", 0, std::nullopt, std::nullopt, std::nullopt, false);
    EXPECT_THAT(event.getStaticTags(),
                ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"yvm::ProgressEvent"));
    EXPECT_EQ(event.commandId(), std::nullopt);
}

TEST(ProgressEventTest, CarriesItsCommandAndHowFarTheLoopIs) {
    const IDType id;
    const ProgressEvent event(id, 3, u"rows", 4, 10, 2, 3, true);
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.id(), 3U);
    EXPECT_EQ(event.label(), u"rows");
    EXPECT_EQ(event.done(), 4);
    EXPECT_EQ(event.total(), 10);
    EXPECT_EQ(event.rate(), 2);
    EXPECT_EQ(event.remaining(), 3);
    EXPECT_TRUE(event.finished());
}

}  // namespace
}  // namespace yvm
