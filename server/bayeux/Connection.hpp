#pragma once

#include "server/bayeux/FrameText.hpp"
#include "server/bayeux/Refusal.hpp"

#include <memory>
#include <string>
#include <vector>

namespace server::bayeux {

class Session;

/// Why a connection is closed, as WebSocket close codes.
enum class CloseCode { Normal = 1000, GoingAway = 1001, PolicyViolation = 1008, TooBig = 1009 };

/// One place from which messages of clients come and to which replies and events are written: a
/// WebSocket, or the exchange of one long-polling request.
///
/// Used by the server's thread only; nothing here blocks. The transport calls `BayeuxServer::receive`,
/// `writable` and `closed`.
class Connection {
  public:
    /// `peerAddress` names the peer to limits that count by address: an IP address, or of IPv6 the network
    /// of 64 bits, since one host may have all the addresses in it.
    explicit Connection(std::string peerAddress) : peerAddress_(std::move(peerAddress)) {}
    virtual ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Takes one JSON array, to be written behind what it took before. Ignored once it is closed.
    virtual void send(FrameText frame) = 0;

    /// As `send`, of what nobody waits for: may be kept back for a fraction of a millisecond, so that it
    /// leaves together with what comes next.
    virtual void sendSoon(FrameText frame) { send(std::move(frame)); }

    /// The frame that came in could not be read as a whole; `reply` says so in Bayeux.
    virtual void refuseFrame(FrameText reply, const Refusal& why);

    /// Closes after what was sent has been written, or at once if that takes too long.
    virtual void close(CloseCode code, std::string reason) = 0;

    /// Another connect of the same session has come over another connection.
    virtual void supersede() = 0;

    /// A message of a session that exists, or a handshake that brings one about, has come from here.
    virtual void sessionHeard() {}

    /// Whether nothing waits to be written. When that becomes true `BayeuxServer::writable` is called.
    virtual bool isWritable() const = 0;

    /// Whether events may be sent at any time, and not only together with the reply to a connect.
    virtual bool isStreaming() const = 0;

    /// Whether the request or upgrade behind it carried the right token.
    virtual bool isAuthenticated() const = 0;

    const std::string& peerAddress() const { return peerAddress_; }

    /// The sessions whose latest connect came from here. Kept by `BayeuxServer`.
    std::vector<std::weak_ptr<Session>> boundSessions;

  private:
    const std::string peerAddress_;
};

}  // namespace server::bayeux
