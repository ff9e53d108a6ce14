#include "server/bayeux/test/BayeuxFixture.hpp"

#include <gmock/gmock.h>

namespace server::bayeux::testing {
namespace {

using ::testing::Values;

/// A frame and the exact answer to it. "ID" stands for the client id of a session that has the client "own",
/// "OTHER" for that of a session that has the client "foreign".
struct Row {
    const char* frame;
    const char* answer;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.frame;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

class BadInputTest : public BayeuxFixture {
  protected:
    BadInputTest() {
        clientId = openSession(connection);
        publish(connection, clientId, "/yvm/attach/request", R"({"requestID":"own"})");
        otherId = openSession(otherConnection);
        publish(otherConnection, otherId, "/yvm/attach/request", R"({"requestID":"foreign"})");
        otherConnection->take();
    }

    std::string withIds(const std::string& text) const {
        return replaced(replaced(text, "\"ID\"", '"' + clientId + '"'), "\"OTHER\"", '"' + otherId + '"');
    }

    std::shared_ptr<FakeConnection> connection = std::make_shared<FakeConnection>();
    std::shared_ptr<FakeConnection> otherConnection = std::make_shared<FakeConnection>();
    std::string clientId;
    std::string otherId;
};

class BadFrame : public BadInputTest, public ::testing::WithParamInterface<Row> {};

TEST_P(BadFrame, IsAnsweredAndTheSessionsGoOn) {
    EXPECT_EQ(exchange(connection, withIds(GetParam().frame)), withIds(GetParam().answer));
    EXPECT_EQ(connection->closeCode, std::nullopt);
    EXPECT_EQ(otherConnection->take(), "");
    for (const auto& [from, id, client] :
         {std::tuple(connection, clientId, "own"), std::tuple(otherConnection, otherId, "foreign")}) {
        EXPECT_THAT(
            publish(from, id, std::string("/yvm/") + client + "/eval/request", R"({"requestID":"e"})"),
            ::testing::HasSubstr(R"("successful":true)"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    NoMessages, BadFrame,
    Values(
        Row{"[]",
            R"([{"channel":"/meta/error","successful":false,"error":"400::the array holds no message"}])"},
        Row{"7", R"([{"channel":"/meta/error","successful":false,)"
                 R"("error":"400::an array of messages is expected"}])"},
        Row{"\"x\"", R"([{"channel":"/meta/error","successful":false,)"
                     R"("error":"400::an array of messages is expected"}])"},
        Row{"null", R"([{"channel":"/meta/error","successful":false,)"
                    R"("error":"400::an array of messages is expected"}])"},
        Row{"true", R"([{"channel":"/meta/error","successful":false,)"
                    R"("error":"400::an array of messages is expected"}])"},
        Row{"[7]",
            R"([{"channel":"/meta/error","successful":false,"error":"400::a message must be an object"}])"},
        Row{"[null]",
            R"([{"channel":"/meta/error","successful":false,"error":"400::a message must be an object"}])"},
        Row{"[[]]",
            R"([{"channel":"/meta/error","successful":false,"error":"400::a message must be an object"}])"},
        Row{R"([[{"channel":"/meta/connect","clientId":"ID"}]])",
            R"([{"channel":"/meta/error","successful":false,"error":"400::a message must be an object"}])"},
        Row{"{}",
            R"([{"channel":"/meta/error","successful":false,"error":"400::a message needs a channel"}])"},
        Row{"[{}]",
            R"([{"channel":"/meta/error","successful":false,"error":"400::a message needs a channel"}])"},
        Row{R"([{"id":"1"}])", R"([{"channel":"/meta/error","id":"1","successful":false,)"
                               R"("error":"400::a message needs a channel"}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID"}] [])",
            R"([{"channel":"/meta/error","successful":false,)"
            R"("error":"400::more text behind the messages"}])"},
        Row{R"([7,{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":"/service/a"},[]])",
            R"([{"channel":"/meta/error","successful":false,)"
            R"("error":"400::a message must be an object"},{"channel":"/meta/subscribe","id":"1",)"
            R"("successful":true,"subscription":"/service/a"},{"channel":"/meta/error",)"
            R"("successful":false,"error":"400::a message must be an object"}])"}));

