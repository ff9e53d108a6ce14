#include "foundation/msg_svc/eventmgr/EventMgr.hpp"

#include "testing/LogCapture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace sample {

using foundation::msg_svc::eventmgr::DerivedEvent;
using foundation::msg_svc::exchange::IDType;

class TextEvent : public DerivedEvent<TextEvent> {
  public:
    static constexpr bool acceptsUserTags = true;
};

class CommandEvent final : public DerivedEvent<CommandEvent, TextEvent> {
  public:
    explicit CommandEvent(IDType command) : command_(command) {}
    std::optional<IDType> commandId() const override { return command_; }

  private:
    IDType command_;
};

}  // namespace sample

namespace foundation::msg_svc::eventmgr {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Calls = std::vector<std::string>;

const std::u16string textTag = u"sample::TextEvent";
const std::u16string commandTag = u"sample::CommandEvent";
const std::u16string rootTag = u"foundation::msg_svc::eventmgr::BaseEvent";

class EventMgrTest : public ::testing::Test {
  protected:
    std::unique_ptr<Connection> subscribe(const std::vector<std::u16string>& tags, EventHandler handler) {
        return manager_->subscribe(std::move(handler), tags.begin(), tags.end());
    }

    EventHandler recorder(const std::string& name) {
        return [this, name](const BaseEvent&) { calls_.push_back(name); };
    }

    template <typename Event, typename... Arguments>
    void fire(Arguments&&... arguments) {
        manager_->deliver(std::make_shared<const Event>(std::forward<Arguments>(arguments)...),
                          DeliveryMode::synchronous);
    }

    boost::shared_ptr<EventMgr> manager_ = EventMgr::create();
    Calls calls_;
};

TEST_F(EventMgrTest, DeliversByClassAndBasesOnceEachInTheOrderOfSubscription) {
    const auto first = subscribe({commandTag}, recorder("command"));
    const auto second = subscribe({rootTag, textTag}, recorder("root and text"));
    const auto third = subscribe({u"sample::Other"}, recorder("other"));
    fire<sample::CommandEvent>(exchange::IDType());
    EXPECT_THAT(calls_, ElementsAre("command", "root and text"));
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("command", "root and text", "root and text"));
}

TEST_F(EventMgrTest, ServesInTheOrderOfSubscriptionWhateverTheTags) {
    const auto first = subscribe({textTag}, recorder("text"));
    const auto second = subscribe({rootTag}, recorder("root"));
    const auto third = subscribe({u"loud", textTag, u"loud"}, recorder("loud and text"));
    const auto fourth = subscribe({rootTag}, recorder("root again"));
    const auto event = std::make_shared<sample::TextEvent>();
    event->addUserTags(std::vector<std::u16string>{u"loud", textTag, u"loud"});
    manager_->deliver(event, DeliveryMode::synchronous);
    EXPECT_THAT(calls_, ElementsAre("text", "root", "loud and text", "root again"));
}

TEST_F(EventMgrTest, DeliversByUserTag) {
    const auto connection = subscribe({u"loud"}, recorder("loud"));
    const auto event = std::make_shared<sample::TextEvent>();
    manager_->deliver(event, DeliveryMode::synchronous);
    EXPECT_TRUE(calls_.empty());
    const auto tagged = std::make_shared<sample::TextEvent>();
    tagged->addUserTags(std::vector<std::u16string>{u"quiet", u"loud"});
    manager_->deliver(tagged, DeliveryMode::synchronous);
    EXPECT_THAT(calls_, ElementsAre("loud"));
}

