// What an event costs on its way: made, delivered by the event manager, converted by the plug-in, and
// published to a subscriber that counts, as a session of the server would queue it. Prints each figure with
// its goal, as the median of many rounds in time of the processor. An event that does not arrive ends the
// run.

#include "bench/goals.hpp"
#include "connector/message_service/Broker.hpp"
#include "cppmicroservices/Framework.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/feature/IFeature.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "r24a0/EventManagerConnection.hpp"
#include "r24a0/SubscribeRequest.hpp"
#include "r24a0/YVMSink.hpp"
#include "ylutil/io/SinkTextEvent.hpp"
#include "ylutil/prompt/PromptEvent.hpp"

#include <atomic>
#include <barrier>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using bench::goal;
using bench::median;
using bench::processorTime;
using connector::message_service::Broker;
using connector::message_service::JsonMessage;
using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::DeliveryMode;
using foundation::msg_svc::eventmgr::EventHandler;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::exchange::IDType;
using ylutil::io::SinkTextEvent;
using ylutil::io::StreamTypeEnum;
using ylutil::prompt::PromptEvent;
using ylutil::prompt::PromptState;
using yvm::JSClient::BaseRequest;
using yvm::JSClient::r24a0::EventManagerConnection;
using yvm::JSClient::r24a0::SubscribeRequest;
using yvm::JSClient::r24a0::YVMSink;

using EventPtr = std::shared_ptr<const BaseEvent>;
using EventMaker = std::function<EventPtr()>;

constexpr int rounds = 15;
const std::string promptName = "ylutil::prompt::PromptEvent";
const std::string sinkTextName = "ylutil::io::SinkTextEvent";

EventPtr makePrompt() {
    return std::make_shared<PromptEvent>(std::nullopt, PromptState::busy);
}

EventPtr makeLineOfText() {
    static const std::u16string line(80, u'x');
    return std::make_shared<SinkTextEvent>(std::nullopt, StreamTypeEnum::Output, line);
}

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(EXIT_FAILURE);
}

/// An event manager with clients of their own prefixes, each with its subscriber on the wire's side.
class Clients {
  public:
    Clients(std::size_t count, const std::string& eventName) {
        broker_->start();
        for (std::size_t i = 0; i < count; ++i) {
            const std::string prefix = "/yvm/c" + std::to_string(i);
            subscribers_.push_back(
                broker_->subscribeInline(prefix + "/**", [this](const JsonMessage& /*message*/) {
                    messages_.fetch_add(1, std::memory_order_relaxed);
                }));
            clients_.push_back(EventManagerConnection::create(prefix, manager, service_,
                                                              YVMSink::create(prefix, nullptr, service_)));
            const SubscribeRequest request(
                BaseRequest(R"({"requestID":"s","eventName":")" + eventName + R"("})"));
            if (clients_.back()->handleRequest(request).getJson().contains("error")) {
                fail("no subscription to " + eventName);
            }
        }
    }
    ~Clients() {
        clients_.clear();
        subscribers_.clear();
        broker_->stop();
    }
    Clients(const Clients&) = delete;
    Clients& operator=(const Clients&) = delete;

    void expectMessages(std::size_t expected) {
        const std::size_t messages = messages_.exchange(0);
        if (messages != expected) {
            fail(std::to_string(messages) + " messages instead of " + std::to_string(expected));
        }
    }

    const boost::shared_ptr<EventMgr> manager = EventMgr::create();

  private:
    const std::shared_ptr<Broker> broker_ = Broker::create();
    const std::shared_ptr<connector::message_service::MessageService> service_ =
        broker_->createService("bench");
    std::atomic<std::size_t> messages_{0};
    std::vector<std::shared_ptr<connector::message_service::Subscription>> subscribers_;
    std::vector<std::shared_ptr<EventManagerConnection>> clients_;
};

/// Seconds of this thread's processor time for one event, made and delivered.
double timeOfOne(EventMgr& manager, const EventMaker& make, std::size_t count) {
    const double begin = processorTime();
    for (std::size_t i = 0; i < count; ++i) {
        manager.deliver(make(), DeliveryMode::synchronous);
    }
    return (processorTime() - begin) / static_cast<double>(count);
}

