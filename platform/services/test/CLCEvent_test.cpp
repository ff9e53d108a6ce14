#include "services/io/CLCEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace services::io {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(CLCEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(CLCEvent(std::nullopt).getStaticTags(),
                ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"services::io::CLCEvent"));
}

TEST(CLCEventTest, CarriesItsCommand) {
    const IDType id;
    EXPECT_EQ(CLCEvent(id).commandId(), id);
    EXPECT_EQ(CLCEvent(std::nullopt).commandId(), std::nullopt);
}

}  // namespace
}  // namespace services::io
