#pragma once

#include <array>
#include <string_view>
#include <utility>

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
};

/// All reasons, each with the word that names it for good: dashboards depend on it.
inline constexpr std::array kRefusalReasons{
    std::pair{RefusalReason::BadRequest, std::string_view("bad_request")},
    std::pair{RefusalReason::Version, std::string_view("version")},
    std::pair{RefusalReason::ConnectionType, std::string_view("connection_type")},
    std::pair{RefusalReason::Unauthorized, std::string_view("unauthorized")},
    std::pair{RefusalReason::UnknownSession, std::string_view("unknown_session")},
    std::pair{RefusalReason::Forbidden, std::string_view("forbidden")},
    std::pair{RefusalReason::UnknownChannel, std::string_view("unknown_channel")},
    std::pair{RefusalReason::InvalidChannel, std::string_view("invalid_channel")},
    std::pair{RefusalReason::MessageBytes, std::string_view("message_bytes")},
    std::pair{RefusalReason::Depth, std::string_view("depth")},
    std::pair{RefusalReason::BatchMessages, std::string_view("batch_messages")},
    std::pair{RefusalReason::Sessions, std::string_view("sessions")},
    std::pair{RefusalReason::SessionsPerAddress, std::string_view("sessions_per_address")},
    std::pair{RefusalReason::ClientsPerSession, std::string_view("clients_per_session")},
    std::pair{RefusalReason::SubscriptionsPerSession, std::string_view("subscriptions_per_session")},
    std::pair{RefusalReason::QueueBytes, std::string_view("queue_bytes")},
    std::pair{RefusalReason::Unacknowledged, std::string_view("unacknowledged")},
    std::pair{RefusalReason::FailedHandshakes, std::string_view("failed_handshakes")},
    std::pair{RefusalReason::Unavailable, std::string_view("unavailable")},
};

}  // namespace server::metrics
