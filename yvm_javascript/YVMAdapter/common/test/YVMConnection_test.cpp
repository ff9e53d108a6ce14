#include "common/YVMConnection.hpp"

#include "cmddistributor/RuntimeException.hpp"
#include "common/test/NullSubscriptions.hpp"
#include "common/test/support.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

namespace yvm::JSClient {
namespace {

using platform_testing::FakeMessageService;
using platform_testing::LogCapture;
using test::expectPlainError;
using test::memberOf;
using test::textThrownBy;

const std::string logChannel = "yvm::JSClient::YVMConnection";

class YVMConnectionTest : public testing::Test {
  protected:
    /// A connection on "/base" that records its requests, then does what `then` says.
    void connect(YVMConnection::Handler then = [](const BaseRequest&) {}) {
        connection.emplace(service, "/base", [this, then = std::move(then)](const BaseRequest& request) {
            handled.push_back(request.getRequestID());
            then(request);
        });
    }

    void deliver(const std::string& text) { EXPECT_EQ(service->deliver("/base/request", text), 1U); }

    /// The only publication, which is on the response channel.
    foundation::json::Value onlyResponse() const {
        const auto publications = service->publications();
        EXPECT_EQ(publications.size(), 1U);
        if (publications.size() != 1) {
            return {};
        }
        EXPECT_EQ(publications.front().channel, "/base/response");
        return publications.front().json();
    }

    /// Delivers a text on which nobody is answered, and returns the texts of what was caught.
    std::vector<std::string> caughtBySilence(const std::string& text) {
        connect();
        const LogCapture log;
        deliver(text);
        EXPECT_TRUE(handled.empty());
        EXPECT_TRUE(service->publications().empty());
        EXPECT_TRUE(service->callbackExceptions().empty());
        return log.texts(logChannel, 16);
    }

    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    std::vector<std::string> handled;
    std::optional<YVMConnection> connection;
};

TEST_F(YVMConnectionTest, SubscribesToTheRequestChannelBeforeTheConstructorReturns) {
    connect();
    EXPECT_EQ(service->subscriptionLog(), (std::vector<std::string>{"subscribe /base/request"}));
}

TEST_F(YVMConnectionTest, EndsItsSubscriptionOnceWhenDestroyed) {
    connect();
    connection.reset();
    EXPECT_EQ(service->subscriptionLog(),
              (std::vector<std::string>{"subscribe /base/request", "unsubscribe /base/request"}));
}

TEST_F(YVMConnectionTest, AnEmptyHandlerSubscribesToNothingAndStillPublishes) {
    connection.emplace(service, "/base", YVMConnection::Handler());
    EXPECT_TRUE(service->subscriptionLog().empty());
    connection->publishResponse(RequestResponse("a"));
    EXPECT_EQ(onlyResponse(), foundation::json::Value(JsonObject{{"requestID", "a"}}));
}

TEST_F(YVMConnectionTest, PublishSendsBelowTheBaseChannel) {
    connection.emplace(service, "/base", YVMConnection::Handler());
    connection->publish("fireEvent", JsonObject{{"n", 1.0}});
    ASSERT_EQ(service->publications().size(), 1U);
    EXPECT_EQ(service->publications().front().channel, "/base/fireEvent");
    EXPECT_EQ(service->publications().front().json(), foundation::json::Value(JsonObject{{"n", 1.0}}));
}

TEST_F(YVMConnectionTest, APublishThatFailsIsNotObserved) {
    connection.emplace(service, "/base", YVMConnection::Handler());
    service->failNextPublish(FakeMessageService::Failure::exceptionInFuture);
    connection->publishResponse(RequestResponse("a"));
    EXPECT_TRUE(service->publications().empty());
}

TEST_F(YVMConnectionTest, AHandlerThatReturnsPublishesNothingByItself) {
    connect();
    deliver(R"({"requestID":"a"})");
    EXPECT_EQ(handled, std::vector<std::string>{"a"});
    EXPECT_TRUE(service->publications().empty());
}

TEST_F(YVMConnectionTest, ARuntimeExceptionOfTheHandlerIsAnsweredAsItStands) {
    connect([](const BaseRequest&) {
        throw cmddistributor::RuntimeException(ylutil::cmddistributor::inExecutionStatus::Cancelled,
                                               std::u16string(u"stopped"), "Identifier");
    });
    deliver(R"({"requestID":"a"})");
    const auto response = onlyResponse();
    EXPECT_EQ(memberOf(response, "requestID").as<std::string>(), "a");
    EXPECT_EQ(test::statusOf(response), 3);
    EXPECT_EQ(test::messageOf(response), "stopped");
    EXPECT_EQ(memberOf(memberOf(response, "error"), "identifier").as<std::string>(), "Identifier");
}

TEST_F(YVMConnectionTest, AnotherExceptionOfTheHandlerIsAnsweredByItsText) {
    connect([](const BaseRequest&) { throw std::out_of_range("far out"); });
    deliver(R"({"requestID":"a"})");
    expectPlainError(onlyResponse(), 2, "far out");
}

TEST_F(YVMConnectionTest, WhatElseTheHandlerThrowsIsUnknown) {
    connect([](const BaseRequest&) { throw 42; });
    deliver(R"({"requestID":"a"})");
    expectPlainError(onlyResponse(), 2, "Unknown Exception");
}

TEST_F(YVMConnectionTest, AMissingKeyOfTheHandlersRequestIsAnswered) {
    connect([](const BaseRequest& request) { request.findValue<std::string>("command"); });
    deliver(R"({"requestID":"a"})");
    expectPlainError(onlyResponse(), 2, "key: command is missing from {\n  \"requestID\": \"a\"\n}");
}

TEST_F(YVMConnectionTest, AFailedHandlerIsLoggedOnce) {
    connect([](const BaseRequest&) { throw std::out_of_range("far out"); });
    const LogCapture log;
    deliver(R"({"requestID":"a"})");
    const auto caught = log.texts(logChannel, 16);
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_TRUE(caught.front().starts_with("Exception caught: ")) << caught.front();
    EXPECT_NE(caught.front().find("far out"), std::string::npos) << caught.front();
}

TEST_F(YVMConnectionTest, AnObjectWithoutRequestIDIsNotAnswered) {
    const auto caught = caughtBySilence(R"({"command":"x"})");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("key: requestID is missing from {\n  \"command\": \"x\"\n}"),
              std::string::npos);
}

TEST_F(YVMConnectionTest, ARequestIDThatIsNoStringIsNotAnswered) {
    const auto caught = caughtBySilence(R"({"requestID":5})");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("invalid conversion: double to string"), std::string::npos);
}