TEST_F(EventMgrTest, SynchronousDeliveryRunsOnTheCallingThreadBeforeItReturns) {
    std::thread::id thread;
    const auto connection =
        subscribe({textTag}, [&](const BaseEvent&) { thread = std::this_thread::get_id(); });
    fire<sample::TextEvent>();
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(EventMgrTest, QueuedDeliveryRunsInOrderOnAThreadOfTheManager) {
    std::promise<void> all;
    std::vector<const BaseEvent*> received;
    std::atomic<bool> onCaller = false;
    const auto caller = std::this_thread::get_id();
    const auto connection = subscribe({textTag}, [&](const BaseEvent& event) {
        onCaller = onCaller || std::this_thread::get_id() == caller;
        received.push_back(&event);
        if (received.size() == 100) {
            all.set_value();
        }
    });
    std::vector<std::shared_ptr<const BaseEvent>> events;
    std::vector<const BaseEvent*> expected;
    for (int i = 0; i < 100; ++i) {
        events.push_back(std::make_shared<const sample::TextEvent>());
        expected.push_back(events.back().get());
        manager_->deliver(events.back(), DeliveryMode::queued);
    }
    ASSERT_EQ(all.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(received, expected);
    EXPECT_FALSE(onCaller);
}

TEST_F(EventMgrTest, WhatIsQueuedIsStillDeliveredWhenTheManagerGoes) {
    std::atomic<int> calls = 0;
    const auto connection = subscribe({textTag}, [&](const BaseEvent&) { ++calls; });
    std::promise<void> last;
    const auto end = subscribe({u"end"}, [&](const BaseEvent&) { last.set_value(); });
    for (int i = 0; i < 10; ++i) {
        manager_->deliver(std::make_shared<const sample::TextEvent>(), DeliveryMode::queued);
    }
    auto event = std::make_shared<sample::TextEvent>();
    event->addUserTags(std::vector<std::u16string>{u"end"});
    manager_->deliver(std::move(event), DeliveryMode::queued);
    manager_.reset();
    ASSERT_EQ(last.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(calls, 11);
}

TEST_F(EventMgrTest, AHandlerOnTheManagersThreadMayDropTheLastReference) {
    std::promise<void> dropped;
    std::promise<void> own;
    auto connection = subscribe({textTag}, [&](const BaseEvent&) {
        own.get_future().wait();
        manager_.reset();
        dropped.set_value();
    });
    manager_->deliver(std::make_shared<const sample::TextEvent>(), DeliveryMode::queued);
    own.set_value();
    ASSERT_EQ(dropped.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    connection.reset();
}

TEST_F(EventMgrTest, RefusesANullEvent) {
    EXPECT_THROW(manager_->deliver(nullptr, DeliveryMode::synchronous), std::invalid_argument);
}

TEST_F(EventMgrTest, ADestroyedOrDisconnectedConnectionHearsNothing) {
    auto destroyed = subscribe({textTag}, recorder("destroyed"));
    const auto disconnected = subscribe({textTag}, recorder("disconnected"));
    destroyed.reset();
    disconnected->disconnect();
    disconnected->disconnect();
    fire<sample::TextEvent>();
    EXPECT_TRUE(calls_.empty());
    EXPECT_EQ(manager_->subscriptionCount(textTag), 0U);
}

TEST_F(EventMgrTest, AConnectionMayOutliveItsManager) {
    auto connection = subscribe({textTag}, recorder("text"));
    manager_.reset();
    EXPECT_NO_THROW(connection.reset());
}

TEST_F(EventMgrTest, AHandlerMayEndItselfAndOthersAndTheOthersAreSkipped) {
    std::unique_ptr<Connection> first;
    std::unique_ptr<Connection> second;
    first = subscribe({textTag}, [&](const BaseEvent&) {
        calls_.push_back("first");
        first.reset();
        second.reset();
    });
    second = subscribe({textTag}, recorder("second"));
    const auto third = subscribe({textTag}, recorder("third"));
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("first", "third"));
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("first", "third", "third"));
}

TEST_F(EventMgrTest, AHandlerMaySubscribeAndTheNewOneHearsTheNextEvent) {
    std::unique_ptr<Connection> inner;
    const auto outer = subscribe({textTag}, [&](const BaseEvent&) {
        calls_.push_back("outer");
        if (!inner) {
            inner = subscribe({textTag}, recorder("inner"));
        }
    });
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("outer"));
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("outer", "outer", "inner"));
}

TEST_F(EventMgrTest, AHandlerMayDeliver) {
    const auto root = subscribe({textTag}, [&](const BaseEvent& event) {
        calls_.push_back(event.isKindOf(commandTag) ? "inner" : "outer");
        if (!event.isKindOf(commandTag)) {
            fire<sample::CommandEvent>(exchange::IDType());
        }
    });
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("outer", "inner"));
}

TEST_F(EventMgrTest, AHandlerThatQueuesAnEventIsThroughBeforeThatIsDelivered) {
    std::promise<void> last;
    const auto connection = subscribe({textTag}, [&](const BaseEvent& event) {
        const bool isInner = event.isKindOf(commandTag);
        calls_.push_back(isInner ? "inner" : "outer begins");
        if (isInner) {
            last.set_value();
            return;
        }
        manager_->deliver(std::make_shared<const sample::CommandEvent>(exchange::IDType()),
                          DeliveryMode::queued);
        calls_.push_back("outer ends");
    });
    manager_->deliver(std::make_shared<const sample::TextEvent>(), DeliveryMode::queued);
    ASSERT_EQ(last.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_THAT(calls_, ElementsAre("outer begins", "outer ends", "inner"));
}

TEST_F(EventMgrTest, AHandlerMayWaitForAThreadThatUsesTheManager) {
    std::unique_ptr<Connection> self;
    self = subscribe({textTag}, [&](const BaseEvent&) {
        calls_.push_back("text");
        std::thread([&] {
            const auto other = subscribe({commandTag}, recorder("command"));
            self.reset();
            fire<sample::CommandEvent>(exchange::IDType());
            manager_->setCommandHandlerLookup({});
            EXPECT_EQ(manager_->subscriptionCount(textTag), 0U);
        }).join();
    });
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("text", "command"));
}

