// Clients of both protocol versions that submit, cancel, interrupt and detach from several threads while an
// engine drains its queue. Meant above all for the thread sanitizer.

#include "cmddistributor/CommandQueue.hpp"
#include "common/test/EvalFevalCancelFixture.hpp"
#include "common/test/support.hpp"
#include "testing/FakeEngine.hpp"
#include "testing/FakeMessageService.hpp"

#include <boost/pointer_cast.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace yvm::JSClient {
namespace {

using platform_testing::FakeEngine;
using platform_testing::FakeMessageService;

constexpr std::size_t threadCount = 4;
constexpr int stepCount = 150;

struct Cancel {
    std::string requestID;
    std::string target;
    bool interrupt;
};

/// What the threads know of one client.
struct Client {
    const ApiVersion version;
    const std::string prefix;
    std::mutex mutex;
    // Guarded by mutex, until the threads have ended.
    std::shared_ptr<void> service;          ///< null once detached
    std::map<std::string, bool> submitted;  ///< by requestID: whether it belongs to a group
    std::vector<std::string> cancellable;   ///< submitted, and their delivery has returned
    std::vector<Cancel> cancels;
    std::size_t groupCancels = 0;  ///< that somebody subscribes to, as are the interrupts
    std::size_t interrupts = 0;

    Client(ApiVersion ownVersion, std::string ownPrefix, std::shared_ptr<void> ownService)
        : version(ownVersion), prefix(std::move(ownPrefix)), service(std::move(ownService)) {}
    bool isGone() const { return service == nullptr; }
};

class Storm {
  public:
    explicit Storm(unsigned seed) : seed_(seed) {
        engine_->onEval(u"quick", [](FakeEngine::Command&) { return YVM::Arrays(); });
        const auto busy = [](FakeEngine::Command& command) {
            for (int turn = 0; turn < 30; ++turn) {
                command.preemptionPoint();
                std::this_thread::yield();
            }
            return YVM::Arrays();
        };
        engine_->onEval(u"busy", busy);
        engine_->onFeval("busy", busy);
        engine_->onEval(u"endless", [](FakeEngine::Command& command) {
            for (;;) {
                command.preemptionPoint();
                std::this_thread::yield();
            }
            return YVM::Arrays();
        });
        for (std::size_t slot = 0; slot < current_.size(); ++slot) {
            current_[slot] = attach(slot);
        }
    }
    ~Storm() { engine_->stop(); }

