#include "connector/message_service/Broker.hpp"

#include "Recorder.hpp"
#include "connector/message_service/detail/RouteTable.hpp"
#include "connector/message_service/detail/channels.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "testing/LogCapture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace connector::message_service {
namespace {

using common::DataBuffer;
using test::Recorder;
using test::Signal;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class BrokerTest : public ::testing::Test {
  protected:
    BrokerTest() { broker_->start(); }
    ~BrokerTest() override { broker_->stop(); }

    std::shared_ptr<Subscription> subscribe(const std::string& channel,
                                            MessageService::MessageCallback callback) {
        return door_->subscribe(channel, std::move(callback)).get();
    }

    void publish(const std::string& channel, const std::string& text) {
        door_->publish(channel, DataBuffer(text));
    }

    /// Waits until everything that was published in `lane` so far has been delivered.
    void drain(const std::string& lane) {
        Signal reached;
        const auto subscription = subscribe("/drain", [&](const JsonMessage&) { reached.set(); });
        broker_->publish("/drain", DataBuffer("{}"), lane);
        reached.wait();
    }

    std::shared_ptr<Broker> broker_ = Broker::create();
    std::shared_ptr<MessageService> door_ = broker_->createService("test");
};

TEST(MatchesPatternTest, ComparesPlainNames) {
    EXPECT_TRUE(matchesPattern("/a/b", "/a/b"));
    EXPECT_FALSE(matchesPattern("/a/b", "/a/bc"));
    EXPECT_FALSE(matchesPattern("/a/b", "/a"));
    EXPECT_FALSE(matchesPattern("/a", "/a/b"));
}

TEST(MatchesPatternTest, AStarStandsForOneSegment) {
    EXPECT_TRUE(matchesPattern("/a/*", "/a/b"));
    EXPECT_FALSE(matchesPattern("/a/*", "/a/b/c"));
    EXPECT_FALSE(matchesPattern("/a/*", "/a"));
    EXPECT_FALSE(matchesPattern("/a/*", "/a/"));
    EXPECT_FALSE(matchesPattern("/a/*", "/ab/c"));
    EXPECT_TRUE(matchesPattern("/*", "/a"));
    EXPECT_FALSE(matchesPattern("/*", "/a/b"));
}

TEST(MatchesPatternTest, TwoStarsStandForAnyDepth) {
    EXPECT_TRUE(matchesPattern("/a/**", "/a/b"));
    EXPECT_TRUE(matchesPattern("/a/**", "/a/b/c/d"));
    EXPECT_FALSE(matchesPattern("/a/**", "/a"));
    EXPECT_FALSE(matchesPattern("/a/**", "/a/"));
    EXPECT_FALSE(matchesPattern("/a/**", "/ab/c"));
    EXPECT_TRUE(matchesPattern("/**", "/a/b"));
}

TEST(MatchesPatternTest, AStarInsideANameIsAPlainCharacter) {
    EXPECT_TRUE(matchesPattern("/a/*/c", "/a/*/c"));
    EXPECT_FALSE(matchesPattern("/a/*/c", "/a/b/c"));
    EXPECT_FALSE(matchesPattern("/a*", "/ab"));
}

TEST(RouteTableTest, FindsWhatMatchesPattern) {
    const std::vector<std::string> names = {"/a",      "/a/",   "/a/b",   "/a/b/",  "/a/b/c", "/ab",
                                            "a/b",     "",      "/",      "//",     "/a//b",  "/*",
                                            "/**",     "/a/*",  "*",      "/x/y/z", "/a/**",  "/a/b/*",
                                            "/a/b/**", "/x/**", "/x/y/*", "//*",    "a/*"};
    for (const auto& pattern : names) {
        detail::RouteTable routes;
        routes.add(std::make_shared<detail::Receiver>("", pattern, detail::DeliveryPlace::lane, nullptr));
        for (const auto& channel : names) {
            EXPECT_EQ(routes.collect(channel).inLane.size(), matchesPattern(pattern, channel) ? 1U : 0U)
                << '"' << pattern << "\" and \"" << channel << '"';
        }
    }
}

TEST(DefaultLaneTest, IsTheFirstTwoSegments) {
    EXPECT_EQ(detail::defaultLane("/yvm/attach/request"), "/yvm/attach");
    EXPECT_EQ(detail::defaultLane("/yvm/attach"), "/yvm/attach");
    EXPECT_EQ(detail::defaultLane("/yvm"), "/yvm");
    EXPECT_EQ(detail::defaultLane(""), "");
}

TEST_F(BrokerTest, DeliversChannelAndTextToExactAndPatternSubscribers) {
    Recorder exact;
    Recorder children;
    Recorder all;
    const auto first = subscribe("/a/b/c", exact.callback());
    const auto second = subscribe("/a/b/*", children.callback());
    const auto third = subscribe("/a/**", all.callback());
    publish("/a/b/c", "{\"n\":1}");
    publish("/a/b/d", "{\"n\":2}");
    publish("/a/c", "{\"n\":3}");
    EXPECT_THAT(exact.wait(1), ElementsAre("/a/b/c {\"n\":1}"));
    EXPECT_THAT(children.wait(2), ElementsAre("/a/b/c {\"n\":1}", "/a/b/d {\"n\":2}"));
    EXPECT_EQ(all.wait(3).size(), 3U);
    drain("/a/b");
    EXPECT_EQ(exact.texts().size(), 1U);
}

TEST_F(BrokerTest, AnEmptyPayloadIsANullDataPointer) {
    std::promise<const char*> data;
    const auto subscription =
        subscribe("/a", [&](const JsonMessage& message) { data.set_value(message.payload().data()); });
    publish("/a", "");
    EXPECT_EQ(data.get_future().get(), nullptr);
}

TEST_F(BrokerTest, ThePayloadIsSharedAndNotCopied) {
    const DataBuffer payload("some text that is too long for the small string optimisation");
    std::promise<const char*> data;
    const auto subscription =
        subscribe("/a", [&](const JsonMessage& message) { data.set_value(message.payload().data()); });
    door_->publish("/a", payload);
    EXPECT_EQ(data.get_future().get(), payload.data());
}

TEST_F(BrokerTest, KeepsTheOrderOfALaneAcrossChannels) {
    Recorder recorder;
    const auto first = subscribe("/a/x", recorder.callback());
    const auto second = subscribe("/b/**", recorder.callback());
    std::vector<std::string> expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string channel = i % 3 == 0 ? "/a/x" : "/b/" + std::to_string(i % 7);
        broker_->publish(channel, DataBuffer(std::to_string(i)), "session");
        expected.push_back(channel + ' ' + std::to_string(i));
    }
    EXPECT_EQ(recorder.wait(1000), expected);
}

