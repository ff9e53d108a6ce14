#include "ylutil/io/StructuredOutputEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ylutil::io {
namespace {

using foundation::json::Object;
using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(StructuredOutputEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(
        StructuredOutputEvent(std::nullopt, {}, {}).getStaticTags(),
        ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"ylutil::io::StructuredOutputEvent"));
}

TEST(StructuredOutputEventTest, CarriesItsCommandDataAndMetadata) {
    const IDType id;
    const StructuredOutputEvent::Bundle data{{"text/plain", "1"}, {"application/json", 1}};
    const StructuredOutputEvent::Bundle metadata{{"image/png", Object{{"width", 640}}}};
    const StructuredOutputEvent event(id, data, metadata);
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.data(), data);
    EXPECT_EQ(event.metadata(), metadata);
    EXPECT_EQ(StructuredOutputEvent(std::nullopt, {}, {}).commandId(), std::nullopt);
}

}  // namespace
}  // namespace ylutil::io
