#include "common/makeTextMessage.hpp"

#include "foundation/json/Serializer.hpp"

#include <gtest/gtest.h>

namespace yvm::JSClient {
namespace {

using ylutil::io::StreamTypeEnum;

std::string wireTextOf(StreamTypeEnum stream, std::u16string_view text) {
    return foundation::json::Serializer::serialize(makeTextMessage(stream, text));
}

TEST(MakeTextMessage, TheStreamIsAPlainNumber) {
    EXPECT_EQ(wireTextOf(StreamTypeEnum::Output, u"hi\n"), R"({"stream":0,"text":"hi\n"})");
    EXPECT_EQ(wireTextOf(StreamTypeEnum::Error, u""), R"({"stream":1,"text":""})");
}

TEST(MakeTextMessage, TextOfAnyScriptBecomesUtf8) {
    const auto message = makeTextMessage(StreamTypeEnum::Output, u"e\u0301 \u05d0\u05d1 \U0001F600");
    EXPECT_EQ(message.at("text").as<std::string>(), "e\xCC\x81 \xD7\x90\xD7\x91 \xF0\x9F\x98\x80");
}

TEST(MakeTextMessage, NulIsKept) {
    using namespace std::string_literals;
    const auto message = makeTextMessage(StreamTypeEnum::Output, u"a\0b"s);
    EXPECT_EQ(message.at("text").as<std::string>(), "a\0b"s);
}

TEST(MakeTextMessage, EachLoneSurrogateBecomesTheReplacementCharacter) {
    const char16_t cut[] = {0xDE00, u'a', 0xD83D};
    const auto message = makeTextMessage(StreamTypeEnum::Output, {cut, 3});
    EXPECT_EQ(message.at("text").as<std::string>(),
              "\xEF\xBF\xBD"
              "a\xEF\xBF\xBD");
}

}  // namespace
}  // namespace yvm::JSClient
