#include "services/io/HomeEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace services::io {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(HomeEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(HomeEvent(std::nullopt).getStaticTags(),
                ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"services::io::HomeEvent"));
}

TEST(HomeEventTest, CarriesItsCommand) {
    const IDType id;
    EXPECT_EQ(HomeEvent(id).commandId(), id);
    EXPECT_EQ(HomeEvent(std::nullopt).commandId(), std::nullopt);
}

}  // namespace
}  // namespace services::io
