#include "ylutil/io/SinkTextEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ylutil::io {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(SinkTextEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(SinkTextEvent(std::nullopt, StreamTypeEnum::Output, u"").getStaticTags(),
                ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"ylutil::io::SinkTextEvent"));
}

TEST(SinkTextEventTest, CarriesItsCommandStreamAndText) {
    const IDType id;
    const SinkTextEvent event(id, StreamTypeEnum::Error, u"oops");
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.stream(), StreamTypeEnum::Error);
    EXPECT_EQ(event.text(), u"oops");
    EXPECT_EQ(SinkTextEvent(std::nullopt, StreamTypeEnum::Output, u"").commandId(), std::nullopt);
}

}  // namespace
}  // namespace ylutil::io