TEST_F(BrokerTest, ThreadsThatPublishInTheirOwnLanesKeepTheirOrder) {
    constexpr int publishers = 8;
    constexpr int messages = 500;
    Recorder recorder;
    const auto subscription = subscribe("/flood/*", recorder.callback());
    std::vector<std::thread> threads;
    for (int publisher = 0; publisher < publishers; ++publisher) {
        threads.emplace_back([this, publisher] {
            const std::string name = std::to_string(publisher);
            for (int i = 0; i < messages; ++i) {
                broker_->publish("/flood/" + name, DataBuffer(std::to_string(i)), name);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::vector<int> next(publishers, 0);
    for (const auto& text : recorder.wait(static_cast<std::size_t>(publishers) * messages)) {
        const int publisher = text.at(7) - '0';
        EXPECT_EQ(text, "/flood/" + std::to_string(publisher) + ' ' + std::to_string(next.at(publisher)++));
    }
    EXPECT_EQ(next, std::vector<int>(publishers, messages));
}

TEST_F(BrokerTest, OneLaneIsNeverDeliveredOnTwoThreadsAtOnce) {
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    std::atomic<int> calls = 0;
    Signal done;
    const auto subscription = subscribe("/a/*", [&](const JsonMessage&) {
        overlapped = overlapped || inside.fetch_add(1) != 0;
        inside.fetch_sub(1);
        if (++calls == 2000) {
            done.set();
        }
    });
    std::vector<std::thread> threads;
    for (int publisher = 0; publisher < 4; ++publisher) {
        threads.emplace_back([this] {
            for (int i = 0; i < 500; ++i) {
                broker_->publish("/a/b", DataBuffer("1"), "one lane");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    done.wait();
    EXPECT_FALSE(overlapped);
}

TEST_F(BrokerTest, NeverDeliversInsidePublish) {
    Recorder recorder;
    std::mutex publishersMutex;
    const auto subscription = subscribe("/a", [&](const JsonMessage&) {
        // Deadlocks, were it called inside the publish below.
        const std::lock_guard lock(publishersMutex);
        recorder.add(std::this_thread::get_id() == std::thread::id() ? "" : "delivered");
    });
    {
        const std::lock_guard lock(publishersMutex);
        publish("/a", "1");
        EXPECT_TRUE(recorder.texts().empty());
    }
    recorder.wait(1);
}

TEST_F(BrokerTest, AHandlerThatBlocksStallsOnlyItsLane) {
    Signal release;
    Signal entered;
    Recorder recorder;
    const auto blocking = subscribe("/slow/a/request", [&](const JsonMessage&) {
        entered.set();
        release.wait();
    });
    const auto behind = subscribe("/slow/a/other", recorder.callback());
    const auto other = subscribe("/quick/a/request", recorder.callback());
    publish("/slow/a/request", "1");
    publish("/slow/a/other", "2");
    entered.wait();
    publish("/quick/a/request", "3");
    EXPECT_THAT(recorder.wait(1), ElementsAre("/quick/a/request 3"));
    release.set();
    EXPECT_THAT(recorder.wait(2), ElementsAre("/quick/a/request 3", "/slow/a/other 2"));
}

TEST_F(BrokerTest, ThePoolGrowsWithTheHandlersThatBlock) {
    constexpr int lanes = 20;
    Signal release;
    Recorder entered;
    const auto subscription = subscribe("/busy", [&](const JsonMessage&) {
        entered.add("");
        release.wait();
    });
    for (int lane = 0; lane < lanes; ++lane) {
        broker_->publish("/busy", DataBuffer("1"), "lane " + std::to_string(lane));
    }
    entered.wait(lanes);
    release.set();
}

TEST(BrokerLimitsTest, LanesBeyondTheLargestPoolWaitTheirTurn) {
    Broker::Options options;
    options.maxDeliveryThreads = 2;
    const auto broker = Broker::create(options);
    broker->start();
    const auto door = broker->createService("test");
    Signal release;
    Recorder entered;
    std::set<std::thread::id> threads;
    std::mutex threadsMutex;
    const auto subscription = door->subscribe("/busy",
                                              [&](const JsonMessage&) {
                                                  {
                                                      const std::lock_guard lock(threadsMutex);
                                                      threads.insert(std::this_thread::get_id());
                                                  }
                                                  entered.add("");
                                                  release.wait();
                                              })
                                  .get();
    for (int lane = 0; lane < 6; ++lane) {
        broker->publish("/busy", DataBuffer("1"), "lane " + std::to_string(lane));
    }
    entered.wait(2);
    release.set();
    entered.wait(6);
    broker->stop();
    EXPECT_EQ(threads.size(), 2U);
}

TEST_F(BrokerTest, ACallbackMaySubscribeAndWaitForTheConfirmation) {
    // As many at once as there are threads: none is left that could help with the confirmation.
    Broker::Options options;
    options.maxDeliveryThreads = 2;
    const auto broker = Broker::create(options);
    broker->start();
    const auto door = broker->createService("test");
    Recorder recorder;
    std::vector<std::shared_ptr<Subscription>> inner(2);
    const auto subscription =
        door->subscribe(
                "/attach",
                [&](const JsonMessage& message) {
                    const auto index = static_cast<std::size_t>(message.payload().view()[0] - '0');
                    inner[index] =
                        door->subscribe("/client/" + std::to_string(index), recorder.callback()).get();
                    recorder.add("subscribed");
                })
            .get();
    broker->publish("/attach", DataBuffer("0"), "lane 0");
    broker->publish("/attach", DataBuffer("1"), "lane 1");
    recorder.wait(2);
    door->publish("/client/1", DataBuffer("x"));
    EXPECT_EQ(recorder.wait(3).back(), "/client/1 x");
    broker->stop();
}

TEST_F(BrokerTest, AMessagePublishedInsideACallbackComesBehindThoseOfItsLane) {
    Recorder recorder;
    const auto first = subscribe("/a/one", [&](const JsonMessage& message) {
        recorder.callback()(message);
        publish("/a/two", "inner");
    });
    const auto second = subscribe("/a/two", recorder.callback());
    publish("/a/one", "outer");
    EXPECT_THAT(recorder.wait(2), ElementsAre("/a/one outer", "/a/two inner"));
}

TEST_F(BrokerTest, SubscribersThatComeAfterAMessageDoNotGetIt) {
    Signal release;
    Signal entered;
    Recorder recorder;
    const auto blocking = subscribe("/a/block", [&](const JsonMessage&) {
        entered.set();
        release.wait();
    });
    publish("/a/block", "");
    entered.wait();
    const auto early = subscribe("/a/x", recorder.callback());
    publish("/a/x", "1");
    Recorder lateRecorder;
    const auto late = subscribe("/a/x", lateRecorder.callback());
    release.set();
    drain("/a/x");
    EXPECT_THAT(recorder.texts(), ElementsAre("/a/x 1"));
    EXPECT_TRUE(lateRecorder.texts().empty());
}

TEST_F(BrokerTest, ACallbacksExceptionIsLoggedAndTheNextMessageComes) {
    platform_testing::LogCapture log;
    Recorder recorder;
    const auto subscription = subscribe("/a/b", [&](const JsonMessage& message) {
        if (message.payload().view() == "1") {
            throw std::runtime_error("broken callback");
        }
        if (message.payload().view() == "2") {
            throw 5;
        }
        recorder.callback()(message);
    });
    publish("/a/b", "1");
    publish("/a/b", "2");
    publish("/a/b", "3");
    EXPECT_THAT(recorder.wait(1), ElementsAre("/a/b 3"));
    const auto texts = log.texts("connector::message_service", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_THAT(texts[0], HasSubstr("A callback of test failed on /a/b: "));
    EXPECT_THAT(texts[0], HasSubstr("broken callback"));
    EXPECT_THAT(texts[1], HasSubstr("int"));
}

TEST_F(BrokerTest, NoCallbackStartsOnceUnsubscribeHasReturned) {
    // The publisher runs all the time; a callback after the flag went up would be the failure. It waits for
    // the delivery now and then, since the next subscriber is served behind all that was published for the
    // last one.
    std::atomic<bool> publishing = true;
    std::thread publisher([&] {
        while (publishing) {
            for (int i = 0; i < 20; ++i) {
                broker_->publish("/a", DataBuffer("1"), "lane");
            }
            drain("lane");
        }
    });
    std::atomic<bool> late = false;
    for (int round = 0; round < 200; ++round) {
        std::atomic<bool> ended = false;
        Signal first;
        const auto subscription = subscribe("/a", [&](const JsonMessage&) {
            late = late || ended;
            first.set();
        });
        first.wait();
        subscription->unsubscribe().get();
        ended = true;
    }
    publishing = false;
    publisher.join();
    EXPECT_FALSE(late);
}

TEST_F(BrokerTest, UnsubscribeWaitsForACallbackOnAnotherThread) {
    Signal entered;
    Signal release;
    std::atomic<bool> left = false;
    const auto subscription = subscribe("/a", [&](const JsonMessage&) {
        entered.set();
        release.wait();
        left = true;
    });
    publish("/a", "1");
    entered.wait();
    auto ending = std::async(std::launch::async, [&] {
        subscription->unsubscribe().get();
        return left.load();
    });
    EXPECT_EQ(ending.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    release.set();
    EXPECT_TRUE(ending.get());
}

TEST_F(BrokerTest, DestroyingASubscriptionEndsItAndWaitsToo) {
    Signal entered;
    Signal release;
    std::atomic<bool> left = false;
    auto subscription = subscribe("/a", [&](const JsonMessage&) {
        entered.set();
        release.wait();
        left = true;
    });
    publish("/a", "1");
    entered.wait();
    std::thread releaser([&] { release.set(); });
    subscription.reset();
    EXPECT_TRUE(left);
    releaser.join();
}

TEST_F(BrokerTest, ACallbackMayEndItsOwnSubscriptionWithoutWaitingForItself) {
    std::shared_ptr<Subscription> subscription;
    Signal subscribed;
    Recorder recorder;
    subscription = subscribe("/a", [&](const JsonMessage& message) {
        subscribed.wait();
        // The last owner goes: the callable must stay alive until it has returned.
        subscription.reset();
        recorder.callback()(message);
    });
    subscribed.set();
    publish("/a", "1");
    publish("/a", "2");
    EXPECT_THAT(recorder.wait(1), ElementsAre("/a 1"));
    drain("/a");
    EXPECT_EQ(recorder.texts().size(), 1U);
}

TEST_F(BrokerTest, EndingTwiceIsHarmless) {
    Recorder events;
    const auto listener =
        door_->onUnsubscribe("/a", [&](const UnsubscribeEvent& event) { events.add(event.channel); }).get();
    auto subscription = subscribe("/a", [](const JsonMessage&) {});
    subscription->unsubscribe().get();
    subscription->unsubscribe().get();
    subscription.reset();
    subscribe("/a", [](const JsonMessage&) {}).reset();
    EXPECT_THAT(events.wait(2), ElementsAre("/a", "/a"));
}

TEST_F(BrokerTest, TellsOfSubscribersThatComeAndGoOneByOne) {
    Recorder events;
    const auto coming =
        door_->onSubscribe("/a/b", [&](const SubscribeEvent& event) { events.add("+" + event.channel); })
            .get();
    const auto going =
        door_->onUnsubscribe("/a/b", [&](const UnsubscribeEvent& event) { events.add("-" + event.channel); })
            .get();
    auto first = subscribe("/a/b", [](const JsonMessage&) {});
    auto second = broker_->subscribeInline("/a/b", [](const JsonMessage&) {});
    first.reset();
    second.reset();
    EXPECT_THAT(events.wait(4), ElementsAre("+/a/b", "+/a/b", "-/a/b", "-/a/b"));
}

TEST_F(BrokerTest, PatternsAndOtherChannelsDoNotCountAsSubscribers) {
    Recorder events;
    const auto coming =
        door_->onSubscribe("/a/b", [&](const SubscribeEvent& event) { events.add("+" + event.channel); })
            .get();
    const auto going =
        door_->onUnsubscribe("/a/b", [&](const UnsubscribeEvent& event) { events.add("-" + event.channel); })
            .get();
    subscribe("/a/*", [](const JsonMessage&) {}).reset();
    subscribe("/a/**", [](const JsonMessage&) {}).reset();
    subscribe("/a/c", [](const JsonMessage&) {}).reset();
    subscribe("/a/b", [](const JsonMessage&) {}).reset();
    EXPECT_THAT(events.wait(2), ElementsAre("+/a/b", "-/a/b"));
}

TEST_F(BrokerTest, ADestroyedEventSubscriptionHearsNothing) {
    Recorder events;
    auto ended = door_->onSubscribe("/a", [&](const SubscribeEvent&) { events.add("ended"); }).get();
    const auto live = door_->onSubscribe("/a", [&](const SubscribeEvent&) { events.add("live"); }).get();
    ended.reset();
    subscribe("/a", [](const JsonMessage&) {}).reset();
    subscribe("/a", [](const JsonMessage&) {}).reset();
    EXPECT_THAT(events.wait(2), ElementsAre("live", "live"));
}

TEST_F(BrokerTest, AnEventHandlerMayTakeALockThatIsHeldWhileUnsubscribing) {
    std::mutex ownersMutex;
    Recorder events;
    const auto going = door_
                           ->onUnsubscribe("/a",
                                           [&](const UnsubscribeEvent& event) {
                                               const std::lock_guard lock(ownersMutex);
                                               events.add(event.channel);
                                           })
                           .get();
    auto subscription = subscribe("/a", [](const JsonMessage&) {});
    {
        const std::lock_guard lock(ownersMutex);
        subscription->unsubscribe().get();
    }
    events.wait(1);
}

TEST_F(BrokerTest, AnInlineSubscriberIsCalledOnThePublishingThreadInsidePublish) {
    std::vector<std::thread::id> threads;
    const auto subscription = broker_->subscribeInline(
        "/a/**", [&](const JsonMessage&) { threads.push_back(std::this_thread::get_id()); });
    publish("/a/b", "1");
    broker_->publish("/a/b/c", DataBuffer("2"), "lane");
    EXPECT_THAT(threads, ElementsAre(std::this_thread::get_id(), std::this_thread::get_id()));
}

TEST_F(BrokerTest, AnInlineSubscribersExceptionDoesNotReachThePublisher) {
    platform_testing::LogCapture log;
    const auto subscription =
        broker_->subscribeInline("/a", [](const JsonMessage&) { throw std::runtime_error("full"); });
    EXPECT_NO_THROW(publish("/a", "1"));
    const auto texts = log.texts("connector::message_service", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_THAT(texts[0], HasSubstr("full"));
}

TEST_F(BrokerTest, AStartTriggerHoldsTheMessagesBackUntilTheStartHasReturned) {
    Signal release;
    Signal starting;
    Recorder recorder;
    std::shared_ptr<Subscription> subscription;
    broker_->addStartTrigger("/yvm/*", [&] {
        starting.set();
        subscription = subscribe("/yvm/attach/request", recorder.callback());
        release.wait();
        recorder.add("started");
    });
    publish("/yvm/attach/request", "1");
    publish("/yvm/attach/request", "2");
    starting.wait();
    publish("/yvm/attach/request", "3");
    EXPECT_TRUE(recorder.texts().empty());
    release.set();
    EXPECT_THAT(recorder.wait(4), ElementsAre("started", "/yvm/attach/request 1", "/yvm/attach/request 2",
                                              "/yvm/attach/request 3"));
    publish("/yvm/attach/request", "4");
    EXPECT_EQ(recorder.wait(5).back(), "/yvm/attach/request 4");
}

TEST_F(BrokerTest, MessagesOfOtherLanesWaitForTheSameStart) {
    Signal release;
    Signal starting;
    Recorder recorder;
    std::atomic<int> starts = 0;
    std::shared_ptr<Subscription> subscription;
    broker_->addStartTrigger("/yvm/*", [&] {
        ++starts;
        starting.set();
        release.wait();
        subscription = subscribe("/yvm/**", recorder.callback());
    });
    broker_->publish("/yvm/a", DataBuffer("1"), "session 1");
    starting.wait();
    broker_->publish("/yvm/b", DataBuffer("2"), "session 2");
    broker_->publish("/yvm/c", DataBuffer("3"), "session 3");
    release.set();
    EXPECT_THAT(recorder.wait(3), ::testing::UnorderedElementsAre("/yvm/a 1", "/yvm/b 2", "/yvm/c 3"));
    EXPECT_EQ(starts, 1);
}

TEST_F(BrokerTest, AMessageBehindAHeldOneInItsLaneDoesNotOvertakeIt) {
    Signal starting;
    Signal release;
    Recorder recorder;
    std::shared_ptr<Subscription> started;
    const auto other = subscribe("/other", recorder.callback());
    broker_->addStartTrigger("/yvm/*", [&] {
        starting.set();
        release.wait();
        started = subscribe("/yvm/a", recorder.callback());
    });
    broker_->publish("/yvm/a", DataBuffer("1"), "session");
    starting.wait();
    broker_->publish("/other", DataBuffer("2"), "session");
    release.set();
    EXPECT_THAT(recorder.wait(2), ElementsAre("/yvm/a 1", "/other 2"));
}

TEST_F(BrokerTest, AStartMayPublishAndSubscribeOnItsOwnChannels) {
    Recorder recorder;
    std::vector<std::shared_ptr<Subscription>> subscriptions;
    broker_->addStartTrigger("/yvm/*", [&] {
        subscriptions.push_back(subscribe("/yvm/**", recorder.callback()));
        publish("/yvm/hello", "from the start");
    });
    publish("/yvm/attach/request", "1");
    EXPECT_THAT(recorder.wait(2),
                ::testing::UnorderedElementsAre("/yvm/attach/request 1", "/yvm/hello from the start"));
}

TEST_F(BrokerTest, ATriggerSpansSegmentsAndLeavesOtherChannelsAlone) {
    Recorder recorder;
    broker_->addStartTrigger("/yvm/*", [&] { recorder.add("started"); });
    const auto subscription = subscribe("/other", recorder.callback());
    publish("/yvm", "");
    publish("/yvmx/a", "");
    publish("/other", "1");
    EXPECT_THAT(recorder.wait(1), ElementsAre("/other 1"));
    publish("/yvm/a/b/c", "");
    EXPECT_EQ(recorder.wait(2).back(), "started");
}

TEST_F(BrokerTest, InlineSubscribersAreNotHeldBackByATrigger) {
    Recorder recorder;
    Signal release;
    broker_->addStartTrigger("/yvm/*", [&] { release.wait(); });
    const auto subscription = broker_->subscribeInline("/yvm/**", recorder.callback());
    publish("/yvm/attach/response", "1");
    EXPECT_THAT(recorder.texts(), ElementsAre("/yvm/attach/response 1"));
    release.set();
    drain("/yvm/attach");  // Or the start would wait for what has gone with this frame.
}

TEST_F(BrokerTest, AFailedStartIsLoggedAndTheNextMessageTriesAgain) {
    platform_testing::LogCapture log;
    Recorder recorder;
    Recorder starts;
    Signal release;
    std::shared_ptr<Subscription> subscription;
    broker_->addStartTrigger("/yvm/*", [&] {
        const bool first = starts.texts().empty();
        starts.add("start");
        if (first) {
            release.wait();
            throw std::runtime_error("no engine");
        }
        subscription = subscribe("/yvm/a", recorder.callback());
    });
    publish("/yvm/a", "1");
    starts.wait(1);
    publish("/yvm/a", "2");
    release.set();
    drain("/yvm/a");
    // The second message was held back with the first: it does not start the component again.
    EXPECT_EQ(starts.texts().size(), 1U);
    EXPECT_TRUE(recorder.texts().empty());
    publish("/yvm/a", "3");
    EXPECT_THAT(recorder.wait(1), ElementsAre("/yvm/a 3"));
    EXPECT_EQ(starts.texts().size(), 2U);
    const auto texts = log.texts("connector::message_service", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_THAT(texts[0], HasSubstr("The start for /yvm/* failed: "));
    EXPECT_THAT(texts[0], HasSubstr("no engine"));
}

TEST(BrokerLifeTest, WhatIsPublishedBeforeTheStartWaitsForIt) {
    const auto broker = Broker::create();
    const auto door = broker->createService("test");
    Recorder recorder;
    const auto subscription = door->subscribe("/a", recorder.callback()).get();
    door->publish("/a", DataBuffer("1"));
    EXPECT_TRUE(recorder.texts().empty());
    broker->start();
    EXPECT_THAT(recorder.wait(1), ElementsAre("/a 1"));
    broker->stop();
}

TEST(BrokerLifeTest, ASubscriptionIsConfirmedWithoutAnyDeliveryThread) {
    const auto broker = Broker::create();
    const auto door = broker->createService("test");
    EXPECT_TRUE(door->subscribe("/a", [](const JsonMessage&) {}).get());
    EXPECT_TRUE(door->onSubscribe("/a", [](const SubscribeEvent&) {}).get());
    EXPECT_TRUE(door->onUnsubscribe("/a", [](const UnsubscribeEvent&) {}).get());
}

TEST(BrokerLifeTest, APoolWithoutThreadsIsRefused) {
    Broker::Options options;
    options.maxDeliveryThreads = 0;
    try {
        Broker::create(options);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "maxDeliveryThreads must be at least 1");
    }
}

TEST(BrokerLifeTest, NothingIsDeliveredOnceStopHasReturned) {
    const auto broker = Broker::create();
    broker->start();
    const auto door = broker->createService("test");
    Recorder recorder;
    const auto laned = door->subscribe("/a", recorder.callback()).get();
    const auto inlined = broker->subscribeInline("/a", recorder.callback());
    door->publish("/a", DataBuffer("1"));
    recorder.wait(2);
    broker->stop();
    broker->stop();
    EXPECT_NO_THROW(door->publish("/a", DataBuffer("2")).get());
    EXPECT_EQ(recorder.texts().size(), 2U);
}

TEST(BrokerLifeTest, StopDropsWhatWaitsBehindARunningCallback) {
    // What the delivery thread still touches when it is left to itself.
    struct Shared {
        Signal entered;
        Signal release;
        Signal threadEnded;
    };
    const auto shared = std::make_shared<Shared>();
    const platform_testing::LogCapture log;
    Broker::Options options;
    options.stopTimeout = std::chrono::milliseconds(1);
    const auto broker = Broker::create(options);
    broker->start();
    const auto door = broker->createService("test");
    Recorder recorder;
    const auto subscription =
        door->subscribe("/a",
                        [&recorder, shared](const JsonMessage& message) {
                            recorder.callback()(message);
                            thread_local const foundation::core::util::scope_guard tellsTheEnd(
                                [shared] { shared->threadEnded.set(); });
                            shared->entered.set();
                            shared->release.wait();
                        })
            .get();
    door->publish("/a", DataBuffer("1"));
    shared->entered.wait();
    door->publish("/a", DataBuffer("2"));
    broker->stop();
    shared->release.set();
    // Only now is it certain that nothing else comes.
    shared->threadEnded.wait();
    EXPECT_THAT(recorder.texts(), ElementsAre("/a 1"));
}

TEST(BrokerLifeTest, StopDoesNotHangOnACallbackThatNeverReturns) {
    // Everything that the left thread still touches must outlive this test's frame.
    struct Shared {
        Signal entered;
        Signal release;
        Signal left;
    };
    const auto shared = std::make_shared<Shared>();
    platform_testing::LogCapture log;
    Broker::Options options;
    options.stopTimeout = std::chrono::milliseconds(10);
    auto broker = Broker::create(options);
    broker->start();
    auto door = broker->createService("test");
    auto subscription = door->subscribe("/a",
                                        [shared](const JsonMessage&) {
                                            shared->entered.set();
                                            shared->release.wait();
                                            shared->left.set();
                                        })
                            .get();
    door->publish("/a", DataBuffer("1"));
    shared->entered.wait();
    broker->stop();
    EXPECT_FALSE(shared->left.isSet());
    EXPECT_TRUE(log.contains("connector::message_service", foundation::log::CaughtException,
                             "Callbacks that have not returned within 10 ms and are left to themselves: 1"));
    shared->release.set();
    shared->left.wait();
}

TEST(BrokerLifeTest, ACallbackMayStopTheBroker) {
    const auto broker = Broker::create();
    broker->start();
    const auto door = broker->createService("test");
    Signal stopped;
    const auto subscription = door->subscribe("/a",
                                              [&](const JsonMessage&) {
                                                  broker->stop();
                                                  stopped.set();
                                              })
                                  .get();
    door->publish("/a", DataBuffer("1"));
    stopped.wait();
}

TEST(BrokerLifeTest, ABrokerThatWasNeverStoppedEndsWithItsLastDoor) {
    std::weak_ptr<Broker> weak;
    {
        auto broker = Broker::create();
        weak = broker;
        broker->addStartTrigger("/held/*", [] {});
        broker->publish("/held/a", DataBuffer("1"), "/a");
        broker->start();
        const auto door = broker->createService("test");
        broker.reset();
        Recorder recorder;
        const auto subscription = door->subscribe("/a", recorder.callback()).get();
        door->publish("/a", DataBuffer("1"));
        recorder.wait(1);
    }
    EXPECT_TRUE(weak.expired());
}

TEST(BrokerLifeTest, ABrokerThatWasNeverStartedEndsInSpiteOfMessagesThatItHolds) {
    auto broker = Broker::create();
    broker->addStartTrigger("/held/*", [] {});
    broker->publish("/held/a", DataBuffer("1"), "lane");
    const std::weak_ptr<Broker> weak = broker;
    broker.reset();
    EXPECT_TRUE(weak.expired());
}

TEST(CreateMessageServiceTest, FailsWithoutABrokerAndOpensADoorWithOne) {
    const auto open = [] { return createMessageService("module", {}).get(); };
    try {
        open();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no message broker is installed in this process");
    }
    const auto broker = Broker::create();
    setMessageServiceFactory([broker](const std::string& name, const MessageServiceOptions&) {
        return makeReadyFuture<std::shared_ptr<MessageService>>(broker->createService(name));
    });
    const auto door = open();
    setMessageServiceFactory({});
    ASSERT_TRUE(door);
    EXPECT_THROW(open(), std::runtime_error);
    EXPECT_NO_THROW(door->publish("/a", DataBuffer("1")).get());
}

}  // namespace
}  // namespace connector::message_service
