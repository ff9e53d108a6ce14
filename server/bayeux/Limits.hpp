#pragma once

#include <cstddef>

namespace server::bayeux {

/// What clients may ask of the server at most. None may be 0. Each refusal names its limit, and is counted
/// under a reason of its own.
struct Limits {
    /// The deepest that the module's parser takes: `maxDepth` can only be lower.
    static constexpr std::size_t kGreatestDepth = 512;

    /// Of the payload of one request.
    std::size_t maxMessageBytes = 64UL * 1024 * 1024;
    /// Levels of arrays and objects in a payload, the payload itself included.
    std::size_t maxDepth = kGreatestDepth;
    /// Messages in one frame or body. Every message has a reply, and a message of two bytes a longer one by
    /// far.
    std::size_t maxBatchMessages = 1'000;

    std::size_t maxSessions = 10'000;
    /// Of one peer, see `Connection::peerAddress`. Behind a proxy all clients have the address of the proxy.
    std::size_t maxSessionsPerAddress = 1'000;
    /// Clients of the module, those that are being attached included and those being detached not.
    std::size_t maxClientsPerSession = 100;
    /// Every message is compared with all of them.
    std::size_t maxSubscriptionsPerSession = 1'000;
    /// What may wait for a slow reader: channels and payloads. A session that exceeds it is ended.
    std::size_t maxQueueBytes = 64UL * 1024 * 1024;

    /// From one peer: then its handshakes are refused unseen until the minute is over, so that guessing
    /// tokens takes its time.
    std::size_t maxFailedHandshakesPerMinute = 60;
};

}  // namespace server::bayeux