TEST_F(YVMConnectionTest, AValueThatIsNoObjectIsNotAnswered) {
    const auto caught = caughtBySilence("[1]");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("invalid conversion: array to object"), std::string::npos);
}

TEST_F(YVMConnectionTest, ATextThatGoesOnBehindTheValueIsNotAnswered) {
    const auto caught = caughtBySilence(R"({"requestID":"a"} )");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("Invalid Command. Unable to parse command."), std::string::npos);
}

TEST_F(YVMConnectionTest, AnEmptyMessageIsNotAnswered) {
    const auto caught = caughtBySilence("");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("JSON ParserException (E0019)"), std::string::npos);
}

TEST_F(YVMConnectionTest, ALeadingBlankIsNotForgiven) {
    const auto caught = caughtBySilence(R"( {"requestID":"a"})");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("Invalid Command. Unable to parse command."), std::string::npos);
}

TEST_F(YVMConnectionTest, ARepairedObjectWithoutRequestIDIsNotAnswered) {
    const auto caught = caughtBySilence(R"({requestID:"a"})");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("key: requestID is missing from "), std::string::npos) << caught.front();
}

TEST_F(YVMConnectionTest, ARepairThatEndsInANonObjectIsNotAnswered) {
    const auto caught = caughtBySilence(R"([tru"])");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("invalid conversion: array to object"), std::string::npos)
        << caught.front();
}

TEST_F(YVMConnectionTest, AFailureBeyondRepairIsNotAnswered) {
    const auto caught = caughtBySilence(R"~({"requestID":"a","command":"disp("x")"})~");
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_TRUE(caught.front().starts_with("Exception caught: "));
    EXPECT_NE(caught.front().find("Invalid Command. Unable to parse command."), std::string::npos);
}