INSTANTIATE_TEST_SUITE_P(
    WrongTypes, BadFrame,
    Values(
        Row{R"([{"channel":7,"id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/error","id":"1","successful":false,)"
            R"("error":"400::channel must be a string"}])"},
        Row{R"([{"channel":null,"id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/error","id":"1","successful":false,)"
            R"("error":"400::a message needs a channel"}])"},
        Row{R"([{"channel":["/a"],"id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/error","id":"1","successful":false,)"
            R"("error":"400::channel must be a string"}])"},
        Row{R"([{"channel":"","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/error","id":"1","successful":false,)"
            R"("error":"400::a message needs a channel"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":null,"clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","successful":false,)"
            R"("error":"400::id must be a string or a number"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":true,"clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","successful":false,)"
            R"("error":"400::id must be a string or a number"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":["1"],"clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","successful":false,)"
            R"("error":"400::id must be a string or a number"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":{},"clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","successful":false,)"
            R"("error":"400::id must be a string or a number"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":7,"data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::clientId must be a string"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":["ID"],"data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::clientId must be a string"}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":7}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"400::subscription must be a string or an array of strings","subscription":7}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":{"a":1}}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"400::subscription must be a string or an array of strings",)"
            R"("subscription":{"a":1}}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":["/yvm/own/a",7]}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"400::subscription must hold strings only","subscription":["/yvm/own/a",7]}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":[["/yvm/own/a"]]}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"400::subscription must hold strings only","subscription":[["/yvm/own/a"]]}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":null}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"400::a subscribe needs a subscription","subscription":null}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":[]}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"400::a subscribe needs a subscription","subscription":[]}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":""}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"405::no valid channel name - ","subscription":""}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"400::a subscribe needs a subscription"}])"},
        Row{R"([{"channel":"/meta/unsubscribe","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/unsubscribe","id":"1","successful":false,)"
            R"("error":"400::an unsubscribe needs a subscription"}])"},
        Row{R"([{"channel":"/meta/unsubscribe","id":"1","clientId":"ID","subscription":false}])",
            R"([{"channel":"/meta/unsubscribe","id":"1","successful":false,)"
            R"("error":"400::subscription must be a string or an array of strings","subscription":false}])"},
        Row{R"([{"channel":"/meta/unsubscribe","id":"1","clientId":"ID","subscription":"/never/had"}])",
            R"([{"channel":"/meta/unsubscribe","id":"1","successful":true,"subscription":"/never/had"}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID","advice":{"timeout":"0"}}])",
            R"([{"channel":"/meta/connect","id":"1","successful":false,)"
            R"("error":"400::advice.timeout must be a number of milliseconds",)"
            R"("advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID","advice":{"timeout":-1}}])",
            R"([{"channel":"/meta/connect","id":"1","successful":false,)"
            R"("error":"400::advice.timeout must be a number of milliseconds",)"
            R"("advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID","advice":{"timeout":null}}])",
            R"([{"channel":"/meta/connect","id":"1","successful":false,)"
            R"("error":"400::advice.timeout must be a number of milliseconds",)"
            R"("advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":"websocket"}])",
            R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
            R"("error":"400::supportedConnectionTypes must be an array of strings",)"
            R"("advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket",7]}])",
            R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
            R"("error":"400::supportedConnectionTypes must hold strings only",)"
            R"("advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":[]}])",
            R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
            R"("error":"301::no common connection type","supportedConnectionTypes":["websocket",)"
            R"("long-polling"],"advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/handshake","id":"1"}])",
            R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
            R"("error":"301::no common connection type","supportedConnectionTypes":["websocket",)"
            R"("long-polling"],"advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/handshake","id":"1","minimumVersion":1,"supportedConnectionTypes":["websocket"]}])",
            R"([{"channel":"/meta/handshake","id":"1","successful":false,)"
            R"("error":"400::minimumVersion must be a string","advice":{"reconnect":"none"}}])"}));

