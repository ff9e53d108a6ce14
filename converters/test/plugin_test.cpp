// The built plug-in through the real framework: nothing of it is linked into this program.

#include "cppmicroservices/Framework.hpp"
#include "event_json_converter/EventToJsonConverter.hpp"
#include "fl/filesystem/basic_path.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/json/Serializer.hpp"
#include "services/io/CLCEvent.hpp"
#include "services/io/HomeEvent.hpp"
#include "services/prompt/InputRequestEvent.hpp"
#include "ylutil/io/PrintableErrorEvent.hpp"
#include "ylutil/io/SinkTextEvent.hpp"
#include "ylutil/io/StructuredOutputEvent.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "ylutil/prompt/PromptEvent.hpp"
#include "yvm/BreakpointsChangedEvent.hpp"
#include "yvm/DebuggerResumedEvent.hpp"
#include "yvm/DebuggerStoppedEvent.hpp"
#include "yvm/ProgressEvent.hpp"
#include "yvm/WorkspaceEvent.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <typeinfo>

namespace {

using event_json_converter::EventToJsonConverter;
using foundation::json::Object;
using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::exchange::IDType;
using ylutil::io::StreamTypeEnum;
using ylutil::io::TextBaseEvent;

/// A character beyond the basic plane, lone surrogates of both halves, and a NUL.
const std::u16string oddText = u"\u00e9\U0001F600" +
                               std::u16string{char16_t(0xD83D), u'-', char16_t(0xDE00)} +
                               std::u16string(u"\0\n", 2);
const std::string oddJson = "\"\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD-\xEF\xBF\xBD\\u0000\\n\"";

class StrangeEvent final : public foundation::msg_svc::eventmgr::DerivedEvent<StrangeEvent> {};

class ConvertersTest : public testing::Test {
  protected:
    ConvertersTest() {
        framework->Start();
        foundation::cppmicroservices::setFramework(framework);
        foundation::cppmicroservices::installAndStart(
            fl::filesystem::detail::make_native_form(LR"(bin\win64\json_event_converter)"));
    }
    ~ConvertersTest() override {
        framework->Stop();
        foundation::cppmicroservices::setFramework(nullptr);
    }

    std::shared_ptr<EventToJsonConverter> converterOf(const std::string& tag) const {
        const auto context = framework->GetBundleContext();
        const auto references = context.GetServiceReferences<EventToJsonConverter>("(eventTag=" + tag + ")");
        return references.size() == 1 ? context.GetService(references.front()) : nullptr;
    }

    /// What clients read of `event`: the text that its own converter makes of it.
    std::string jsonOf(const BaseEvent& event) const {
        const auto& name = event.getTypeInformation().name();
        const auto converter = converterOf({name.begin(), name.end()});
        return converter ? foundation::json::Serializer::serialize(converter->convert(event))
                         : "not exactly one converter";
    }

    const std::shared_ptr<cppmicroservices::Framework> framework =
        std::make_shared<cppmicroservices::Framework>();
};

TEST_F(ConvertersTest, ThereIsOneForEachEventAndNoOther) {
    std::multiset<std::string> tags;
    for (const auto& reference : framework->GetBundleContext().GetServiceReferences<EventToJsonConverter>()) {
        tags.insert(reference.GetProperty("eventTag").get<std::string>());
    }
    EXPECT_THAT(
        tags, testing::UnorderedElementsAre(
                  "services::io::CLCEvent", "services::io::HomeEvent", "services::prompt::InputRequestEvent",
                  "ylutil::io::PrintableErrorEvent", "ylutil::io::SinkTextEvent",
                  "ylutil::io::StructuredOutputEvent", "ylutil::io::TextBaseEvent",
                  "ylutil::prompt::PromptEvent", "yvm::BreakpointsChangedEvent", "yvm::DebuggerResumedEvent",
                  "yvm::DebuggerStoppedEvent", "yvm::ProgressEvent", "yvm::WorkspaceEvent"));
}

TEST_F(ConvertersTest, TextIsToldWithItsStream) {
    EXPECT_EQ(jsonOf(TextBaseEvent(IDType(), StreamTypeEnum::Error, oddText)),
              R"({"stream":1,"text":)" + oddJson + "}");
    EXPECT_EQ(jsonOf(TextBaseEvent(IDType::null(), StreamTypeEnum::Output, u"")),
              R"({"stream":0,"text":""})");
}

TEST_F(ConvertersTest, TextOfTheSinksIsToldLikeTextOfACommand) {
    EXPECT_EQ(jsonOf(ylutil::io::SinkTextEvent(std::nullopt, StreamTypeEnum::Output, oddText)),
              R"({"stream":0,"text":)" + oddJson + "}");
    EXPECT_EQ(jsonOf(ylutil::io::SinkTextEvent(IDType(), StreamTypeEnum::Error, u"")),
              R"({"stream":1,"text":""})");
}

TEST_F(ConvertersTest, ADisplayedValueIsToldInAllItsMediaTypes) {
    EXPECT_EQ(jsonOf(ylutil::io::StructuredOutputEvent(
                  std::nullopt,
                  {{"text/plain", "\xF0\x9F\x98\x80"},
                   {"image/png", "iVBORw0K"},
                   {"application/json",
                    Object{{"nan", std::nan("")}, {"big", std::uint64_t{18446744073709551615U}}}}},
                  {{"image/png", Object{{"width", 640}, {"height", 480}}}})),
              "{\"data\":{\"application/json\":{\"big\":18446744073709551615,\"nan\":null},"
              "\"image/png\":\"iVBORw0K\",\"text/plain\":\"\xF0\x9F\x98\x80\"},"
              "\"metadata\":{\"image/png\":{\"height\":480,\"width\":640}}}");
    EXPECT_EQ(jsonOf(ylutil::io::StructuredOutputEvent(std::nullopt, {}, {})),
              R"({"data":{},"metadata":{}})");
}

TEST_F(ConvertersTest, AnErrorIsToldWithItsStack) {
    EXPECT_EQ(jsonOf(ylutil::io::PrintableErrorEvent(
                  IDType(), "ZeroDivisionError", oddText,
                  {{"<command>", "<module>", 1, "f"}, {"a \"b\".py", "f", 18446744073709551615U, ""}})),
              R"({"identifier":"ZeroDivisionError","message":)" + oddJson +
                  R"(,"stackFrames":[{"fileName":"<command>","functionName":"<module>","lineNumber":1,)"
                  R"("sourceLine":"f"},{"fileName":"a \"b\".py","functionName":"f",)"
                  R"("lineNumber":18446744073709551615,"sourceLine":""}]})");
    EXPECT_EQ(jsonOf(ylutil::io::PrintableErrorEvent(std::nullopt, "", u"", {})),
              R"({"identifier":"","message":"","stackFrames":[]})");
}