    void run() {
        std::vector<std::thread> threads;
        for (std::size_t number = 0; number < threadCount; ++number) {
            threads.emplace_back([this, number] { work(number); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        drain();
        if (testing::Test::HasFatalFailure()) {
            return;
        }
        for (const auto& client : all_) {
            verify(*client);
        }
    }

  private:
    using Answers = std::map<std::string, std::vector<std::string>>;

    std::shared_ptr<Client> attach(std::size_t slot) {
        const std::lock_guard lock(mutex_);
        const std::string prefix = "/yvm/c" + std::to_string(all_.size());
        const ApiVersion version = slot % 2 == 0 ? ApiVersion::r24a0 : ApiVersion::r22a0;
        all_.push_back(std::make_shared<Client>(version, prefix,
                                                createEvalFevalCancel(version, prefix, engine_, service_)));
        return all_.back();
    }

    bool deliver(const Client& client, const std::string& channel, const std::string& members) {
        return service_->deliver(client.prefix + "/" + channel + "/request", "{" + members + "}") != 0;
    }

    void work(std::size_t number) {
        std::minstd_rand random(seed_ * 100 + static_cast<unsigned>(number));
        for (int step = 0; step < stepCount; ++step) {
            const std::string requestID = std::to_string(number) + "." + std::to_string(step);
            const auto slot = random() % current_.size();
            std::shared_ptr<Client> client;
            {
                const std::lock_guard lock(mutex_);
                client = current_[slot];
            }
            const auto dice = random() % 100;
            // The first client of each version stays, so that there is always one whose answers are all
            // known.
            if (dice < 3 && slot >= 2) {
                detach(slot, *client);
            } else if (dice < 10) {
                interrupt(*client, requestID);
            } else if (dice < 16) {
                cancelGroup(*client, requestID, random() % 2 == 0);
            } else if (dice < 45) {
                cancel(*client, requestID, random);
            } else {
                submit(*client, requestID, random);
            }
        }
    }

    void submit(Client& client, const std::string& requestID, std::minstd_rand& random) {
        const bool hasGroup = random() % 3 == 0;
        {
            const std::lock_guard lock(client.mutex);
            client.submitted[requestID] = hasGroup;
        }
        const auto kind = random() % 12;
        // An interrupt, which ends the test, does not reach what runs above another command.
        const bool preempts = kind != 0 && random() % 4 == 0;
        const std::string options = std::string(R"("runOptions":{"groupNames":[)") +
                                    (hasGroup ? R"("g")" : "") + R"(],"dequeueMode":"DEQUEUE_AT_)" +
                                    (preempts ? "PPE" : "PROMPT") + "\"}";
        const std::string what = kind == 0  ? R"("command":"endless")"
                                 : kind < 4 ? R"("command":"busy")"
                                 : kind < 8 ? R"("command":"quick")"
                                            : R"("function":"busy","numOutputsExpected":0,"rhsArgs":[])";
        deliver(client, kind < 8 ? "eval" : "feval",
                R"("requestID":")" + requestID + "\"," + what + "," + options);
        const std::lock_guard lock(client.mutex);
        client.cancellable.push_back(requestID);
    }

    void cancel(Client& client, const std::string& requestID, std::minstd_rand& random) {
        Cancel cancel{requestID, "", random() % 2 == 0};
        {
            const std::lock_guard lock(client.mutex);
            if (client.cancellable.empty()) {
                return;
            }
            // Of the last few, which are likely to be in flight.
            const auto back = random() % std::min<std::size_t>(client.cancellable.size(), 8);
            cancel.target = client.cancellable[client.cancellable.size() - 1 - back];
            client.cancels.push_back(cancel);
        }
        deliver(client, "cancel",
                R"("requestID":")" + requestID + R"(","requestIDtoCancel":")" + cancel.target +
                    R"(","interrupt":)" + (cancel.interrupt ? "true" : "false"));
    }

    void cancelGroup(Client& client, const std::string& requestID, bool withInterrupt) {
        if (client.version != ApiVersion::r22a0) {
            const std::lock_guard lock(client.mutex);
            ++client.groupCancels;
        }
        deliver(client, "cancelGroup",
                R"("requestID":")" + requestID + R"(","requestGroupNametoCancel":"g","interrupt":)" +
                    (withInterrupt ? "true" : "false"));
    }

    void interrupt(Client& client, const std::string& requestID) {
        if (client.version != ApiVersion::r22a0) {
            const std::lock_guard lock(client.mutex);
            ++client.interrupts;
        }
        deliver(client, "interrupt", R"("requestID":")" + requestID + "\"");
    }

    /// Other threads may go on with the old client for a while.
    void detach(std::size_t slot, Client& old) {
        std::shared_ptr<void> service;
        {
            const std::lock_guard lock(old.mutex);
            service.swap(old.service);
        }
        service.reset();
        const auto fresh = attach(slot);
        const std::lock_guard lock(mutex_);
        current_[slot] = fresh;
    }

    std::size_t count(const Client& client, const std::string& channel) const {
        return service_->publicationsOn(client.prefix + "/" + channel + "/response").size();
    }