TEST_F(YVMConnectionTest, ARepairedRequestIsAnsweredByItsLastFailureAndNotRun) {
    connect();
    deliver(R"({"requestID":"a",command:"x"})");
    EXPECT_TRUE(handled.empty());
    const auto response = onlyResponse();
    EXPECT_EQ(memberOf(response, "requestID").as<std::string>(), "a");
    expectPlainError(response, 5,
                     "JSON ParserException (E0008): Expected a value or a string (Line 1, Column 28)\n"
                     "\t{\"requestID\":\"a\",\"command:\":x\"}\n"
                     "\t                            ^");
}

TEST_F(YVMConnectionTest, EachRequestAndResponseIsLogged) {
    const LogCapture log;
    connect([this](const BaseRequest& request) {
        connection->publishResponse(RequestResponse(request.getRequestID()));
    });
    deliver(R"({"requestID":""})");
    EXPECT_EQ(log.texts(logChannel, 8),
              (std::vector<std::string>{"subscribe to /base/request",
                                        "request id = ", "response id =  for /base/response"}));
}

TEST_F(YVMConnectionTest, OperationsOpenAFunctionTrace) {
    const LogCapture log;
    connect([this](const BaseRequest& request) {
        connection->publishResponse(RequestResponse(request.getRequestID()));
        connection->publish("name", {});
    });
    deliver(R"({"requestID":"a"})");
    connection.reset();
    const auto entries = log.texts(logChannel, 32);
    for (const std::string function : {"::YVMConnection(", "::~YVMConnection(", "::publish(",
                                       "::publishResponse(", "::subscribe(", "::handleRequest("}) {
        EXPECT_EQ(
            std::ranges::count_if(
                entries, [&](const std::string& text) { return text.find(function) != std::string::npos; }),
            1)
            << function;
    }
    EXPECT_EQ(log.texts(logChannel, 64).size(), entries.size());
}

TEST_F(YVMConnectionTest, AFailedSubscriptionLeavesTheConstructor) {
    using Failure = FakeMessageService::Failure;
    const auto failureText = [this](Failure failure) {
        service->failNextSubscribe(failure);
        return textThrownBy<std::runtime_error>([this] { connect(); });
    };
    EXPECT_EQ(failureText(Failure::invalidFuture), "Future state isn't valid!");
    EXPECT_EQ(failureText(Failure::cancelled), "Future has been cancelled.");
    EXPECT_EQ(failureText(Failure::exceptionInFuture), "fake failure");
    EXPECT_EQ(failureText(Failure::thrown), "fake failure");
    EXPECT_EQ(service->subscriberCount(), 0U);
}

TEST_F(YVMConnectionTest, ANullSubscriptionLeavesTheConstructor) {
    const auto nullService = std::make_shared<test::NullSubscriptions>(0);
    EXPECT_EQ(textThrownBy<std::runtime_error>(
                  [&] { YVMConnection(nullService, "/base", [](const BaseRequest&) {}); }),
              "The message service gave no subscription to /base/request");
}

TEST_F(YVMConnectionTest, AHandlerMayDestroyItsOwnConnection) {
    const auto text = std::make_shared<std::string>("far out");
    connect([this, text](const BaseRequest&) {
        connection.reset();
        throw std::out_of_range(*text);
    });
    deliver(R"({"requestID":"a"})");
    EXPECT_EQ(service->subscriberCount(), 0U);
    expectPlainError(onlyResponse(), 2, "far out");
}

TEST_F(YVMConnectionTest, DestructionWaitsForAHandlerOnAnotherThread) {
    std::promise<void> entered;
    std::atomic<bool> left = false;
    connect([&](const BaseRequest&) {
        entered.set_value();
        // Nothing else lets the handler go than the end of its subscription, which the destructor has begun
        // then.
        if (test::waitUntil([this] { return service->subscriberCount("/base/request") == 0; })) {
            left = true;
        }
    });
    std::thread delivery([this] { deliver(R"({"requestID":"a"})"); });
    entered.get_future().wait();
    EXPECT_FALSE(left);
    connection.reset();
    EXPECT_TRUE(left);
    delivery.join();
}

}  // namespace
}  // namespace yvm::JSClient
