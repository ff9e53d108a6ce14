#include "testing/FakeMessageService.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace platform_testing {
namespace {

using connector::common::DataBuffer;
using connector::message_service::JsonMessage;
using ::testing::ElementsAre;

class FakeMessageServiceTest : public ::testing::Test {
  protected:
    std::shared_ptr<FakeMessageService> service_ = FakeMessageService::create();
};

std::string messageOf(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& error) {
        return error.what();
    }
}

template <typename Function>
std::string messageOfThrown(Function function) {
    try {
        function();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing was thrown";
}

TEST_F(FakeMessageServiceTest, RecordsPublicationsInOrder) {
    service_->publish("/a", DataBuffer("{\"n\":1}"));
    service_->publish("/b", DataBuffer("2"));
    service_->publish("/a", DataBuffer());
    ASSERT_EQ(service_->publications().size(), 3U);
    EXPECT_EQ(service_->publications()[1].channel, "/b");
    ASSERT_EQ(service_->publicationsOn("/a").size(), 2U);
    EXPECT_EQ(service_->publicationsOn("/a")[1].text, "");
    const auto json = service_->publications()[0].json();
    EXPECT_EQ(json.get<foundation::json::Object>().at("n").get<double>(), 1.0);
    service_->clearPublications();
    EXPECT_TRUE(service_->publications().empty());
}

TEST_F(FakeMessageServiceTest, DeliversOnTheCallersThreadToTheExactChannelOnly) {
    std::vector<std::string> received;
    std::thread::id thread;
    const auto onA = service_
                         ->subscribe("/a",
                                     [&](const JsonMessage& message) {
                                         received.push_back(message.channel() + ' ' +
                                                            std::string(message.payload().view()));
                                         thread = std::this_thread::get_id();
                                     })
                         .get();
    EXPECT_EQ(service_->deliver("/a", "x"), 1U);
    EXPECT_EQ(service_->deliver("/a/b", "y"), 0U);
    EXPECT_THAT(received, ElementsAre("/a x"));
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(FakeMessageServiceTest, AnEmptyTextArrivesAsANullPointer) {
    const char* data = "not null";
    const auto subscription =
        service_->subscribe("/a", [&](const JsonMessage& message) { data = message.payload().data(); }).get();
    service_->deliver("/a", "");
    EXPECT_EQ(data, nullptr);
}

TEST_F(FakeMessageServiceTest, KeepsWhatACallbackThrows) {
    const auto subscription =
        service_->subscribe("/a", [](const JsonMessage&) { throw std::runtime_error("broken"); }).get();
    EXPECT_EQ(service_->deliver("/a", "x"), 1U);
    ASSERT_EQ(service_->callbackExceptions().size(), 1U);
    EXPECT_EQ(messageOf(service_->callbackExceptions()[0]), "broken");
}

TEST_F(FakeMessageServiceTest, LogsComingAndGoingInOrderAndOnce) {
    auto first = service_->subscribe("/a", [](const JsonMessage&) {}).get();
    auto second = service_->onSubscribe("/a", [](const auto&) {}).get();
    auto third = service_->onUnsubscribe("/a", [](const auto&) {}).get();
    EXPECT_EQ(service_->subscriberCount("/a"), 1U);
    first->unsubscribe().get();
    first->unsubscribe().get();
    first.reset();
    second.reset();
    third.reset();
    EXPECT_EQ(service_->subscriberCount(), 0U);
    EXPECT_THAT(service_->subscriptionLog(),
                ElementsAre("subscribe /a", "onSubscribe /a", "onUnsubscribe /a", "unsubscribe /a",
                            "endOnSubscribe /a", "endOnUnsubscribe /a"));
}

TEST_F(FakeMessageServiceTest, TellsMonitorsOfSubscribersThatComeAndGo) {
    std::vector<std::string> events;
    const auto onSubscribe =
        service_->onSubscribe("/a", [&](const auto& event) { events.push_back("+" + event.channel); }).get();
    const auto onUnsubscribe =
        service_->onUnsubscribe("/a", [&](const auto& event) { events.push_back("-" + event.channel); })
            .get();
    service_->subscribe("/a", [](const JsonMessage&) {}).get();
    service_->subscribe("/b", [](const JsonMessage&) {}).get();
    service_->fireSubscribe("/a");
    service_->fireUnsubscribe("/a");
    EXPECT_THAT(events, ElementsAre("+/a", "-/a", "+/a", "-/a"));
}

TEST_F(FakeMessageServiceTest, FailsOneSubscriptionInTheWayThatWasAskedFor) {
    const auto fail = [&](FakeMessageService::Failure failure) {
        service_->failNextSubscribe(failure);
        return messageOfThrown([&] { service_->subscribe("/a", [](const JsonMessage&) {}).get(); });
    };
    EXPECT_EQ(fail(FakeMessageService::Failure::exceptionInFuture), "fake failure");
    EXPECT_EQ(fail(FakeMessageService::Failure::cancelled), "Future has been cancelled.");
    EXPECT_EQ(fail(FakeMessageService::Failure::invalidFuture), "Future state isn't valid!");
    EXPECT_EQ(fail(FakeMessageService::Failure::thrown), "fake failure");
    EXPECT_TRUE(service_->subscriptionLog().empty());
    EXPECT_NO_THROW(service_->subscribe("/a", [](const JsonMessage&) {}).get());
}

TEST_F(FakeMessageServiceTest, AFailureMayStandBehindSuccesses) {
    service_->failNextSubscribe(FakeMessageService::Failure::cancelled, 1);
    EXPECT_NO_THROW(service_->onSubscribe("/a", [](const auto&) {}).get());
    EXPECT_EQ(messageOfThrown([&] { service_->onUnsubscribe("/a", [](const auto&) {}).get(); }),
              "Future has been cancelled.");
}

TEST_F(FakeMessageServiceTest, AFailedPublishRecordsNothing) {
    service_->failNextPublish(FakeMessageService::Failure::thrown);
    EXPECT_THROW(service_->publish("/a", DataBuffer("1")), std::runtime_error);
    EXPECT_TRUE(service_->publications().empty());
    service_->publish("/a", DataBuffer("2"));
    EXPECT_EQ(service_->publications().size(), 1U);
}

TEST_F(FakeMessageServiceTest, WaitsForThePublicationOfAnotherThread) {
    std::thread publisher([service = service_] {
        service->publish("/b", DataBuffer("0"));
        service->publish("/a", DataBuffer("1"));
        service->publish("/a", DataBuffer("2"));
    });
    EXPECT_EQ(service_->waitForPublication("/a", 2).text, "2");
    publisher.join();
}

TEST_F(FakeMessageServiceTest, AWaitThatEndsInVainTellsWhatCameInstead) {
    service_->publish("/b", DataBuffer("0"));
    EXPECT_EQ(messageOfThrown([&] { service_->waitForPublication("/a", 1, std::chrono::milliseconds(1)); }),
              "publication 1 on /a did not come. Published was:\n  /b 0");
}

TEST_F(FakeMessageServiceTest, TheEndOfASubscriptionWaitsForACallbackOnAnotherThread) {
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> left = false;
    const auto subscription = service_
                                  ->subscribe("/a",
                                              [&](const JsonMessage&) {
                                                  entered.set_value();
                                                  release.get_future().wait();
                                                  left = true;
                                              })
                                  .get();
    std::thread deliverer([&] { service_->deliver("/a", "x"); });
    entered.get_future().wait();
    std::thread releaser([&] { release.set_value(); });
    subscription->unsubscribe().get();
    EXPECT_TRUE(left);
    deliverer.join();
    releaser.join();
}

TEST_F(FakeMessageServiceTest, ACallbackMayEndItsOwnSubscription) {
    std::shared_ptr<connector::message_service::Subscription> subscription;
    int calls = 0;
    subscription = service_
                       ->subscribe("/a",
                                   [&](const JsonMessage&) {
                                       ++calls;
                                       subscription->unsubscribe().get();
                                   })
                       .get();
    EXPECT_EQ(service_->deliver("/a", "x"), 1U);
    EXPECT_EQ(service_->deliver("/a", "x"), 0U);
    EXPECT_EQ(calls, 1);
}

TEST(FakeMessageServiceFactoryTest, AnswersWhileItLivesAndFailsAsTold) {
    const auto open = [](const std::string& name) {
        return connector::message_service::createMessageService(name, {}).get();
    };
    {
        FakeMessageServiceFactory factory;
        EXPECT_EQ(open("one"), factory.service());
        factory.failNextCreate(FakeMessageService::Failure::cancelled);
        EXPECT_EQ(messageOfThrown([&] { open("two"); }), "Future has been cancelled.");
        EXPECT_EQ(open("three"), factory.service());
        EXPECT_THAT(factory.names(), ElementsAre("one", "two", "three"));
    }
    EXPECT_EQ(messageOfThrown([&] { open("four"); }), "no message broker is installed in this process");
}

}  // namespace
}  // namespace platform_testing
