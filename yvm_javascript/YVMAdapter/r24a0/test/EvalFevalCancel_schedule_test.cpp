// Random schedules of submit, run, finish, cancel, group cancel, interrupt and detach, one step at a time, on
// the real command queue. A model says after each step what must have been answered: every accepted eval and
// feval once, or its client is gone; and every cancel by what became of its request.

#include "cmddistributor/CommandQueue.hpp"
#include "common/test/support.hpp"
#include "r24a0/EvalFevalCancel.hpp"
#include "testing/FakeMessageService.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace yvm::JSClient::r24a0 {
namespace {

using cmddistributor::CommandQueue;
using cmddistributor::Moment;
using platform_testing::FakeMessageService;

constexpr const char* interrupted = "test:interrupted";
constexpr const char* alreadyDone = "UNABLE_TO_CANCEL_ALREADY_DONE";

/// An engine whose every step is the test's. For one thread.
class SteppedEngine final : public yvm::YVM, private cmddistributor::EngineSignals {
  public:
    std::uint64_t getIdentifier() const override { return 1; }
    boost::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override { return queue_; }
    boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> getEventMgr() override { return {}; }
    void replaceSinks(Sink /*outSink*/, Sink /*errSink*/) override {}
    foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<yvm::YVM> /*self*/) override {
        return {};
    }
    void interrupt() override {
        if (running_) {
            interrupt(running_->id);
        }
    }
    std::shared_ptr<ylutil::debugger::Debugger> getDebugger() override { return {}; }
    void breakInDebugger() override {}

    CommandQueue& queue() { return *queue_; }
    bool isRunning() const { return running_.has_value(); }

    /// Starts the next command at the prompt. Its text, or the function's name; empty when none waits.
    std::string start() {
        interruptTarget_ = IDType::null();
        running_ = queue_->take(Moment::TopPrompt);
        if (!running_) {
            return {};
        }
        const auto& iip = *running_->request->getIIP();
        if (const auto* eval = std::get_if<cmddistributor::EvalIIP>(&iip)) {
            return {eval->command.begin(), eval->command.end()};
        }
        return std::get<cmddistributor::FEvalIIP>(iip).function;
    }

    /// Ends the running command: by the interrupt if there was one and the command lets it pass, else well.
    void finish(bool swallowsInterrupt) {
        const auto id = std::exchange(running_, std::nullopt)->id;
        if (interruptTarget_ == id && !swallowsInterrupt) {
            queue_->fail(id, {RequestResponse::Status::Cancelled, std::string("stopped"), interrupted}, true);
        } else {
            queue_->finish(id, {});
        }
    }

  private:
    void wake() override {}
    void requestPreemption() override {}
    void interrupt(const IDType& id) override { interruptTarget_ = id; }

    std::optional<cmddistributor::TakenCommand> running_;
    IDType interruptTarget_ = IDType::null();
    const boost::shared_ptr<CommandQueue> queue_ = CommandQueue::create(*this);
};

/// Channel, `requestID`, and "ok", the identifier of the error, or the status of the cancel.
using Answer = std::tuple<std::string, std::string, std::string>;

class Schedule {
  public:
    explicit Schedule(unsigned seed) : random_(seed) {
        for (auto& client : clients_) {
            attach(client);
        }
    }