INSTANTIATE_TEST_SUITE_P(
    WhatIsOfNoImportance, BadFrame,
    Values(
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":{"requestID":"r"},"successful":true}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":true}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":{"requestID":"r"},"successful":false,"error":"400::x","advice":{"reconnect":"none"}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":true}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":{"requestID":"r"},"subscription":"/a","ext":7,"advice":[]}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":true}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","clientId":"ID","data":{"requestID":"r"}}])",
            R"([{"channel":"/yvm/own/eval/request","successful":true}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":-1.5e3,"clientId":"ID","data":{"requestID":"r"}}])",
            R"([{"channel":"/yvm/own/eval/request","id":-1.5e3,"successful":true}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID","advice":{"timeout":0},"connectionType":["none"],"ext":null}])",
            R"([{"channel":"/meta/connect","id":"1","successful":true,"advice":{"reconnect":"retry",)"
            R"("interval":0,"timeout":30000}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID","advice":7},{"channel":"/meta/subscribe","id":"2","clientId":"ID","subscription":"/service/a"}])",
            R"([{"channel":"/meta/connect","id":"1","successful":true,"advice":{"reconnect":"retry",)"
            R"("interval":0,"timeout":30000}},{"channel":"/meta/subscribe","id":"2","successful":true,)"
            R"("subscription":"/service/a"}])"}));

