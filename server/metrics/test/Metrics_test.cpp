#include "server/metrics/Metrics.hpp"

#include "server/metrics/test/PrometheusReader.hpp"

#include <gtest/gtest.h>

namespace server::metrics {
namespace {

using cmddistributor::CommandKind;
using cmddistributor::CommandOutcome;
using testing::readPrometheus;

TEST(Metrics, AreAllThereFromTheStart) {
    const auto samples = readPrometheus(Metrics().text({}));
    for (const auto& [reason, word] : kWords<RefusalReason>) {
        EXPECT_EQ(samples.at("yvm_connector_refusals_total{reason=\"" + std::string(word) + "\"}"), "0");
    }
    for (const char* name : {"yvm_connector_sessions",
                             "yvm_connector_clients",
                             "yvm_connector_subscriptions",
                             "yvm_connector_connections{transport=\"http\"}",
                             "yvm_connector_connections{transport=\"websocket\"}",
                             "yvm_connector_messages_total{direction=\"in\"}",
                             "yvm_connector_messages_total{direction=\"out\"}",
                             "yvm_connector_message_bytes_total{direction=\"in\"}",
                             "yvm_connector_message_bytes_total{direction=\"out\"}",
                             "yvm_connector_sessions_ended_total{cause=\"disconnect\"}",
                             "yvm_connector_sessions_ended_total{cause=\"expiry\"}",
                             "yvm_connector_sessions_ended_total{cause=\"overflow\"}",
                             "yvm_connector_sessions_ended_total{cause=\"unacknowledged\"}",
                             "yvm_connector_commands_in_flight{kind=\"eval\"}",
                             "yvm_connector_commands_in_flight{kind=\"feval\"}",
                             "yvm_connector_commands_total{kind=\"eval\",outcome=\"succeeded\"}",
                             "yvm_connector_commands_total{kind=\"feval\",outcome=\"abandoned\"}",
                             "yvm_connector_command_queue_seconds_count{kind=\"eval\"}",
                             "yvm_connector_command_run_seconds_sum{kind=\"feval\"}",
                             "process_resident_memory_bytes"}) {
        EXPECT_EQ(samples.count(name), 1U) << name;
    }
}

TEST(Metrics, TellWhatWasCountedAndMeasured) {
    Metrics metrics;
    metrics.refusals.add(RefusalReason::Depth);
    metrics.refusals.add(RefusalReason::Depth);
    metrics.sessionsEnded.add(SessionEnd::Expiry);
    metrics.messages.add(Direction::In, 3);
    metrics.bytes.add(Direction::Out, 4);
    metrics.connections.add(Transport::WebSocket, 2);
    metrics.connections.subtract(Transport::WebSocket);
    const auto samples = readPrometheus(metrics.text({.sessions = 5,
                                                      .clients = 6,
                                                      .subscriptions = 7,
                                                      .evalsInFlight = 8,
                                                      .fevalsInFlight = 9,
                                                      .residentBytes = 10}));
    EXPECT_EQ(samples.at("yvm_connector_refusals_total{reason=\"depth\"}"), "2");
    EXPECT_EQ(samples.at("yvm_connector_refusals_total{reason=\"forbidden\"}"), "0");
    EXPECT_EQ(samples.at("yvm_connector_sessions_ended_total{cause=\"expiry\"}"), "1");
    EXPECT_EQ(samples.at("yvm_connector_messages_total{direction=\"in\"}"), "3");
    EXPECT_EQ(samples.at("yvm_connector_message_bytes_total{direction=\"out\"}"), "4");
    EXPECT_EQ(samples.at("yvm_connector_connections{transport=\"websocket\"}"), "1");
    EXPECT_EQ(samples.at("yvm_connector_sessions"), "5");
    EXPECT_EQ(samples.at("yvm_connector_clients"), "6");
    EXPECT_EQ(samples.at("yvm_connector_subscriptions"), "7");
    EXPECT_EQ(samples.at("yvm_connector_commands_in_flight{kind=\"eval\"}"), "8");
    EXPECT_EQ(samples.at("yvm_connector_commands_in_flight{kind=\"feval\"}"), "9");
    EXPECT_EQ(samples.at("process_resident_memory_bytes"), "10");
}

TEST(Metrics, KeepCommandsApartByKindAndOutcome) {
    Metrics metrics;
    using std::chrono::milliseconds;
    metrics.commandEnded({CommandKind::Eval, CommandOutcome::Succeeded, milliseconds(1), milliseconds(2)});
    metrics.commandEnded({CommandKind::Eval, CommandOutcome::Failed, milliseconds(3), milliseconds(4)});
    metrics.commandEnded({CommandKind::FEval, CommandOutcome::Cancelled, milliseconds(5), {}});
    const auto samples = readPrometheus(metrics.text({}));
    const auto ended = [&](const std::string& kind, const std::string& outcome) {
        return samples.at("yvm_connector_commands_total{kind=\"" + kind + "\",outcome=\"" + outcome + "\"}");
    };
    EXPECT_EQ(ended("eval", "succeeded"), "1");
    EXPECT_EQ(ended("eval", "failed"), "1");
    EXPECT_EQ(ended("eval", "cancelled"), "0");
    EXPECT_EQ(ended("feval", "cancelled"), "1");
    EXPECT_EQ(samples.at("yvm_connector_command_queue_seconds_sum{kind=\"eval\"}"), "0.004");
    EXPECT_EQ(samples.at("yvm_connector_command_queue_seconds_bucket{kind=\"eval\",le=\"0.001\"}"), "1");
    EXPECT_EQ(samples.at("yvm_connector_command_run_seconds_sum{kind=\"eval\"}"), "0.006");
    EXPECT_EQ(samples.at("yvm_connector_command_run_seconds_count{kind=\"eval\"}"), "2");
    EXPECT_EQ(samples.at("yvm_connector_command_queue_seconds_count{kind=\"feval\"}"), "1");
    EXPECT_EQ(samples.at("yvm_connector_command_run_seconds_count{kind=\"feval\"}"), "0")
        << "what never ran has no time of running";
}

TEST(Metrics, KnowTheMemoryOfTheProcess) {
    EXPECT_GT(residentBytes(), 1'000'000U);
    EXPECT_LT(residentBytes(), 1ULL << 40U);
}

}  // namespace
}  // namespace server::metrics
