// What cancels cost while many commands wait, with completions that only count. Prints each figure with its
// goal. A command that is not answered exactly once ends the run.

#include "bench/goals.hpp"
#include "cmddistributor/CommandQueue.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using bench::goal;
using bench::median;
using cmddistributor::CmdDistributor;
using cmddistributor::CommandQueue;
using cmddistributor::RunOptions;
using Clock = std::chrono::steady_clock;
using IDType = CmdDistributor::IDType;

/// An engine that never takes a command.
class NoEngine final : public cmddistributor::EngineSignals {
  public:
    void wake() override {}
    void requestPreemption() override {}
    void interrupt(const IDType& /*id*/) override {}
};

/// A queue in which commands of one group wait, in four queues by name.
class FilledQueue {
  public:
    explicit FilledQueue(std::size_t count) : ids(count) {
        for (std::size_t i = 0; i < count; ++i) {
            RunOptions options;
            options.addGroupName("group");
            options.setQueueName(std::u16string(1, static_cast<char16_t>(u'a' + i % 4)));
            queue->enqueueWithFuture<void>(
                std::make_shared<cmddistributor::EvalCmdRequest>(false, -2, nullptr, nullptr, u"1", "bench"),
                [this](const boost::future<void>& outcome) { failures += outcome.has_exception() ? 1 : 0; },
                std::move(options), ids[i], nullptr);
        }
    }
    ~FilledQueue() { queue->close(); }
    FilledQueue(const FilledQueue&) = delete;
    FilledQueue& operator=(const FilledQueue&) = delete;

    void expectFailures(std::size_t expected) const {
        if (failures != expected) {
            std::fprintf(stderr, "%zu commands were answered, not %zu\n", failures, expected);
            std::exit(EXIT_FAILURE);
        }
    }

    std::vector<IDType> ids;
    std::size_t failures = 0;

  private:
    NoEngine engine_;

  public:
    boost::shared_ptr<CommandQueue> queue = CommandQueue::create(engine_);
};

double secondsOf(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

/// Milliseconds.
double cancelGroupOf(std::size_t count) {
    FilledQueue filled(count);
    const auto begin = Clock::now();
    filled.queue->cancelGroup("group", false);
    const double time = secondsOf(Clock::now() - begin) * 1e3;
    filled.expectFailures(count);
    return time;
}

/// Nanoseconds for each of some cancels, by identity in random order, while about `count` wait.
double cancelByIdAmong(std::size_t count, unsigned seed) {
    constexpr std::size_t cancels = 500;
    FilledQueue filled(count);
    std::shuffle(filled.ids.begin(), filled.ids.end(), std::mt19937(seed));
    const auto begin = Clock::now();
    for (std::size_t i = 0; i < cancels; ++i) {
        filled.queue->cancel(filled.ids[i], false);
    }
    const double time = secondsOf(Clock::now() - begin) * 1e9 / cancels;
    filled.expectFailures(cancels);
    return time;
}

}  // namespace

int main() {
    constexpr int rounds = 15;
    std::printf("\ncancels in the command queue\n");

    std::vector<double> groupTimes;
    for (int round = 0; round < rounds; ++round) {
        groupTimes.push_back(cancelGroupOf(10'000));
    }
    goal(median(groupTimes) < 100, "10,000 waiting, cancelled by group", median(groupTimes), "ms",
         "below 100");

    const std::vector<std::size_t> sizes{1'000, 10'000, 100'000};
    std::vector<std::vector<double>> times(sizes.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            times[i].push_back(cancelByIdAmong(sizes[i], static_cast<unsigned>(round)));
        }
    }
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        std::printf("  one by identity among %zu: %.0f ns\n", sizes[i], median(times[i]));
    }
    // More than 1 for the caches alone: 100,000 commands do not fit in them.
    const double ratio = median(times.back()) / median(times.front());
    goal(ratio <= 10, "one among 100,000 to one among 1,000", ratio, "times",
         "at most 10, and 100 if it were a search");
    return 0;
}
