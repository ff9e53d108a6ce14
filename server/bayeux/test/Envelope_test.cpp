#include "server/bayeux/Envelope.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

std::vector<Message> messagesOf(std::string& frame) {
    auto parsed = parseEnvelope(frame, 1000);
    if (const auto* refusal = std::get_if<Refusal>(&parsed)) {
        ADD_FAILURE() << refusal->text;
        return {};
    }
    return std::get<std::vector<Message>>(std::move(parsed));
}

Message onlyMessageOf(std::string frame) {
    static std::string kept;
    kept = std::move(frame);
    const auto messages = messagesOf(kept);
    EXPECT_EQ(messages.size(), 1U);
    return messages.empty() ? Message() : messages.front();
}

std::string refusalOf(std::string frame) {
    const auto parsed = parseEnvelope(frame, 1000);
    const auto* refusal = std::get_if<Refusal>(&parsed);
    return refusal == nullptr ? "accepted" : refusal->text;
}

std::string complaintAbout(const std::string& frame) {
    const Message message = onlyMessageOf(frame);
    return message.malformed ? message.malformed->text : "none";
}

TEST(Envelope, ReadsTheFieldsOfEachMessageInOrder) {
    std::string frame =
        R"( [ {"channel":"/a","id":"1","clientId":"c","data": {"x" : 1} } , {"channel":"/b"} ] )";
    const auto messages = messagesOf(frame);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].channel, "/a");
    EXPECT_EQ(messages[0].id, "\"1\"");
    EXPECT_EQ(messages[0].clientId, "c");
    EXPECT_EQ(messages[0].data, R"({"x" : 1})");
    EXPECT_FALSE(messages[0].malformed);
    EXPECT_EQ(messages[1].channel, "/b");
    EXPECT_EQ(messages[1].id, "");
    EXPECT_EQ(messages[1].data, "");
}

TEST(Envelope, TakesABareMessage) {
    EXPECT_EQ(onlyMessageOf(R"({"channel":"/a"})").channel, "/a");
}

TEST(Envelope, KeepsTheTextOfAnIdAsItCame) {
    EXPECT_EQ(onlyMessageOf(R"([{"channel":"/a","id":"\u0041\/"}])").id, R"("\u0041\/")");
    EXPECT_EQ(onlyMessageOf(R"([{"channel":"/a","id":1.50 }])").id, "1.50");
}

TEST(Envelope, TrimsTheTextOfDataOfEveryKind) {
    for (const char* data : {R"({"a":[1,2]})", "[1, 2]", R"("text")", "12.5", "true", "null", "{}"}) {
        EXPECT_EQ(onlyMessageOf(std::string(R"([{"channel":"/a","data":  )") + data + " \n \t}]").data, data);
    }
}

TEST(Envelope, TheFirstOfARepeatedFieldCounts) {
    const Message message =
        onlyMessageOf(R"([{"channel":"/a","channel":"/b","data":1,"data":2,"id":"1","id":"2"}])");
    EXPECT_EQ(message.channel, "/a");
    EXPECT_EQ(message.data, "1");
    EXPECT_EQ(message.id, "\"1\"");
}

TEST(Envelope, ReadsKeysThatAreEscaped) {
    EXPECT_EQ(onlyMessageOf(R"([{"chann\u0065l":"/a","d\u0061ta":5}])").data, "5");
}

TEST(Envelope, IgnoresUnknownFields) {
    EXPECT_EQ(complaintAbout(R"([{"channel":"/a","x":{"channel":"/b","deep":[[{}]]}}])"), "none");
}

TEST(Envelope, ReadsTheFieldsOfAHandshake) {
    const Message message = onlyMessageOf(
        R"([{"channel":"/meta/handshake","version":"1.0","minimumVersion":"0.9",
             "supportedConnectionTypes":["websocket","long-polling"],"ext":{"token":"s3cret"},
             "advice":{"timeout":60000,"interval":0}}])");
    EXPECT_EQ(message.minimumVersion, "0.9");
    EXPECT_EQ(message.supportedConnectionTypes, (std::vector<std::string>{"websocket", "long-polling"}));
    EXPECT_EQ(message.token, "s3cret");
    EXPECT_EQ(message.timeout, std::chrono::milliseconds(60000));
}

TEST(Envelope, ReadsTheNumberThatAConnectAcknowledges) {
    const auto acknowledged = [](const std::string& ext) {
        return onlyMessageOf(R"([{"channel":"/meta/connect","ext":)" + ext + "}]").acknowledged;
    };
    EXPECT_EQ(acknowledged(R"({"ack":0})"), 0U);
    EXPECT_EQ(acknowledged(R"({"ack":18446744073709551615})"), 18446744073709551615U);
    for (const char* ext : {"{}", "null", "7", "[]", R"({"ack":-1})", R"({"ack":1.5})", R"({"ack":"1"})",
                            R"({"ack":true})", R"({"ack":null})", R"({"ack":[1]})", R"({"ack":{"ack":1}})"}) {
        EXPECT_EQ(acknowledged(ext), std::nullopt) << ext;
    }
}