TEST_F(ConvertersTest, TheStateOfThePromptIsToldByItsWord) {
    using ylutil::prompt::PromptEvent;
    using ylutil::prompt::PromptState;
    EXPECT_EQ(jsonOf(PromptEvent(IDType(), PromptState::busy)), R"({"state":"busy"})");
    EXPECT_EQ(jsonOf(PromptEvent(std::nullopt, PromptState::idle)), R"({"state":"idle"})");
    EXPECT_EQ(jsonOf(PromptEvent(IDType(), PromptState::paused)), R"({"state":"paused"})");
    EXPECT_EQ(jsonOf(PromptEvent(IDType(), PromptState::debug)), R"({"state":"debug"})");
}

TEST_F(ConvertersTest, AnInputRequestIsToldWithItsPrompt) {
    using services::prompt::InputRequestEvent;
    EXPECT_EQ(jsonOf(InputRequestEvent(IDType(), "1", oddText, false)),
              R"({"id":"1","password":false,"prompt":)" + oddJson + "}");
    EXPECT_EQ(jsonOf(InputRequestEvent(IDType(), "", u"", true)), R"({"id":"","password":true,"prompt":""})");
}

TEST_F(ConvertersTest, WhatTheConsoleIsAskedForIsAnEmptyObject) {
    EXPECT_EQ(jsonOf(services::io::CLCEvent(IDType())), "{}");
    EXPECT_EQ(jsonOf(services::io::HomeEvent(std::nullopt)), "{}");
}

TEST_F(ConvertersTest, ProgressIsToldWithNullForWhatIsNotKnown) {
    EXPECT_EQ(jsonOf(yvm::ProgressEvent(IDType(), 1, oddText, 3, 10, 2.5, 2.8, false)),
              R"({"done":3,"finished":false,"id":1,"label":)" + oddJson +
                  R"(,"rate":2.5,"remaining":2.8,"total":10})");
    EXPECT_EQ(jsonOf(yvm::ProgressEvent(std::nullopt, 18446744073709551615U, u"", 0, std::nullopt,
                                        std::nullopt, std::nullopt, true)),
              R"({"done":0,"finished":true,"id":18446744073709551615,"label":"","rate":null,)"
              R"("remaining":null,"total":null})");
}

TEST_F(ConvertersTest, NumbersThatAreNotFiniteBecomeNull) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(
        jsonOf(yvm::ProgressEvent(std::nullopt, 1, u"", std::nan(""), infinity, -infinity, infinity, false)),
        R"({"done":null,"finished":false,"id":1,"label":"","rate":null,"remaining":null,"total":null})");
}

TEST_F(ConvertersTest, ChangesOfTheWorkspaceAreListsOfNames) {
    EXPECT_EQ(jsonOf(yvm::WorkspaceEvent(IDType(), {"a", "\xC3\xA4"}, {"b"}, {"c"})),
              "{\"appeared\":[\"a\",\"\xC3\xA4\"],\"changed\":[\"b\"],\"gone\":[\"c\"]}");
    EXPECT_EQ(jsonOf(yvm::WorkspaceEvent(std::nullopt, {}, {}, {})),
              R"({"appeared":[],"changed":[],"gone":[]})");
}

