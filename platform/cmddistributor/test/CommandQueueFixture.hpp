#pragma once

#include "cmddistributor/CommandQueue.hpp"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace cmddistributor {

/// A queue whose engine is the test, and the outcomes of the commands submitted to it. For one thread.
class CommandQueueFixture : public ::testing::Test {
  protected:
    using IDType = CmdDistributor::IDType;
    using Mode = RunOptions::DequeueMode;
    using WhenToDequeue = ylutil::cmddistributor::WhenToDequeue;

    class RecordingSignals final : public EngineSignals {
      public:
        void wake() override { ++wakes; }
        void requestPreemption() override { ++preemptions; }
        void interrupt(const IDType& id) override { interrupts.push_back(id); }

        int wakes = 0;
        int preemptions = 0;
        std::vector<IDType> interrupts;
    };

    static RunOptions optionsFor(Mode mode, const char16_t* queueName = nullptr) {
        RunOptions options;
        options.setDequeueMode(mode);
        if (queueName != nullptr) {
            options.setQueueName(std::u16string(queueName));
        }
        return options;
    }

    /// Submits a command that records its outcome, and then calls `afterwards`.
    IDType submit(RunOptions options = {}, std::function<void()> afterwards = {}) {
        const IDType id;
        submitUnder(id, std::move(options), std::move(afterwards));
        return id;
    }

    void submitUnder(const IDType& id, RunOptions options = {}, std::function<void()> afterwards = {}) {
        queue->enqueueWithFuture<void>(
            std::make_shared<EvalCmdRequest>(false, -2, nullptr, nullptr, u"1", "test"),
            [this, id, afterwards = std::move(afterwards)](boost::future<void> future) {
                record(id, future);
                if (afterwards) {
                    afterwards();
                }
            },
            std::move(options), id, nullptr);
    }

    void record(const IDType& id, boost::future<void>& future) {
        std::string outcome = "ok";
        try {
            future.get();
        } catch (const RuntimeException& error) {
            outcome = error.GetID();
        }
        outcomes[id].push_back(outcome);
    }

    /// The outcome of a command that was answered exactly once, otherwise how often it was.
    std::string outcomeOf(const IDType& id) const {
        const auto found = outcomes.find(id);
        if (found == outcomes.end()) {
            return "unanswered";
        }
        return found->second.size() == 1 ? found->second[0]
                                         : std::to_string(found->second.size()) + " answers";
    }

    /// Takes the next command, which must be `id`.
    void expectTake(Moment moment, const IDType& id) {
        const auto taken = queue->take(moment);
        ASSERT_TRUE(taken);
        EXPECT_EQ(taken->id, id);
    }

    /// Takes and finishes all that may run at `moment`; gives them in order.
    std::vector<IDType> drain(Moment moment) {
        std::vector<IDType> order;
        while (const auto taken = queue->take(moment)) {
            order.push_back(taken->id);
            queue->finish(taken->id, {});
        }
        return order;
    }

    RecordingSignals signals;
    std::map<IDType, std::vector<std::string>> outcomes;
    std::vector<CommandTimes> observed;
    // Last, as its death records outcomes.
    boost::shared_ptr<CommandQueue> queue =
        CommandQueue::create(signals, [this](const CommandTimes& times) { observed.push_back(times); });
};

}  // namespace cmddistributor
