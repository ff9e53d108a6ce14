#include "ylutil/io/TextBaseEvent.hpp"

#include <gtest/gtest.h>

namespace ylutil::io {
namespace {

using foundation::msg_svc::exchange::IDType;

TEST(TextBaseEventTest, IsOfTheKindThatBearsItsName) {
    const TextBaseEvent event(IDType(), StreamTypeEnum::Output, u"text");
    EXPECT_TRUE(event.isKindOf(u"ylutil::io::TextBaseEvent"));
    EXPECT_FALSE(event.isKindOf(u"TextBaseEvent"));
    EXPECT_EQ(event.getStaticTags().back(), u"ylutil::io::TextBaseEvent");
}

TEST(TextBaseEventTest, CarriesItsCommandStreamAndText) {
    const IDType id;
    const TextBaseEvent event(id, StreamTypeEnum::Error, u"oops");
    EXPECT_EQ(event.id(), id);
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.stream(), StreamTypeEnum::Error);
    EXPECT_EQ(event.text(), u"oops");
}

TEST(TextBaseEventTest, TextOfTheNullIdentityBelongsToNoCommand) {
    const TextBaseEvent event(IDType::null(), StreamTypeEnum::Output, u"text");
    EXPECT_EQ(event.commandId(), std::nullopt);
}

}  // namespace
}  // namespace ylutil::io