INSTANTIATE_TEST_SUITE_P(
    UnknownMetaChannels, BadFrame,
    Values(
        Row{R"([{"channel":"/meta/other","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/other","id":"1","successful":false,)"
            R"("error":"404::unknown channel /meta/other"}])"},
        Row{R"([{"channel":"/meta/","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/","id":"1","successful":false,"error":"404::unknown channel /meta/"}])"},
        Row{R"([{"channel":"/meta","id":"1","clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/meta","id":"1","successful":false,)"
            R"("error":"403::clients publish on request channels only"}])"},
        Row{R"([{"channel":"/meta/connect/","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/connect/","id":"1","successful":false,)"
            R"("error":"404::unknown channel /meta/connect/"}])"},
        Row{R"([{"channel":"/meta/Connect","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/Connect","id":"1","successful":false,)"
            R"("error":"404::unknown channel /meta/Connect"}])"},
        Row{R"([{"channel":"/meta/*","id":"1","clientId":"ID"}])",
            R"([{"channel":"/meta/*","id":"1","successful":false,"error":"404::unknown channel /meta/*"}])"},
        Row{R"([{"channel":"/meta/other","id":"1","clientId":"nobody"}])",
            R"([{"channel":"/meta/other","id":"1","successful":false,"error":"402::Unknown client"}])"}));

INSTANTIATE_TEST_SUITE_P(
    ForeignClientIds, BadFrame,
    Values(
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"nobody"}])",
            R"([{"channel":"/meta/connect","id":"1","successful":false,"error":"402::Unknown client",)"
            R"("advice":{"reconnect":"handshake","interval":0}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1"}])",
            R"([{"channel":"/meta/connect","id":"1","successful":false,"error":"402::Unknown client",)"
            R"("advice":{"reconnect":"handshake","interval":0}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":""}])",
            R"([{"channel":"/meta/connect","id":"1","successful":false,"error":"402::Unknown client",)"
            R"("advice":{"reconnect":"handshake","interval":0}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":null}])",
            R"([{"channel":"/meta/connect","id":"1","successful":false,"error":"402::Unknown client",)"
            R"("advice":{"reconnect":"handshake","interval":0}}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"nobody","subscription":"/yvm/own/**"}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,"error":"402::Unknown client",)"
            R"("subscription":"/yvm/own/**"}])"},
        Row{R"([{"channel":"/meta/unsubscribe","id":"1","clientId":"nobody","subscription":"/yvm/own/**"}])",
            R"([{"channel":"/meta/unsubscribe","id":"1","successful":false,)"
            R"("error":"402::Unknown client","subscription":"/yvm/own/**"}])"},
        Row{R"([{"channel":"/meta/disconnect","id":"1","clientId":"nobody"}])",
            R"([{"channel":"/meta/disconnect","id":"1","successful":false,"error":"402::Unknown client"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"nobody","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"402::Unknown client"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"402::Unknown client"}])"},
        // The id of another session speaks for that session, and for no other.
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"OTHER","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"403::the channel belongs to no client of this session"}])"},
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"OTHER","subscription":"/yvm/own/**"}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,)"
            R"("error":"403::the channel belongs to no client of this session",)"
            R"("subscription":"/yvm/own/**"}])"},
        Row{R"([{"channel":"/yvm/foreign/eval/request","id":"1","clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/yvm/foreign/eval/request","id":"1","successful":false,)"
            R"("error":"403::the channel belongs to no client of this session"}])"}));

INSTANTIATE_TEST_SUITE_P(
    Data, BadFrame,
    Values(
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID"}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::a publish needs data"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":null}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::the data must be an object"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":[{"a":1}]}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::the data must be an object"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":"{}"}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::the data must be an object"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":7}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::the data must be an object"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":{}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::the data must not be an empty object"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":{"a":01}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::the data is not JSON - a comma or the end is expected at byte 6"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":{"ywtype":7}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::every ywtype in the data must be a string"}])"},
        Row{R"([{"channel":"/yvm/own/eval/request","id":"1","clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/yvm/own/eval/request","id":"1","successful":false,)"
            R"("error":"400::the request needs a requestID - a string"}])"},
        Row{R"([{"channel":"/yvm/own/a/b/request","id":"1","clientId":"ID","data":{"requestID":7}}])",
            R"([{"channel":"/yvm/own/a/b/request","id":"1","successful":false,)"
            R"("error":"400::the request needs a requestID - a string"}])"},
        Row{R"([{"channel":"/yvm/attach/request","id":"1","clientId":"ID","data":{"a":1}}])",
            R"([{"channel":"/yvm/attach/request","id":"1","successful":false,)"
            R"("error":"400::the request needs a requestID - a string"}])"},
        Row{R"([{"channel":"/yvm/attach/request","id":"1","clientId":"ID","data":{"requestID":7}}])",
            R"([{"channel":"/yvm/attach/request","id":"1","successful":false,)"
            R"("error":"400::the request needs a requestID - a string"}])"},
        Row{R"([{"channel":"/yvm/attach/request","id":"1","clientId":"ID","data":{"requestID":"sinks"}}])",
            R"([{"channel":"/yvm/attach/request","id":"1","successful":false,)"
            R"("error":"400::the requestID of an attach needs 1 to 64 letters and digits and - or _ and is not attach or detach or sinks"}])"},
        Row{R"([{"channel":"/yvm/attach/request","id":"1","clientId":"ID","data":{"requestID":"foreign"}}])",
            R"([{"channel":"/yvm/attach/request","id":"1","successful":false,)"
            R"("error":"403::the requestID is in use by another session"}])"},
        Row{R"([{"channel":"/yvm/detach/request","id":"1","clientId":"ID","data":{"requestIDtoDetach":"own"}}])",
            R"([{"channel":"/yvm/detach/request","id":"1","successful":false,)"
            R"("error":"400::the request needs a requestID - a string"}])"},
        Row{R"([{"channel":"/yvm/detach/request","id":"1","clientId":"ID","data":{"requestID":"d","requestIDtoDetach":"foreign"}}])",
            R"([{"channel":"/yvm/detach/request","id":"1","successful":false,)"
            R"("error":"403::the client belongs to another session"}])"},
        Row{R"([{"channel":"/yvm/own/text/output","id":"1","clientId":"ID","data":{"text":"forged"}}])",
            R"([{"channel":"/yvm/own/text/output","id":"1","successful":false,)"
            R"("error":"403::clients publish on request channels only"}])"}));

INSTANTIATE_TEST_SUITE_P(
    Batches, BadFrame,
    Values(
        Row{R"([{"channel":"/meta/subscribe","id":"1","clientId":"ID","subscription":"/service/a"},{"channel":"/meta/handshake","id":"2"}])",
            R"([{"channel":"/meta/subscribe","id":"1","successful":false,"error":"402::Unknown client",)"
            R"("subscription":"/service/a"},{"channel":"/meta/handshake","id":"2","successful":false,)"
            R"("error":"301::no common connection type","supportedConnectionTypes":["websocket",)"
            R"("long-polling"],"advice":{"reconnect":"none"}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID"},{"channel":"/meta/connect","id":"2","clientId":"ID"}])",
            R"([{"channel":"/meta/connect","id":"1","successful":true,"advice":{"reconnect":"retry",)"
            R"("interval":0,"timeout":30000}},{"channel":"/meta/connect","id":"2","successful":true,)"
            R"("advice":{"reconnect":"retry","interval":0,"timeout":30000}}])"},
        Row{R"([{"channel":"/meta/connect","id":"1","clientId":"ID"},{"channel":"/nowhere","id":"2","clientId":"ID"},{"id":"3"},8])",
            R"([{"channel":"/meta/connect","id":"1","successful":true,"advice":{"reconnect":"retry",)"
            R"("interval":0,"timeout":30000}},{"channel":"/nowhere","id":"2","successful":false,)"
            R"("error":"403::clients publish on request channels only"},{"channel":"/meta/error",)"
            R"("id":"3","successful":false,)"
            R"("error":"400::a message needs a channel"},{"channel":"/meta/error","successful":false,)"
            R"("error":"400::a message must be an object"}])"}));

TEST_F(BadInputTest, OfAHundredChannelsOneThatIsForeignRefusesAll) {
    std::string channels;
    for (int i = 0; i < 100; ++i) {
        channels += (i == 0 ? "[\"/yvm/" : ",\"/yvm/") + std::string(i == 70 ? "foreign" : "own") + "/c" +
                    std::to_string(i) + '"';
    }
    channels += ']';
    EXPECT_EQ(subscribe(connection, clientId, channels),
              R"([{"channel":"/meta/subscribe","id":"7","successful":false,)"
              R"("error":"403::the channel belongs to no client of this session","subscription":)" +
                  channels + "}]");
    broker->publish("/yvm/own/c0", connector::common::DataBuffer("1"), "test");
    workQueue.runAll();
    EXPECT_EQ(connection->take(), "");
    channels.replace(channels.find("foreign"), 7, "own");
    EXPECT_EQ(
        subscribe(connection, clientId, channels),
        R"([{"channel":"/meta/subscribe","id":"7","successful":true,"subscription":)" + channels + "}]");
    broker->publish("/yvm/own/c0", connector::common::DataBuffer("2"), "test");
    EXPECT_EQ(await(*connection), R"([{"channel":"/yvm/own/c0","data":2}])");
}

TEST_F(BadInputTest, ARequestThatNobodyCanAnswerIsNotInFlight) {
    for (const char* data : {R"({"command":"1"})", R"({"requestID":7})", R"({"requestID":null,"a":1e999})"}) {
        publish(connection, clientId, "/yvm/own/eval/request", data);
        publish(connection, clientId, "/yvm/own/feval/request", data);
    }
    EXPECT_EQ(server->requestsInFlight().count(), 0U);
    publish(connection, clientId, "/yvm/own/eval/request", R"({"requestID":"e"})");
    EXPECT_EQ(server->requestsInFlight().count(), 1U);
}

TEST_F(BadInputTest, OfTwoPollsAtOnceTheOlderIsTurnedAwayWithoutAReply) {
    const auto older = std::make_shared<FakeConnection>(false);
    const auto newer = std::make_shared<FakeConnection>(false);
    EXPECT_EQ(exchange(older, request(clientId, "/meta/connect", "")), "");
    EXPECT_EQ(exchange(newer, request(clientId, "/meta/connect", "")), "");
    EXPECT_TRUE(older->superseded);
    EXPECT_EQ(older->take(), "");
    EXPECT_FALSE(newer->superseded);
    // The older one goes, and takes nothing along.
    server->closed(*older);
    now += std::chrono::seconds(30);
    server->advance();
    EXPECT_EQ(newer->take(), R"([{"channel":"/meta/connect","id":"7","successful":true,)"
                             R"("advice":{"reconnect":"retry","interval":0,"timeout":30000}}])");
}

TEST_F(BadInputTest, AHandshakeInABatchIsCarriedOutAndItsCompanionsAreUnknown) {
    const std::string reply = exchange(
        connection,
        R"([{"channel":"/meta/connect","id":"1","clientId":")" + clientId +
            R"("},{"channel":"/meta/handshake","id":"2","supportedConnectionTypes":["websocket"]},)" +
            R"({"channel":"/yvm/own/eval/request","id":"3","data":{"a":1},"clientId":")" + clientId +
            R"("}])");
    simdjson::dom::parser parser;
    const std::string fresh(std::string_view(parser.parse(reply).at(1)["clientId"]));
    EXPECT_EQ(reply,
              R"([{"channel":"/meta/connect","id":"1","successful":false,"error":"402::Unknown client",)"
              R"("advice":{"reconnect":"handshake","interval":0}},)"
              R"({"channel":"/meta/handshake","id":"2","successful":true,"version":"1.0",)"
              R"("minimumVersion":"1.0","clientId":")" +
                  fresh +
                  R"(","supportedConnectionTypes":["websocket","long-polling"],)"
                  R"("advice":{"reconnect":"retry","interval":0,"timeout":30000}},)"
                  R"({"channel":"/yvm/own/eval/request","id":"3","successful":false,)"
                  R"("error":"402::Unknown client"}])");
    EXPECT_EQ(server->sessionCount(), 3U);
}

}  // namespace
}  // namespace server::bayeux::testing
