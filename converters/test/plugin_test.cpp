// The built plug-in through the real framework: nothing of it is linked into this program.

#include "cppmicroservices/Framework.hpp"
#include "event_json_converter/EventToJsonConverter.hpp"
#include "fl/filesystem/basic_path.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "ylutil/io/TextBaseEvent.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeinfo>

namespace {

using event_json_converter::EventToJsonConverter;
using foundation::json::Value;
using foundation::msg_svc::exchange::IDType;
using ylutil::io::StreamTypeEnum;
using ylutil::io::TextBaseEvent;

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

    const std::shared_ptr<cppmicroservices::Framework> framework =
        std::make_shared<cppmicroservices::Framework>();
};

TEST_F(ConvertersTest, TextIsToldWithItsStream) {
    const auto converter = converterOf("ylutil::io::TextBaseEvent");
    ASSERT_NE(converter, nullptr);
    EXPECT_EQ(
        Value(converter->convert(TextBaseEvent(IDType(), StreamTypeEnum::Error, u"\u00e9\U0001F600\n"))),
        Value(foundation::json::Object{{"stream", Value(1)}, {"text", "\xC3\xA9\xF0\x9F\x98\x80\n"}}));
    EXPECT_EQ(Value(converter->convert(TextBaseEvent(IDType::null(), StreamTypeEnum::Output, u""))),
              Value(foundation::json::Object{{"stream", Value(0)}, {"text", ""}}));
}

TEST_F(ConvertersTest, AnEventOfAnotherTypeIsRefused) {
    const auto converter = converterOf("ylutil::io::TextBaseEvent");
    ASSERT_NE(converter, nullptr);
    EXPECT_THROW(converter->convert(StrangeEvent()), std::bad_cast);
}

}  // namespace