TEST(Envelope, ReadsASubscriptionInBothShapes) {
    const Message one = onlyMessageOf(R"([{"channel":"/meta/subscribe","subscription":"/a"}])");
    EXPECT_EQ(one.subscriptions, std::vector<std::string>{"/a"});
    EXPECT_EQ(one.subscriptionText, "\"/a\"");
    const Message two = onlyMessageOf(R"([{"channel":"/meta/subscribe","subscription":["/a", "/b"]}])");
    EXPECT_EQ(two.subscriptions, (std::vector<std::string>{"/a", "/b"}));
    EXPECT_EQ(two.subscriptionText, R"(["/a", "/b"])");
}

TEST(Envelope, RefusesAFrameThatIsNoArrayOfMessages) {
    EXPECT_EQ(refusalOf("[]"), "the array holds no message");
    EXPECT_EQ(refusalOf("42"), "an array of messages is expected");
    EXPECT_EQ(refusalOf("\"x\""), "an array of messages is expected");
    EXPECT_EQ(refusalOf("true"), "an array of messages is expected");
    EXPECT_EQ(refusalOf(R"([{"channel":"/a"}] [1])"), "more text behind the messages");
    EXPECT_EQ(refusalOf(R"({"channel":"/a"} x)"), "more text behind the messages");
}

TEST(Envelope, RefusesAFrameThatIsNoJsonAsAWhole) {
    for (const char* frame :
         {"", " ", "hello", "[", "[{", R"([{"channel":"/a"})", R"([{"channel":"/a",}])",
          R"([{"channel" "/a"}])", R"([{"channel":"/a"} {"channel":"/b"}])", R"([{'channel':'/a'}])",
          R"([{"channel":"/a","x":tru}])", R"([{"channel":"/a","x":"\q"}])", R"([{"channel":"/a","x":[1}])",
          "[{\"channel\":\"/\xff\"}]"}) {
        EXPECT_EQ(refusalOf(frame).substr(0, 11), "not JSON - ") << frame;
    }
}

TEST(Envelope, AMessageOfAWrongTypeIsMalformedAndTheOthersStand) {
    std::string frame = R"([5,{"channel":"/a"},[{"channel":"/b"}],null])";
    const auto messages = messagesOf(frame);
    ASSERT_EQ(messages.size(), 4U);
    for (const std::size_t i : {0U, 2U, 3U}) {
        ASSERT_TRUE(messages[i].malformed);
        EXPECT_EQ(messages[i].malformed->text, "a message must be an object");
    }
    EXPECT_FALSE(messages[1].malformed);
}

TEST(Envelope, SaysWhichFieldIsMalformed) {
    EXPECT_EQ(complaintAbout("[{}]"), "a message needs a channel");
    EXPECT_EQ(complaintAbout(R"([{"channel":""}])"), "a message needs a channel");
    EXPECT_EQ(complaintAbout(R"([{"channel":5}])"), "channel must be a string");
    EXPECT_EQ(complaintAbout(R"([{"channel":"/a","id":{"a":1}}])"), "id must be a string or a number");
    EXPECT_EQ(complaintAbout(R"([{"channel":"/a","id":null}])"), "id must be a string or a number");
    EXPECT_EQ(complaintAbout(R"([{"channel":"/a","clientId":5}])"), "clientId must be a string");
    EXPECT_EQ(complaintAbout(R"([{"channel":"/meta/subscribe","subscription":5}])"),
              "subscription must be a string or an array of strings");
    EXPECT_EQ(complaintAbout(R"([{"channel":"/meta/subscribe","subscription":["/a",5]}])"),
              "subscription must hold strings only");
    EXPECT_EQ(complaintAbout(R"([{"channel":"/meta/connect","advice":{"timeout":-1}}])"),
              "advice.timeout must be a number of milliseconds");
    EXPECT_EQ(complaintAbout(R"([{"channel":"/meta/connect","advice":{"timeout":"1"}}])"),
              "advice.timeout must be a number of milliseconds");
}

TEST(Envelope, ATimeoutBeyondAllBoundsIsADay) {
    EXPECT_EQ(onlyMessageOf(R"([{"channel":"/meta/connect","advice":{"timeout":1e300}}])").timeout,
              std::chrono::hours(24));
}

TEST(Envelope, RefusesMoreThanAThousandMessages) {
    const auto arrayOf = [](std::size_t count) {
        std::string text = "[";
        for (std::size_t i = 0; i < count; ++i) {
            text += i == 0 ? "{}" : ",{}";
        }
        return text + "]";
    };
    std::string most = arrayOf(1000);
    EXPECT_EQ(messagesOf(most).size(), 1000U);
    std::string tooMany = arrayOf(1001);
    const auto refused = parseEnvelope(tooMany, 1000);
    ASSERT_TRUE(std::holds_alternative<Refusal>(refused));
    EXPECT_EQ(errorField(std::get<Refusal>(refused)), "413::more than 1000 messages in one frame");
}

TEST(Envelope, SurvivesAMillionNestedArraysInData) {
    const std::string deep = std::string(1'000'000, '[') + std::string(1'000'000, ']');
    EXPECT_EQ(onlyMessageOf(R"([{"channel":"/a","data":)" + deep + "}]").data.size(), deep.size());
    EXPECT_EQ(refusalOf(std::string(1'000'000, '[')).substr(0, 11), "not JSON - ");
}

}  // namespace
}  // namespace server::bayeux
