#include "ylutil/io/PrintableErrorEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ylutil::io {
namespace {

using foundation::msg_svc::exchange::IDType;
using ::testing::ElementsAre;

TEST(PrintableErrorEventTest, BearsItsQualifiedName) {
    EXPECT_THAT(PrintableErrorEvent(std::nullopt, "", u"", {}).getStaticTags(),
                ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent", u"ylutil::io::PrintableErrorEvent"));
}

TEST(PrintableErrorEventTest, CarriesItsCommandAndTheError) {
    const IDType id;
    const PrintableErrorEvent::Frame frame{"<command>", "<module>", 1, "1 / 0"};
    const PrintableErrorEvent event(id, "ZeroDivisionError", u"division by zero", {frame});
    EXPECT_EQ(event.commandId(), id);
    EXPECT_EQ(event.identifier(), "ZeroDivisionError");
    EXPECT_EQ(event.message(), u"division by zero");
    EXPECT_THAT(event.stack(), ElementsAre(frame));
    EXPECT_EQ(PrintableErrorEvent(std::nullopt, "", u"", {}).commandId(), std::nullopt);
}

}  // namespace
}  // namespace ylutil::io
