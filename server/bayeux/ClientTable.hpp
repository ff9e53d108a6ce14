#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace server::bayeux {

/// Names one session for the life of the process. Never reused, unlike a client id never told.
using SessionNumber = std::uint64_t;

/// The protocol version whose clients share one pair of sinks, on channels that are no client's own.
inline constexpr std::string_view kSharedSinksVersion = "r22a0";

/// Which session owns which attached client of the module, by attach identifier.
///
/// An identifier is reserved when its attach comes in. It is free again when the attach was refused,
/// or when its detach has been carried out; until then no other session may have it. Confined to the
/// server's thread.
class ClientTable {
  public:
    /// Counts the detaches of one identifier, so that the end of an old one cannot free a new client.
    using DetachNumber = std::uint64_t;

    /// False when another session has the identifier.
    bool reserve(std::string_view identifier, SessionNumber session);

    /// An attach of `identifier` was answered, with the version that was agreed on if it was successful. True
    /// when that freed the identifier.
    bool attachAnswered(std::string_view identifier, bool successful, std::string_view apiVersion = {});

    /// From now on the client takes no more requests. An identifier that nobody has is taken for
    /// `session` until the detach has been carried out; one that another session has may not come here.
    DetachNumber startDetach(std::string_view identifier, SessionNumber session);

    /// That detach has been carried out. True when that freed the identifier: the same session may
    /// have attached it anew in the meantime.
    bool finishDetach(std::string_view identifier, DetachNumber detach);

    std::optional<SessionNumber> ownerOf(std::string_view identifier) const;
    bool isDetaching(std::string_view identifier) const;

    /// The identifiers of `session` that no detach has been started for.
    std::vector<std::string> clientsOf(SessionNumber session) const;

    /// Whether the client is attached with this version, and no detach has been started for it.
    bool isAttached(std::string_view identifier, std::string_view apiVersion) const;

    /// Whether that holds of one of `clientsOf`.
    bool hasAttached(SessionNumber session, std::string_view apiVersion) const;

    /// How many `clientsOf` would give.
    std::size_t countOf(SessionNumber session) const;

    std::size_t size() const { return clients_.size(); }

  private:
    struct Client {
        explicit Client(SessionNumber session) : owner(session) {}

        SessionNumber owner;
        int attachesInFlight = 0;
        /// Of the attaches before the latest detach, whose answers say nothing about those behind it. Not
        /// all are answered: a detach also ends an attach that waits.
        int staleAttachesInFlight = 0;
        /// When this detach has been carried out, no stale answer is left to come.
        DetachNumber staleUntil = 0;
        bool attached = false;
        /// While `attached`: that of the first answer. A further attach is answered, and changes nothing.
        std::string apiVersion;
        std::optional<DetachNumber> detach;
    };

    void deactivate(std::string_view identifier, SessionNumber session);

    std::map<std::string, Client, std::less<>> clients_;
    /// By session, the identifiers that no detach has been started for. Only sessions that have some.
    std::unordered_map<SessionNumber, std::set<std::string, std::less<>>> active_;
    DetachNumber lastDetach_ = 0;
};

}  // namespace server::bayeux