/// As above, the median of all rounds; each event must reach all of the `receivers`.
double medianTimeOfOne(Clients& clients, std::size_t receivers, const EventMaker& make, std::size_t count) {
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        times.push_back(timeOfOne(*clients.manager, make, count));
        clients.expectMessages(receivers * count);
    }
    return median(times);
}

void measureOneSubscriber() {
    std::printf("\nOne event type, one subscriber: handler, converter and publish, on one core\n");
    const auto measure = [](const char* what, const std::string& eventName, const EventMaker& make) {
        Clients clients(1, eventName);
        const double rate = 1e-3 / medianTimeOfOne(clients, 1, make, 20'000);
        goal(rate >= 200, what, rate, "thousand events a second", "at least 200");
    };
    measure("state of the prompt", promptName, makePrompt);
    measure("a line of 80 characters for the sinks", sinkTextName, makeLineOfText);
}

void measureManySubscribers() {
    std::printf("\nMany clients that are subscribed to one event type: time for each of them\n");
    const auto measure = [](std::size_t count) {
        Clients clients(count, promptName);
        const double time = medianTimeOfOne(clients, count, makePrompt, 20'000 / count);
        std::printf("  %zu clients: %.2f us\n", count, time * 1e6 / static_cast<double>(count));
        return time / static_cast<double>(count);
    };
    const double few = measure(10);
    measure(100);
    const double many = measure(1000);
    goal(many / few < 2, "1000 clients beside 10, for each client", many / few, "times the cost",
         "less than 2");
}

void measureTwoThreads() {
    std::printf("\nTwo threads that deliver at once, beside one: processor time for an event\n");
    constexpr std::size_t count = 20'000;
    Clients clients(1, promptName);
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        const double alone = timeOfOne(*clients.manager, makePrompt, count);
        std::barrier start(2);
        double other = 0;
        std::thread thread([&] {
            start.arrive_and_wait();
            other = timeOfOne(*clients.manager, makePrompt, count);
        });
        start.arrive_and_wait();
        const double own = timeOfOne(*clients.manager, makePrompt, count);
        thread.join();
        clients.expectMessages(3 * count);
        ratios.push_back((own + other) / 2 / alone);
    }
    std::printf("  %.2f times that of one thread\n", median(ratios));
}

void measureNobody() {
    std::printf("\nDelivery of an event that nobody wants, its making included\n");
    const auto measure = [](const char* what, Clients& clients, const EventMaker& make) {
        const double time = medianTimeOfOne(clients, 0, make, 200'000) * 1e9;
        goal(time < 200, what, time, "ns", "less than 200");
    };
    Clients none(0, promptName);
    measure("no subscription", none, makePrompt);
    Clients others(1000, sinkTextName);
    measure("1000 subscriptions to another event", others, makePrompt);
    // The engine's lookup ends at once for a command without callbacks.
    none.manager->setCommandHandlerLookup(
        [](const IDType& /*command*/, const std::u16string& /*name*/) { return EventHandler(); });
    const IDType command;
    measure("no subscription, of a command without a handler", none,
            [&command] { return std::make_shared<PromptEvent>(command, PromptState::busy); });
}

}  // namespace

int main() {
    // As in the server: text is batched, so that events ask for it to leave first; the log is on, and takes
    // what went wrong.
    foundation::feature::IFeature::instance().set("YVMJS_SmartBuf", true);
    foundation::feature::IFeature::instance().set("webui", true);
    foundation::log::setLoggingEnabled(true);
    const auto framework = std::make_shared<cppmicroservices::Framework>();
    framework->Start();
    foundation::cppmicroservices::setFramework(framework);
    measureOneSubscriber();
    measureManySubscribers();
    measureTwoThreads();
    measureNobody();
    framework->Stop();
    foundation::cppmicroservices::setFramework(nullptr);
    return 0;
}
