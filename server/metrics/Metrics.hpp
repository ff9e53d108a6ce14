#pragma once

#include "server/metrics/Histogram.hpp"
#include "server/metrics/LabelledValues.hpp"

#include <array>
#include <cstdint>
#include <string>

namespace server::metrics {

/// What is counted from the start of the server on. Safe from any thread.
class Metrics {
  public:
    /// What is not counted but measured when somebody asks.
    struct Gauges {
        std::uint64_t sessions = 0;
        std::uint64_t clients = 0;
        std::uint64_t subscriptions = 0;
        std::uint64_t evalsInFlight = 0;
        std::uint64_t fevalsInFlight = 0;
        std::uint64_t residentBytes = 0;
        /// Since the start.
        std::uint64_t outputWaits = 0;
    };

    LabelledValues<RefusalReason> refusals;
    LabelledValues<SessionEnd> sessionsEnded;
    /// Of Bayeux: the replies and the envelopes are counted, what HTTP and WebSocket put around them is not.
    LabelledValues<Direction> messages;
    LabelledValues<Direction> bytes;
    /// Those that are open.
    LabelledValues<Transport> connections;

    /// To be called from the engine, on any thread.
    void commandEnded(const cmddistributor::CommandTimes& times);

    /// Everything, for a scrape.
    std::string text(const Gauges& gauges) const;

  private:
    struct Commands {
        LabelledValues<cmddistributor::CommandOutcome> ended;
        Histogram queueTimes;
        Histogram runTimes;
    };

    const Commands& of(cmddistributor::CommandKind kind) const {
        return commands_[static_cast<std::size_t>(kind)];
    }

    std::array<Commands, kWords<cmddistributor::CommandKind>.size()> commands_;
};

/// What of the process is in memory now, or 0 where the system does not tell.
std::uint64_t residentBytes();

}  // namespace server::metrics
