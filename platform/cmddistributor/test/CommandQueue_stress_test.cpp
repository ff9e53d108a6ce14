#include "cmddistributor/CommandQueue.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <random>
#include <thread>

namespace cmddistributor {
namespace {

using IDType = CmdDistributor::IDType;
using Status = CmdDistributor::CancelStatus;
using ylutil::cmddistributor::WhenToDequeue;

enum class Outcome { none, ok, cancelledWaiting, interrupted, shutDown };

/// One command, its answers, and what its canceller was told.
struct Command {
    IDType id;
    std::atomic<int> answers{0};
    std::atomic<Outcome> outcome{Outcome::none};
    boost::shared_future<Status> cancelled;  ///< of the one thread that submits it; invalid if not cancelled
};

/// An engine of one thread that runs each command for a few turns, within which an interrupt stops it, and
/// takes pre-emption commands in between.
class DrainingEngine final : public EngineSignals {
  public:
    DrainingEngine() : queue_(CommandQueue::create(*this)), thread_([this] { run(); }) {}
    ~DrainingEngine() override { stop(); }

    CommandQueue& queue() { return *queue_; }

    /// Closes the queue, and waits until what runs has ended.
    void stop() {
        queue_->close();
        if (thread_.joinable()) {
            thread_.join();
        }
        closed_ = true;
    }

    bool wasSignalledAfterStop() const { return signalledAfterStop_; }

  private:
    void wake() override { noteSignal(); }
    void requestPreemption() override {
        noteSignal();
        preemptionRequested_ = true;
    }
    void interrupt(const IDType& id) override {
        noteSignal();
        const std::lock_guard lock(targetMutex_);
        target_ = id;
    }
    void noteSignal() {
        if (closed_) {
            signalledAfterStop_ = true;
        }
    }

    void run() {
        for (;;) {
            queue_->waitFor(Moment::TopPrompt);
            const auto taken = queue_->take(Moment::TopPrompt);
            if (taken) {
                runCommand(taken->id, 0);
            } else if (isClosed()) {
                return;
            }
        }
    }

    /// Nothing may be taken though `waitFor` came back: nobody calls `wakeUp` here, so the command that it
    /// saw was cancelled or the queue is closed. A closed queue never waits.
    bool isClosed() { return queue_->waitFor(Moment::Boot, std::chrono::steady_clock::now()); }

    void runCommand(const IDType& id, int depth) {
        for (int turn = 0; turn < 20; ++turn) {
            if (depth == 0 && preemptionRequested_.exchange(false)) {
                while (const auto inner = queue_->take(Moment::PreemptionPoint)) {
                    runCommand(inner->id, depth + 1);
                }
            }
            if (isTarget(id)) {
                queue_->fail(id, {RuntimeException::Status::Cancelled, u"interrupted", "interrupted"}, true);
                return;
            }
            std::this_thread::yield();
        }
        queue_->finish(id, {});
    }

    bool isTarget(const IDType& id) {
        const std::lock_guard lock(targetMutex_);
        return target_ == id;
    }