    /// Waits until the clients that are left have all their answers, and nobody's command is left over.
    void drain() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        const auto isAnswered = [this](const std::shared_ptr<Client>& client) {
            return client->isGone() ||
                   (count(*client, "eval") + count(*client, "feval") >= client->submitted.size() &&
                    count(*client, "cancel") >= client->cancels.size());
        };
        while (!std::ranges::all_of(all_, isAnswered)) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "some requests are never answered";
            engine_->interrupt();  // for those that nobody else stops
            std::this_thread::yield();
        }
        const auto queue =
            boost::dynamic_pointer_cast<cmddistributor::CommandQueue>(engine_->getCmdDistributor());
        ASSERT_TRUE(test::waitUntil([&queue] {
            return queue->running().empty() && queue->waiting().empty();
        })) << "a client that has gone left commands behind";
    }

    Answers answersOn(const Client& client, const std::string& channel) const {
        Answers answers;
        for (const auto& publication :
             service_->publicationsOn(client.prefix + "/" + channel + "/response")) {
            const auto members = test::parseObject(publication.text);
            std::string outcome = "ok";
            if (const auto error = members.find("error"); error != members.end()) {
                outcome = test::memberOf(error->second, "identifier").as<std::string>();
            } else if (const auto status = members.find("cancelStatus"); status != members.end()) {
                outcome = status->second.as<std::string>();
            }
            answers[members.at("requestID").as<std::string>()].push_back(outcome);
        }
        return answers;
    }

    void verify(const Client& client) const {
        SCOPED_TRACE(client.prefix + (client.isGone() ? ", gone" : ""));
        auto outcomes = answersOn(client, "eval");
        outcomes.merge(answersOn(client, "feval"));
        for (const auto& [requestID, texts] : outcomes) {
            EXPECT_EQ(texts.size(), 1U) << requestID;
            EXPECT_TRUE(client.submitted.contains(requestID)) << requestID;
        }
        const auto statuses = answersOn(client, "cancel");
        for (const auto& [requestID, texts] : statuses) {
            EXPECT_EQ(texts.size(), 1U) << requestID;
        }
        if (client.isGone()) {
            return;
        }
        EXPECT_EQ(outcomes.size(), client.submitted.size());
        EXPECT_EQ(statuses.size(), client.cancels.size());
        EXPECT_EQ(count(client, "cancelGroup"), client.groupCancels);
        EXPECT_EQ(count(client, "interrupt"), client.interrupts);
        if (client.version == ApiVersion::r22a0) {
            for (const auto& [requestID, texts] : statuses) {
                EXPECT_EQ(texts.front(), "ok") << "the outcome of a cancel is not told";
            }
            return;
        }
        std::map<std::string, int> cancelledBefore;
        for (const auto& cancel : client.cancels) {
            const auto status = statuses.at(cancel.requestID).front();
            const auto outcome = outcomes.at(cancel.target).front();
            if (status == "CANCEL_BEFORE_RUNNING") {
                EXPECT_EQ(outcome, cmddistributor::cancelledIdentifier) << cancel.target;
                ++cancelledBefore[cancel.target];
            } else if (status == "CANCEL_WHILE_RUNNING") {
                EXPECT_TRUE(cancel.interrupt);
                EXPECT_EQ(outcome, FakeEngine::interruptedIdentifier) << cancel.target;
            } else if (status == "UNABLE_TO_CANCEL_OTHER") {
                EXPECT_FALSE(cancel.interrupt);
                EXPECT_NE(outcome, cmddistributor::cancelledIdentifier) << cancel.target << " was running";
            } else {
                EXPECT_EQ(status, "UNABLE_TO_CANCEL_ALREADY_DONE");
            }
        }
        for (const auto& [requestID, hasGroup] : client.submitted) {
            if (!hasGroup) {
                EXPECT_EQ(cancelledBefore[requestID],
                          outcomes.at(requestID).front() == cmddistributor::cancelledIdentifier ? 1 : 0)
                    << requestID << " is cancelled by one cancel, which is told so";
            }
        }
    }

    const unsigned seed_;
    const std::shared_ptr<FakeMessageService> service_ = FakeMessageService::create();
    const std::shared_ptr<FakeEngine> engine_ = FakeEngine::create();
    std::mutex mutex_;
    // Guarded by mutex_, until the threads have ended.
    std::vector<std::shared_ptr<Client>> all_;
    std::array<std::shared_ptr<Client>, 4> current_;
};

TEST(CancelStressTest, InAStormEveryRequestIsAnsweredOnceAndEachCancelAgreesWithItsOutcome) {
    for (unsigned seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Storm(seed).run();
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

}  // namespace
}  // namespace yvm::JSClient