TEST_F(EventMgrTest, WhatDiesWithAHandlerMayEndFurtherSubscriptions) {
    auto second = std::make_shared<std::unique_ptr<Connection>>(subscribe({textTag}, recorder("second")));
    auto first = subscribe({textTag}, [second](const BaseEvent&) {});
    second.reset();
    EXPECT_EQ(manager_->subscriptionCount(textTag), 2U);
    first.reset();
    EXPECT_EQ(manager_->subscriptionCount(textTag), 0U);
}

TEST_F(EventMgrTest, DisconnectDoesNotWaitForARunningHandler) {
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> left = false;
    auto connection = subscribe({textTag}, [&](const BaseEvent&) {
        entered.set_value();
        release.get_future().wait();
        left = true;
    });
    std::thread engine([&] { fire<sample::TextEvent>(); });
    entered.get_future().wait();
    connection.reset();
    EXPECT_FALSE(left);
    release.set_value();
    engine.join();
    EXPECT_TRUE(left);
}

TEST_F(EventMgrTest, AHandlersExceptionIsLoggedWithTheEventsNameAndTheOthersRun) {
    platform_testing::LogCapture log;
    const auto broken = subscribe({textTag}, [](const BaseEvent&) { throw std::bad_cast(); });
    const auto empty = subscribe({textTag}, EventHandler());
    const auto whole = subscribe({textTag}, recorder("whole"));
    EXPECT_NO_THROW(fire<sample::TextEvent>());
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("whole", "whole"));
    const auto texts = log.texts("foundation::msg_svc::eventmgr", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 4U);
    EXPECT_THAT(texts[0], HasSubstr("A handler of sample::TextEvent failed: "));
    EXPECT_THAT(texts[0], HasSubstr("std::bad_cast"));
    EXPECT_THAT(texts[1], HasSubstr("call to empty boost::function"));
}

TEST_F(EventMgrTest, CountsTheLiveSubscriptionsOfATag) {
    EXPECT_EQ(manager_->subscriptionCount(textTag), 0U);
    const auto first = subscribe({textTag}, recorder(""));
    auto second = subscribe({textTag, u"loud"}, recorder(""));
    EXPECT_EQ(manager_->subscriptionCount(textTag), 2U);
    EXPECT_EQ(manager_->subscriptionCount(u"loud"), 1U);
    second.reset();
    EXPECT_EQ(manager_->subscriptionCount(textTag), 1U);
    EXPECT_EQ(manager_->subscriptionCount(u"loud"), 0U);
    const auto repeated = subscribe({u"loud", u"loud"}, recorder(""));
    EXPECT_EQ(manager_->subscriptionCount(u"loud"), 1U);
}

TEST_F(EventMgrTest, AsksTheCommandsHandlersFirstAndTheGeneralOnesAfterwards) {
    const exchange::IDType command;
    std::vector<std::u16string> asked;
    manager_->setCommandHandlerLookup([&](const exchange::IDType& id, const std::u16string& name) {
        EXPECT_EQ(id, command);
        asked.push_back(name);
        return name == textTag ? recorder("of the command") : EventHandler();
    });
    const auto general = subscribe({textTag}, recorder("general"));
    fire<sample::CommandEvent>(command);
    EXPECT_THAT(calls_, ElementsAre("of the command", "general"));
    // Derived to base, until one is found.
    EXPECT_THAT(asked, ElementsAre(commandTag, textTag));
}

TEST_F(EventMgrTest, EventsWithoutACommandAskNobody) {
    manager_->setCommandHandlerLookup([&](const exchange::IDType&, const std::u16string&) {
        calls_.push_back("asked");
        return EventHandler();
    });
    fire<sample::TextEvent>();
    EXPECT_TRUE(calls_.empty());
    fire<sample::CommandEvent>(exchange::IDType());
    EXPECT_THAT(calls_, ElementsAre("asked", "asked", "asked"));
    manager_->setCommandHandlerLookup({});
    fire<sample::CommandEvent>(exchange::IDType());
    EXPECT_EQ(calls_.size(), 3U);
}

