#include "server/metrics/Metrics.hpp"

#include "server/metrics/PrometheusText.hpp"

#include <unistd.h>

#include <fstream>

namespace server::metrics {

namespace {

using cmddistributor::CommandKind;
using cmddistributor::CommandOutcome;

template <typename Enum>
void writeAll(PrometheusText& text, std::string_view label, const LabelledValues<Enum>& values) {
    for (const auto& [value, word] : kWords<Enum>) {
        text.sample({{label, word}}, values[value]);
    }
}

}  // namespace

void Metrics::commandEnded(const cmddistributor::CommandTimes& times) {
    Commands& commands = commands_[static_cast<std::size_t>(times.kind)];
    commands.ended.add(times.outcome);
    commands.queueTimes.observe(times.queued);
    if (times.run) {
        commands.runTimes.observe(*times.run);
    }
}

std::string Metrics::text(const Gauges& gauges) const {
    PrometheusText text;
    text.family("yvm_connector_sessions", "gauge", "Sessions that are open.");
    text.sample({}, gauges.sessions);
    text.family("yvm_connector_clients", "gauge",
                "Clients that are attached, or being attached or detached.");
    text.sample({}, gauges.clients);
    text.family("yvm_connector_subscriptions", "gauge", "Channels and patterns that sessions subscribed to.");
    text.sample({}, gauges.subscriptions);
    text.family("yvm_connector_connections", "gauge",
                "Connections that are open, by what is spoken over them.");
    writeAll(text, "transport", connections);
    text.family("yvm_connector_messages_total", "counter", "Bayeux messages from and to clients.");
    writeAll(text, "direction", messages);
    text.family("yvm_connector_message_bytes_total", "counter",
                "Bytes of Bayeux messages from and to clients, before HTTP and WebSocket frame them.");
    writeAll(text, "direction", bytes);
    text.family("yvm_connector_refusals_total", "counter", "What came in and was refused, by reason.");
    writeAll(text, "reason", refusals);
    text.family("yvm_connector_sessions_ended_total", "counter", "Sessions that have ended, by cause.");
    writeAll(text, "cause", sessionsEnded);
    text.family("yvm_connector_commands_in_flight", "gauge", "Evals and fevals that wait for their answer.");
    text.sample({{"kind", "eval"}}, gauges.evalsInFlight);
    text.sample({{"kind", "feval"}}, gauges.fevalsInFlight);
    text.family("yvm_connector_commands_total", "counter", "Evals and fevals that have ended, by outcome.");
    for (const auto& [kind, kindWord] : kWords<CommandKind>) {
        for (const auto& [outcome, outcomeWord] : kWords<CommandOutcome>) {
            text.sample({{"kind", kindWord}, {"outcome", outcomeWord}}, of(kind).ended[outcome]);
        }
    }
    text.family("yvm_connector_command_queue_seconds", "histogram",
                "How long evals and fevals waited for the engine, those included that were cancelled there.");
    for (const auto& [kind, word] : kWords<CommandKind>) {
        text.sample({{"kind", word}}, of(kind).queueTimes);
    }
    text.family("yvm_connector_command_run_seconds", "histogram",
                "How long evals and fevals ran, with what ran above them meanwhile.");
    for (const auto& [kind, word] : kWords<CommandKind>) {
        text.sample({{"kind", word}}, of(kind).runTimes);
    }
    text.family(
        "yvm_connector_output_waits_total", "counter",
        "How often a writer of text was told to wait, since a session read too slowly or text waited to be "
        "published; one that waits asks again.");
    text.sample({}, gauges.outputWaits);
    text.family("process_resident_memory_bytes", "gauge", "Resident memory of the process, engine included.");
    text.sample({}, gauges.residentBytes);
    return text.take();
}

std::uint64_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::uint64_t totalPages = 0;
    std::uint64_t residentPages = 0;
    statm >> totalPages >> residentPages;
    return residentPages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace server::metrics
