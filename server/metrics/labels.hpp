#pragma once

#include "cmddistributor/CommandTimes.hpp"

#include <array>
#include <cstddef>
#include <string_view>

namespace server::metrics {

/// Why something that came in was refused, as finely as refusals are counted.
enum class RefusalReason {
    BadRequest,
    Version,
    ConnectionType,
    Unauthorized,
    UnknownSession,
    Forbidden,
    UnknownChannel,
    InvalidChannel,
    MessageBytes,
    Depth,
    BatchMessages,
    Sessions,
    SessionsPerAddress,
    ClientsPerSession,
    SubscriptionsPerSession,
    QueueBytes,
    Unacknowledged,
    FailedHandshakes,
    Unavailable,
    Origin,
    Host,
    Connections,
    SlowRequest,
    BodyBytes,
    HeaderBytes,
    BadHttp,
    SlowReader,
};

enum class SessionEnd {
    Disconnect,      ///< the client said so
    Expiry,          ///< it did not come back in time
    Overflow,        ///< too much waited for it
    Unacknowledged,  ///< the same events were lost again and again
    SlowReader,      ///< the engine waited too long for it
};

/// Of Bayeux messages, seen from the server.
enum class Direction { In, Out };

/// What is spoken over a connection now: HTTP, long-polling or not, or a WebSocket.
enum class Transport { Http, WebSocket };

template <typename Enum>
struct Word {
    Enum value;
    std::string_view word;
};

/// The word for each value of an enum in the labels of metrics, in the order of the values. Words stay:
/// dashboards depend on them.
template <typename Enum>
inline constexpr std::array<Word<Enum>, 0> kWords{};

template <>
inline constexpr std::array kWords<RefusalReason>{
    Word{RefusalReason::BadRequest, "bad_request"},
    Word{RefusalReason::Version, "version"},
    Word{RefusalReason::ConnectionType, "connection_type"},
    Word{RefusalReason::Unauthorized, "unauthorized"},
    Word{RefusalReason::UnknownSession, "unknown_session"},
    Word{RefusalReason::Forbidden, "forbidden"},
    Word{RefusalReason::UnknownChannel, "unknown_channel"},
    Word{RefusalReason::InvalidChannel, "invalid_channel"},
    Word{RefusalReason::MessageBytes, "message_bytes"},
    Word{RefusalReason::Depth, "depth"},
    Word{RefusalReason::BatchMessages, "batch_messages"},
    Word{RefusalReason::Sessions, "sessions"},
    Word{RefusalReason::SessionsPerAddress, "sessions_per_address"},
    Word{RefusalReason::ClientsPerSession, "clients_per_session"},
    Word{RefusalReason::SubscriptionsPerSession, "subscriptions_per_session"},
    Word{RefusalReason::QueueBytes, "queue_bytes"},
    Word{RefusalReason::Unacknowledged, "unacknowledged"},
    Word{RefusalReason::FailedHandshakes, "failed_handshakes"},
    Word{RefusalReason::Unavailable, "unavailable"},
    Word{RefusalReason::Origin, "origin"},
    Word{RefusalReason::Host, "host"},
    Word{RefusalReason::Connections, "connections"},
    Word{RefusalReason::SlowRequest, "slow_request"},
    Word{RefusalReason::BodyBytes, "body_bytes"},
    Word{RefusalReason::HeaderBytes, "header_bytes"},
    Word{RefusalReason::BadHttp, "bad_http"},
    Word{RefusalReason::SlowReader, "slow_reader"},
};

template <>
inline constexpr std::array kWords<SessionEnd>{
    Word{SessionEnd::Disconnect, "disconnect"},  Word{SessionEnd::Expiry, "expiry"},
    Word{SessionEnd::Overflow, "overflow"},      Word{SessionEnd::Unacknowledged, "unacknowledged"},
    Word{SessionEnd::SlowReader, "slow_reader"},
};

template <>
inline constexpr std::array kWords<Direction>{Word{Direction::In, "in"}, Word{Direction::Out, "out"}};

template <>
inline constexpr std::array kWords<Transport>{Word{Transport::Http, "http"},
                                              Word{Transport::WebSocket, "websocket"}};

template <>
inline constexpr std::array kWords<cmddistributor::CommandKind>{
    Word{cmddistributor::CommandKind::Eval, "eval"},
    Word{cmddistributor::CommandKind::FEval, "feval"},
};

template <>
inline constexpr std::array kWords<cmddistributor::CommandOutcome>{
    Word{cmddistributor::CommandOutcome::Succeeded, "succeeded"},
    Word{cmddistributor::CommandOutcome::Failed, "failed"},
    Word{cmddistributor::CommandOutcome::Interrupted, "interrupted"},
    Word{cmddistributor::CommandOutcome::Cancelled, "cancelled"},
    Word{cmddistributor::CommandOutcome::Abandoned, "abandoned"},
};

/// Whether the words stand where their values say.
template <typename Enum>
constexpr bool areInOrder() {
    std::size_t index = 0;
    for (const Word<Enum>& word : kWords<Enum>) {
        if (static_cast<std::size_t>(word.value) != index++) {
            return false;
        }
    }
    return index != 0;
}

}  // namespace server::metrics