TEST_F(ConvertersTest, AStopIsToldWithItsReasonAndPlace) {
    using Event = yvm::DebuggerStoppedEvent;
    EXPECT_EQ(jsonOf(Event(IDType(), Event::Reason::Breakpoint, 2,
                           {{"<command>", "<module>", 1, "f"}, {"a.py", "f", 3, "x = 1"}}, oddText)),
              R"({"fileName":"a.py","level":2,"lineNumber":3,"message":)" + oddJson +
                  R"(,"reason":"breakpoint","stackFrames":[{"fileName":"<command>",)"
                  R"("functionName":"<module>","lineNumber":1,"sourceLine":"f"},{"fileName":"a.py",)"
                  R"("functionName":"f","lineNumber":3,"sourceLine":"x = 1"}]})");
    EXPECT_EQ(jsonOf(Event(std::nullopt, Event::Reason::Break, 1, {}, u"")),
              R"({"fileName":"","level":1,"lineNumber":0,"message":"","reason":"break","stackFrames":[]})");
}

TEST_F(ConvertersTest, EachReasonOfAStopHasItsWord) {
    using Event = yvm::DebuggerStoppedEvent;
    using Reason = Event::Reason;
    const std::vector<std::pair<Reason, std::string>> reasons = {
        {Reason::Breakpoint, "breakpoint"}, {Reason::Step, "step"},
        {Reason::Break, "break"},           {Reason::Error, "error"},
        {Reason::Warning, "warning"},       {Reason::CaughtError, "caughtError"},
        {Reason::NanInf, "nanInf"},         {Reason::Output, "output"}};
    for (const auto& [reason, word] : reasons) {
        EXPECT_THAT(jsonOf(Event(IDType(), reason, 1, {}, u"")),
                    testing::HasSubstr(R"("reason":")" + word + R"(",)"));
    }
}

TEST_F(ConvertersTest, AResumeIsToldWithTheLevelOfItsStop) {
    EXPECT_EQ(jsonOf(yvm::DebuggerResumedEvent(IDType(), 2)), R"({"level":2})");
}

TEST_F(ConvertersTest, BreakpointsAreToldAsTheRequestsSpellThem) {
    using YorWorks::lxe::GlobalBreakpoint;
    using YorWorks::lxe::LineBreakpoint;
    using Condition = GlobalBreakpoint::Condition;
    using Location = LineBreakpoint::Location;
    EXPECT_EQ(jsonOf(yvm::BreakpointsChangedEvent(std::nullopt, {})), R"({"breakpoints":[]})");
    EXPECT_EQ(jsonOf(yvm::BreakpointsChangedEvent(IDType(),
                                                  {{LineBreakpoint(u"a.py", Location(3, 1), oddText), 4},
                                                   {LineBreakpoint(u"a.py", Location("f")), std::nullopt},
                                                   {LineBreakpoint(u"\u00e9", Location(3)), 3},
                                                   {LineBreakpoint(u""), std::nullopt},
                                                   {GlobalBreakpoint(Condition::Error, ""), std::nullopt}})),
              R"({"breakpoints":[{"expression":)" + oddJson +
                  R"(,"fileName":"a.py","lineNumber":4,"location":{"anonymousIndex":1,"lineNumber":3}},)"
                  R"({"fileName":"a.py","location":{"localFunction":"f"}},)"
                  "{\"fileName\":\"\xC3\xA9\",\"lineNumber\":3,\"location\":{\"lineNumber\":3}},"
                  R"({"fileName":""},{"messageId":"","type":"ERROR"}]})");
    for (const auto& [condition, word] : std::vector<std::pair<Condition, std::string>>{
             {Condition::Error, "ERROR"},
             {Condition::Warning, "WARNING"},
             {Condition::CaughtError, "CAUGHT_ERROR"},
             {Condition::NanInf, "NAN_INF"},
             {Condition::UnsuppressedOutput, "UNSUPPRESSED_OUTPUT"}}) {
        EXPECT_EQ(
            jsonOf(yvm::BreakpointsChangedEvent(IDType(), {{GlobalBreakpoint(condition), std::nullopt}})),
            R"({"breakpoints":[{"type":")" + word + R"("}]})");
    }
}

TEST_F(ConvertersTest, AnEventOfAnotherTypeIsRefusedByItsName) {
    const auto references = framework->GetBundleContext().GetServiceReferences<EventToJsonConverter>();
    ASSERT_FALSE(references.empty());
    for (const auto& reference : references) {
        const std::string own = reference.GetProperty("eventTag").get<std::string>();
        try {
            framework->GetBundleContext().GetService(reference)->convert(StrangeEvent());
            ADD_FAILURE() << own << " took it";
        } catch (const std::bad_cast& error) {
            EXPECT_EQ(error.what(), "a (anonymous namespace)::StrangeEvent is no " + own);
        }
    }
}

}  // namespace
