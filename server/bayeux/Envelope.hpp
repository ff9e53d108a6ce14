#pragma once

#include "server/bayeux/Refusal.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace server::bayeux {

/// One Bayeux message of a client, checked field by field. Fields that were absent are empty; unknown
/// fields are ignored; of a repeated field the first counts.
struct Message {
    /// Empty when the message has none.
    std::string channel;
    /// The JSON text of `id`, a string or a number as the client wrote it; empty when there is none.
    std::string id;
    std::string clientId;
    /// The JSON text of `data` without the white space around it. Not validated yet: see `Ingress`.
    /// Points into the frame. Empty when there is none.
    std::string_view data;
    /// The channels of `subscription`, and its JSON text, which the reply repeats.
    std::vector<std::string> subscriptions;
    std::string subscriptionText;
    std::string minimumVersion;
    std::vector<std::string> supportedConnectionTypes;
    /// How long the client wants its connect to be held: `advice.timeout`.
    std::optional<std::chrono::milliseconds> timeout;
    /// `ext.token`.
    std::string token;
    /// Whether `ext.ack` of a handshake asks for events that are acknowledged: `true`, or an object whose
    /// `enabled` is true by the rules of JavaScript.
    bool wantsAcknowledgement = false;
    /// `ext.ack` of a connect: the number of the last reply that the client received.
    std::optional<std::uint64_t> acknowledged;
    /// Set when a field is missing or of a wrong type. The fields above hold what could be read.
    std::optional<Refusal> malformed;
};

/// Reads the text of one frame or body: an array of at most `maxMessages` messages, or one bare message.
///
/// Everything but `data` is validated as strict JSON in UTF-8. Gives a refusal, and no message at all,
/// when the text as a whole cannot be read or holds too many. The capacity of `frame` may grow, its text
/// stays; the messages are valid as long as it is left alone.
std::variant<std::vector<Message>, Refusal> parseEnvelope(std::string& frame, std::size_t maxMessages);

}  // namespace server::bayeux