    void run(int steps) {
        for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
            takeStep();
        }
        while (!testing::Test::HasFatalFailure() && (engine_->isRunning() || isAnyWaiting())) {
            engine_->isRunning() ? finish() : start();
        }
        for (auto& client : clients_) {
            awaitCancels(client);
        }
        EXPECT_TRUE(engine_->queue().waiting().empty());
        EXPECT_EQ(answers(), expected_);
    }

  private:
    enum class State { waiting, running, ended };
    struct Request {
        std::string prefix;  ///< of its client
        std::string channel;
        std::string requestID;
        std::string group;
        State state = State::waiting;
        bool isInterrupted = false;
        std::vector<std::string> pendingCancels;  ///< the identifiers of cancels that wait for its end
    };
    struct Client {
        std::string prefix;
        std::shared_ptr<EvalFevalCancel> service;
        std::vector<std::string> usedIDs;
        std::map<std::string, Request*> registry;  ///< what a cancel of an identifier reaches
        std::size_t expectedCancels = 0;
    };

    unsigned pick(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
    bool oneIn(unsigned bound) { return pick(bound) == 0; }
    std::string newID() { return std::to_string(++lastID_); }
    Client* livingClient(const std::string& prefix) {
        const auto found = std::ranges::find(clients_, prefix, &Client::prefix);
        return found == std::end(clients_) ? nullptr : &*found;
    }
    bool isAnyWaiting() const {
        return std::ranges::any_of(requests_, [](const auto& r) { return r->state == State::waiting; });
    }

    void takeStep() {
        auto& client = clients_[pick(std::size(clients_))];
        const auto dice = pick(100);
        if (dice < 4) {
            detach(client);
        } else if (dice < 12) {
            cancelGroup(client);
        } else if (dice < 22) {
            interrupt(client);
        } else if (dice < 45) {
            cancel(client);
        } else if (dice < 72) {
            engine_->isRunning() ? finish() : start();
        } else {
            submit(client);
        }
    }

    void deliver(const Client& client, const std::string& channel, const std::string& members) {
        ASSERT_EQ(service_->deliver(client.prefix + "/" + channel + "/request", "{" + members + "}"), 1U);
    }
    void expectAnswer(const std::string& prefix, const std::string& channel, const std::string& requestID,
                      const std::string& outcome) {
        expected_.emplace(prefix + "/" + channel + "/response", requestID, outcome);
    }

    void attach(Client& client) {
        client = {"/yvm/c" + newID(), nullptr, {}, {}, 0};
        client.service = EvalFevalCancel::create(client.prefix, engine_, service_, nullptr);
    }

    void submit(Client& client) {
        const bool repeats = !client.usedIDs.empty() && oneIn(8);
        auto& request = *requests_.emplace_back(std::make_unique<Request>());
        request.prefix = client.prefix;
        request.requestID = repeats ? client.usedIDs[pick(client.usedIDs.size())] : newID();
        request.channel = oneIn(2) ? "eval" : "feval";
        request.group = std::string(1, static_cast<char>('p' + pick(3)));
        client.usedIDs.push_back(request.requestID);
        client.registry.try_emplace(request.requestID, &request);

        const std::string name = std::to_string(requests_.size() - 1);
        static constexpr const char* modes[] = {"PPE",  "PAUSE",    "PROMPT", "NON_DEBUG_PROMPT",
                                                "IDLE", "BOOTSTRAP"};
        deliver(client, request.channel,
                R"("requestID":")" + request.requestID + R"(","command":")" + name + R"(","function":")" +
                    name + R"(","numOutputsExpected":0,"rhsArgs":[],"runOptions":{"groupNames":["all",")" +
                    request.group + R"("],"queueName":"q)" + std::to_string(pick(3)) +
                    R"(","dequeueMode":"DEQUEUE_AT_)" + modes[pick(std::size(modes))] + "\"}");
    }

    void start() {
        const auto name = engine_->start();
        ASSERT_EQ(name.empty(), !isAnyWaiting()) << "each of the modes may run at the prompt";
        if (!name.empty()) {
            auto& request = *requests_.at(std::stoul(name));
            ASSERT_EQ(request.state, State::waiting) << "what was cancelled never runs";
            request.state = State::running;
            running_ = &request;
        }
    }

    void finish() {
        const bool swallows = oneIn(4);
        auto& request = *running_;
        const bool stops = request.isInterrupted && !swallows;
        end(request, stops ? interrupted : "ok");
        for (const auto& cancelID : request.pendingCancels) {
            expectCancel(request.prefix, cancelID, stops ? "CANCEL_WHILE_RUNNING" : alreadyDone);
        }
        engine_->finish(swallows);
    }

    void end(Request& request, const std::string& outcome) {
        request.state = State::ended;
        if (auto* const client = livingClient(request.prefix)) {
            client->registry.erase(request.requestID);
            expectAnswer(request.prefix, request.channel, request.requestID, outcome);
        }
    }

    void expectCancel(const std::string& prefix, const std::string& cancelID, const std::string& status) {
        if (auto* const client = livingClient(prefix)) {
            ++client->expectedCancels;
            expectAnswer(prefix, "cancel", cancelID, status);
        }
    }

    void cancel(Client& client) {
        const auto target =
            client.usedIDs.empty() || oneIn(10) ? "unknown" : client.usedIDs[pick(client.usedIDs.size())];
        const bool withInterrupt = oneIn(2);
        const auto cancelID = newID();
        const auto entry = client.registry.find(target);
        if (entry == client.registry.end()) {
            expectCancel(client.prefix, cancelID, alreadyDone);
        } else if (auto& request = *entry->second; request.state == State::waiting) {
            expectCancel(client.prefix, cancelID, "CANCEL_BEFORE_RUNNING");
            end(request, cmddistributor::cancelledIdentifier);
        } else if (withInterrupt) {
            request.isInterrupted = true;
            request.pendingCancels.push_back(cancelID);
        } else {
            expectCancel(client.prefix, cancelID, "UNABLE_TO_CANCEL_OTHER");
        }
        deliver(client, "cancel",
                R"("requestID":")" + cancelID + R"(","requestIDtoCancel":")" + target + R"(","interrupt":)" +
                    (withInterrupt ? "true" : "false"));
    }

    void cancelGroup(Client& client) {
        const std::string group = oneIn(20) ? "all" : std::string(1, static_cast<char>('p' + pick(4)));
        const bool withInterrupt = oneIn(2);
        for (const auto& request : requests_) {
            if (group != "all" && request->group != group) {
                continue;
            }
            if (request->state == State::waiting) {
                end(*request, cmddistributor::cancelledIdentifier);
            } else if (request->state == State::running && withInterrupt) {
                request->isInterrupted = true;
            }
        }
        const auto requestID = newID();
        expectAnswer(client.prefix, "cancelGroup", requestID, "ok");
        deliver(client, "cancelGroup",
                R"("requestID":")" + requestID + R"(","requestGroupNametoCancel":")" + group +
                    R"(","interrupt":)" + (withInterrupt ? "true" : "false"));
    }

    void interrupt(Client& client) {
        if (engine_->isRunning()) {
            running_->isInterrupted = true;
        }
        const auto requestID = newID();
        expectAnswer(client.prefix, "interrupt", requestID, "ok");
        deliver(client, "interrupt", R"("requestID":")" + requestID + "\"");
    }

    /// The registered requests of the client are cancelled, and those that share an identifier run on
    /// unanswered.
    void detach(Client& client) {
        // What is under way would come or not, as it happens.
        awaitCancels(client);
        for (const auto& [requestID, request] : client.registry) {
            if (request->state == State::waiting) {
                request->state = State::ended;
            } else {
                request->isInterrupted = true;
            }
        }
        const auto service = std::exchange(client.service, nullptr);
        EXPECT_TRUE(test::waitUntil([&service] { return service.use_count() == 1; }));
        attach(client);
    }

    /// Continuations publish on threads of their own.
    void awaitCancels(const Client& client) const {
        if (client.expectedCancels != 0) {
            service_->waitForPublication(client.prefix + "/cancel/response", client.expectedCancels);
        }
    }

    std::multiset<Answer> answers() const {
        std::multiset<Answer> answers;
        for (const auto& publication : service_->publications()) {
            const auto members = test::parseObject(publication.text);
            std::string outcome = "ok";
            if (const auto error = members.find("error"); error != members.end()) {
                outcome = test::memberOf(error->second, "identifier").as<std::string>();
            } else if (const auto status = members.find("cancelStatus"); status != members.end()) {
                outcome = status->second.as<std::string>();
            }
            answers.emplace(publication.channel, members.at("requestID").as<std::string>(), outcome);
        }
        return answers;
    }

    std::minstd_rand random_;
    unsigned lastID_ = 0;
    std::vector<std::unique_ptr<Request>> requests_;
    Request* running_ = nullptr;
    std::multiset<Answer> expected_;
    const std::shared_ptr<FakeMessageService> service_ = FakeMessageService::create();
    const std::shared_ptr<SteppedEngine> engine_ = std::make_shared<SteppedEngine>();
    // Last, as their end cancels what is left.
    Client clients_[3];
};

TEST(CancelScheduleTest, EveryRequestIsAnsweredOnceOrItsClientIsGoneAndEachCancelTellsItsOutcome) {
    for (unsigned seed = 1; seed <= 150; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Schedule(seed).run(200);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

}  // namespace
}  // namespace yvm::JSClient::r24a0