TEST_F(EventMgrTest, AFailedCommandHandlerIsLoggedAndTheGeneralOnesRun) {
    platform_testing::LogCapture log;
    manager_->setCommandHandlerLookup([](const exchange::IDType&, const std::u16string&) {
        return EventHandler([](const BaseEvent&) { throw std::runtime_error("no text"); });
    });
    const auto general = subscribe({textTag}, recorder("general"));
    EXPECT_NO_THROW(fire<sample::CommandEvent>(exchange::IDType()));
    EXPECT_THAT(calls_, ElementsAre("general"));
    const auto texts = log.texts("foundation::msg_svc::eventmgr", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_THAT(texts[0], HasSubstr("A handler of sample::CommandEvent failed: "));
    EXPECT_THAT(texts[0], HasSubstr("no text"));
}

TEST_F(EventMgrTest, StandsSubscribersThatComeAndGoDuringDelivery) {
    std::atomic<bool> working = true;
    std::atomic<int> calls = 0;
    const auto permanent = subscribe({textTag}, [&](const BaseEvent&) { ++calls; });
    std::thread churn([&] {
        while (working) {
            const auto connection = subscribe({textTag}, [&](const BaseEvent&) {});
            manager_->subscriptionCount(textTag);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        fire<sample::TextEvent>();
    }
    working = false;
    churn.join();
    EXPECT_EQ(calls, 2000);
}

TEST_F(EventMgrTest, StandsManyThreadsThatDeliverSubscribeAndEndThemselves) {
    constexpr int eventsOfEach = 300;
    std::atomic<int> permanentCalls = 0;
    std::atomic<int> briefCalls = 0;
    std::atomic<int> nested = 0;
    std::atomic<int> ended = 0;
    struct Slot {
        std::mutex mutex;
        std::unique_ptr<Connection> connection;  // guarded by mutex
    };
    std::array<std::vector<std::unique_ptr<Slot>>, 2> selfEnding;
    const auto permanent = subscribe({textTag}, [&](const BaseEvent&) { ++permanentCalls; });
    const auto nesting = subscribe({commandTag}, [&](const BaseEvent& event) {
        // An event from inside a handler, now and then.
        if (event.getUserTags().empty() && nested++ % 10 == 0) {
            fire<sample::TextEvent>();
        }
    });
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < selfEnding.size(); ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < eventsOfEach; ++j) {
                manager_->deliver(std::make_shared<const sample::CommandEvent>(exchange::IDType()),
                                  j % 2 == 0 ? DeliveryMode::synchronous : DeliveryMode::queued);
            }
        });
        threads.emplace_back([&, &own = selfEnding[i]] {
            for (int j = 0; j < eventsOfEach; ++j) {
                auto& slot = *own.emplace_back(std::make_unique<Slot>());
                const std::lock_guard lock(slot.mutex);
                slot.connection = subscribe({textTag, rootTag}, [&slot, &ended](const BaseEvent&) {
                    const std::lock_guard handlersLock(slot.mutex);
                    ended += slot.connection ? 1 : 0;
                    slot.connection.reset();
                });
            }
        });
        threads.emplace_back([&] {
            for (int j = 0; j < eventsOfEach; ++j) {
                const auto brief = subscribe({u"brief", commandTag}, [&](const BaseEvent&) { ++briefCalls; });
                EXPECT_GE(manager_->subscriptionCount(u"brief"), 1U);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    // Dispatched behind all that is queued, to this one last.
    std::promise<void> last;
    const auto end = subscribe({u"end"}, [&](const BaseEvent&) { last.set_value(); });
    const auto event = std::make_shared<sample::TextEvent>();
    event->addUserTags(std::vector<std::u16string>{u"end"});
    manager_->deliver(event, DeliveryMode::queued);
    ASSERT_EQ(last.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(nested, 2 * eventsOfEach);
    EXPECT_EQ(permanentCalls, 2 * eventsOfEach + nested / 10 + 1);
    EXPECT_EQ(ended, 2 * eventsOfEach);
    EXPECT_EQ(manager_->subscriptionCount(u"brief"), 0U);
    EXPECT_EQ(manager_->subscriptionCount(rootTag), 0U);
    EXPECT_EQ(manager_->subscriptionCount(textTag), 1U);
}

TEST_F(EventMgrTest, AScopedConnectionEndsWhatItHeldWhenItIsAssignedOrDies) {
    {
        ScopedConnection scoped;
        EXPECT_FALSE(scoped.isConnected());
        scoped.assign(subscribe({textTag}, recorder("first")));
        EXPECT_TRUE(scoped.isConnected());
        scoped.assign(subscribe({textTag}, recorder("second")));
        fire<sample::TextEvent>();
        EXPECT_THAT(calls_, ElementsAre("second"));
        scoped.assign(nullptr);
        EXPECT_FALSE(scoped.isConnected());
        fire<sample::TextEvent>();
        scoped.assign(subscribe({textTag}, recorder("third")));
    }
    fire<sample::TextEvent>();
    EXPECT_THAT(calls_, ElementsAre("second"));
}

}  // namespace
}  // namespace foundation::msg_svc::eventmgr