    std::mutex targetMutex_;
    IDType target_ = IDType::null();  // guarded by targetMutex_
    std::atomic<bool> preemptionRequested_{false};
    std::atomic<bool> closed_{false};
    std::atomic<bool> signalledAfterStop_{false};
    boost::shared_ptr<CommandQueue> queue_;
    std::thread thread_;
};

std::string groupOf(std::size_t number) {
    return "group" + std::to_string(number);
}

void submit(CommandQueue& queue, Command& command, RunOptions options) {
    queue.enqueueWithFuture<void>(
        std::make_shared<EvalCmdRequest>(false, -2, nullptr, nullptr, u"1", "test"),
        [&command](boost::future<void> future) {
            auto outcome = Outcome::ok;
            try {
                future.get();
            } catch (const RuntimeException& error) {
                outcome = error.GetID() == cancelledIdentifier  ? Outcome::cancelledWaiting
                          : error.GetID() == shutDownIdentifier ? Outcome::shutDown
                                                                : Outcome::interrupted;
            }
            command.outcome = outcome;
            ++command.answers;
        },
        std::move(options), command.id, nullptr);
}

/// Submits commands of many modes and queues and cancels some of them, one or many behind. Closes the queue
/// half way if told so, whereupon the other half finds it closed.
void submitAndCancel(CommandQueue& queue, std::vector<Command>& commands, unsigned seed, bool closes) {
    std::minstd_rand random(seed);
    constexpr std::array modes = {WhenToDequeue::DEQUEUE_AT_PPE, WhenToDequeue::DEQUEUE_AT_PROMPT,
                                  WhenToDequeue::DEQUEUE_AT_NON_DEBUG_PROMPT, WhenToDequeue::DEQUEUE_AT_IDLE};
    for (std::size_t i = 0; i < commands.size(); ++i) {
        if (closes && i == commands.size() / 2) {
            queue.close();
        }
        RunOptions options;
        options.setDequeueMode(modes[random() % modes.size()]);
        options.setQueueName(std::u16string(1, static_cast<char16_t>(u'a' + random() % 3)));
        submit(queue, commands[i], std::move(options));
        auto& victim = commands[i - std::min<std::size_t>(i, random() % 8)];
        if (random() % 3 == 0 && !victim.cancelled.valid()) {
            victim.cancelled = queue.cancel(victim.id, random() % 2 == 0);
        }
    }
}

void expectAgreement(const Command& command) {
    ASSERT_EQ(command.answers, 1) << command.id;
    if (!command.cancelled.valid()) {
        return;
    }
    ASSERT_TRUE(command.cancelled.is_ready()) << command.id;
    switch (command.cancelled.get()) {
        case CmdDistributor::CANCEL_BEFORE_RUNNING:
            EXPECT_EQ(command.outcome, Outcome::cancelledWaiting);
            break;
        case CmdDistributor::CANCEL_WHILE_RUNNING:
            EXPECT_EQ(command.outcome, Outcome::interrupted);
            break;
        case CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE:
            // It ended by itself, or with the queue.
            EXPECT_TRUE(command.outcome == Outcome::ok || command.outcome == Outcome::shutDown);
            break;
        case CmdDistributor::UNABLE_TO_CANCEL_OTHER:
            EXPECT_EQ(command.outcome, Outcome::ok) << "it ran and was not to be interrupted";
            break;
    }
}

/// Cancels what others submit, one or all of a group, while they do. A status per command and thread.
void cancelAllOver(CommandQueue& queue, std::vector<std::vector<Command>>& commands,
                   std::vector<boost::shared_future<Status>>& statuses, unsigned seed) {
    std::minstd_rand random(seed);
    const std::size_t each = commands.front().size();
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        const auto victim = random() % statuses.size();
        auto& status = statuses[victim];
        if (!status.valid()) {
            status = queue.cancel(commands[victim / each][victim % each].id, true);
        }
        if (i % 100 == 0) {
            queue.cancelGroup(groupOf(random() % 3), random() % 2 == 0);
        }
    }
}

/// The status of one cancel with interrupt, by whomever, beside what became of the command.
void expectAgreement(const Command& command, Status status) {
    switch (status) {
        case CmdDistributor::CANCEL_BEFORE_RUNNING:
            EXPECT_EQ(command.outcome, Outcome::cancelledWaiting);
            break;
        case CmdDistributor::CANCEL_WHILE_RUNNING:
            EXPECT_EQ(command.outcome, Outcome::interrupted);
            break;
        case CmdDistributor::UNABLE_TO_CANCEL_ALREADY_DONE:
            // By itself, with the queue, or by another's cancel before this one: nothing is told of the
            // outcome.
        case CmdDistributor::UNABLE_TO_CANCEL_OTHER:
            // The cancel came before the command was submitted.
            break;
    }
}

TEST(CommandQueueStressTest, AStormOfCancelsByIdAndGroupAgreesWithEachOutcome) {
    constexpr std::size_t submitters = 2;
    constexpr std::size_t cancellers = 3;
    constexpr std::size_t each = 5'000;
    std::vector<std::vector<Command>> commands;
    for (std::size_t i = 0; i < submitters; ++i) {
        commands.emplace_back(each);
    }
    std::vector<std::vector<boost::shared_future<Status>>> statuses(
        cancellers, std::vector<boost::shared_future<Status>>(submitters * each));
    DrainingEngine engine;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < submitters; ++i) {
        threads.emplace_back([&engine, &mine = commands[i]] {
            for (std::size_t k = 0; k < mine.size(); ++k) {
                RunOptions options;
                options.addGroupName(groupOf(k % 7));
                submit(engine.queue(), mine[k], std::move(options));
            }
        });
    }
    for (std::size_t i = 0; i < cancellers; ++i) {
        threads.emplace_back([&engine, &commands, &mine = statuses[i], seed = unsigned(i) + 1] {
            cancelAllOver(engine.queue(), commands, mine, seed);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    engine.stop();
    for (std::size_t i = 0; i < submitters * each; ++i) {
        const auto& command = commands[i / each][i % each];
        ASSERT_EQ(command.answers, 1) << command.id;
        std::size_t endedIt = 0;
        for (const auto& mine : statuses) {
            if (mine[i].valid()) {
                ASSERT_TRUE(mine[i].is_ready()) << command.id;
                expectAgreement(command, mine[i].get());
                endedIt += mine[i].get() == CmdDistributor::CANCEL_BEFORE_RUNNING ? 1 : 0;
            }
        }
        EXPECT_LE(endedIt, 1U) << "only one cancel can take it out of the queue";
    }
}

TEST(CommandQueueStressTest, EveryCommandIsAnsweredOnceAndEachCancelSaysWhatBecameOfIt) {
    constexpr int rounds = 5;
    constexpr std::size_t submitters = 4;
    for (unsigned round = 0; round < rounds; ++round) {
        std::vector<std::vector<Command>> commands;
        for (std::size_t i = 0; i < submitters; ++i) {
            commands.emplace_back(1'000);
        }
        DrainingEngine engine;
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < submitters; ++i) {
            threads.emplace_back(
                [&engine, &mine = commands[i], seed = round * 100 + unsigned(i) + 1,
                 closes = round % 2 == 0 && i == 0] { submitAndCancel(engine.queue(), mine, seed, closes); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        engine.stop();
        EXPECT_FALSE(engine.wasSignalledAfterStop());
        for (const auto& mine : commands) {
            for (const auto& command : mine) {
                expectAgreement(command);
            }
        }
    }
}

}  // namespace
}  // namespace cmddistributor
