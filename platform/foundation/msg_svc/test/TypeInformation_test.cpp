#include "foundation/msg_svc/eventmgr/TypeInformation.hpp"

#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace sample {

class PrintedEvent : public foundation::msg_svc::eventmgr::DerivedEvent<PrintedEvent> {};

class ErrorEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<ErrorEvent, PrintedEvent> {
  public:
    static constexpr bool acceptsUserTags = true;
};

}  // namespace sample

namespace foundation::msg_svc::eventmgr {
namespace {

using ::testing::ElementsAre;

const std::vector<std::u16string> tags{u"x", u"y"};

TEST(TypeInformationTest, ListsItsTagsBaseToDerived) {
    const DerivedTypeInformation<sample::ErrorEvent> information;
    EXPECT_THAT(information.getStaticTags(), ElementsAre(u"foundation::msg_svc::eventmgr::BaseEvent",
                                                         u"sample::PrintedEvent", u"sample::ErrorEvent"));
    EXPECT_EQ(information.name(), u"sample::ErrorEvent");
    EXPECT_EQ(information.getBaseType().name(), u"sample::PrintedEvent");
    EXPECT_EQ(information.getBaseType().getBaseType().name(), u"foundation::msg_svc::eventmgr::BaseEvent");
}

TEST(TypeInformationTest, TheRootHasNoBase) {
    const DerivedTypeInformation<BaseEvent> information;
    EXPECT_EQ(information.name(), u"foundation::msg_svc::eventmgr::BaseEvent");
    try {
        information.getBaseType();
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "eventmgr::BaseEvent has no base types.");
    }
}

TEST(TypeInformationTest, TheRootAcceptsUserTags) {
    DerivedTypeInformation<BaseEvent> information;
    information.addUserTags(tags);
    EXPECT_EQ(information.getUserTags(), tags);
    EXPECT_FALSE(information.isKindOf(u"x"));
    EXPECT_TRUE(DerivedTypeInformation<BaseEvent>::shared().getUserTags().empty());
}

TEST(TypeInformationTest, ATypeThatDoesNotAcceptUserTagsTakesNoneOrItsOwnOnly) {
    DerivedTypeInformation<sample::PrintedEvent> information;
    EXPECT_NO_THROW(information.addUserTags({}));
    const std::vector<std::u16string> own{u"sample::PrintedEvent",
                                          u"foundation::msg_svc::eventmgr::BaseEvent"};
    EXPECT_NO_THROW(information.addUserTags(own));
    EXPECT_EQ(information.getUserTags(), own);
    const std::vector<std::u16string> mixed{u"sample::PrintedEvent", u"x"};
    try {
        information.addUserTags(mixed);
        FAIL() << "nothing was thrown";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "cannot add user tags.");
    }
    EXPECT_EQ(information.getUserTags(), own);
}

TEST(BaseEventTest, IsKindOfItsClassAndBasesOnly) {
    sample::ErrorEvent event;
    event.addUserTags(tags);
    EXPECT_TRUE(event.isKindOf(u"sample::ErrorEvent"));
    EXPECT_TRUE(event.isKindOf(u"sample::PrintedEvent"));
    EXPECT_TRUE(event.isKindOf(u"foundation::msg_svc::eventmgr::BaseEvent"));
    EXPECT_FALSE(event.isKindOf(u"x"));
    EXPECT_EQ(event.getUserTags(), tags);
    EXPECT_EQ(event.getStaticTags().size(), 3U);
    EXPECT_EQ(event.commandId(), std::nullopt);
}

TEST(BaseEventTest, RefusesUserTagsWhereItsTypeDoes) {
    sample::PrintedEvent event;
    EXPECT_THROW(event.addUserTags(tags), std::logic_error);
    EXPECT_TRUE(event.getUserTags().empty());
}

TEST(DemangleEventForTypeTest, NamesATypeAsItsTagDoes) {
    const std::string encoded = typeid(sample::ErrorEvent).name();
    EXPECT_EQ(demangleEventForType({encoded.begin(), encoded.end()}), u"sample::ErrorEvent");
    EXPECT_EQ(demangleEventForType(u"sample::ErrorEvent"), u"sample::ErrorEvent");
    EXPECT_EQ(demangleEventForType(u"class sample::ErrorEvent"), u"sample::ErrorEvent");
    EXPECT_EQ(demangleEventForType(u"struct sample::ErrorEvent"), u"sample::ErrorEvent");
}

TEST(DemangleEventForTypeTest, LeavesOtherTextsAsTheyAre) {
    for (const std::u16string text :
         {u"", u"i", u"f", u"N", u"NoSuchEvent", u"9", u"N\u00e9", u"3Foo\u1234", u"*"}) {
        EXPECT_EQ(demangleEventForType(text), text);
    }
    const std::u16string withNul(u"N\0E", 3);
    EXPECT_EQ(demangleEventForType(withNul), withNul);
    // A client chooses the name: a long one must be harmless.
    const std::u16string longText(1'000'000, u'N');
    EXPECT_EQ(demangleEventForType(longText), longText);
}

}  // namespace
}  // namespace foundation::msg_svc::eventmgr
