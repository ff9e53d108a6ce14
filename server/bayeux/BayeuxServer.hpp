#pragma once

#include "connector/message_service/Broker.hpp"
#include "server/bayeux/AccessPolicy.hpp"
#include "server/bayeux/ClientLifecycle.hpp"
#include "server/bayeux/Connection.hpp"
#include "server/bayeux/Envelope.hpp"
#include "server/bayeux/FailedHandshakes.hpp"
#include "server/bayeux/Ingress.hpp"
#include "server/bayeux/Limits.hpp"
#include "server/bayeux/Reply.hpp"
#include "server/bayeux/RequestsInFlight.hpp"
#include "server/bayeux/Session.hpp"
#include "server/metrics/Metrics.hpp"
#include "server/output/TextGate.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace server::bayeux {

/// The Bayeux protocol, free of sockets and timers: sessions, their connects and their messages.
///
/// A transport hands in the text of frames and is told what to send. Sessions are apart from
/// connections: a message with a valid client id is good on any of them. Outgoing events reach a
/// session's queue on the publisher's thread; everything else runs on one thread, the server's.
class BayeuxServer {
  public:
    struct Options {
        /// How long a connect is held.
        std::chrono::milliseconds connectTimeout{30'000};
        /// How long a session lives without a held connect. Longer than the connect timeout and what
        /// clients wait beyond it, or a client that lost its network in silence loses its session.
        std::chrono::milliseconds graceTime{60'000};
        Limits limits;
        /// Clients refuse frames from 64 MiB on; small frames also keep a slow reader's share small.
        std::size_t maxFrameBytes = 1024UL * 1024;
        /// What `supportedConnectionTypes` offers.
        std::vector<std::string> connectionTypes{"websocket", "long-polling"};
        /// Whether a handshake without the right token in its request may go on with this one.
        std::function<bool(std::string_view token)> acceptsToken = [](std::string_view) { return true; };
        /// Where the server counts. Not null.
        std::shared_ptr<metrics::Metrics> metrics = std::make_shared<metrics::Metrics>();
        /// Holds back who writes text faster than sessions read it; null for nobody.
        std::shared_ptr<output::TextGate> textGate;
        /// Runs a function on the server's thread. Called from any thread, never blocks.
        std::function<void(std::function<void()>)> post;
        std::function<Clock::time_point()> now = [] { return Clock::now(); };
    };

    BayeuxServer(std::shared_ptr<connector::message_service::Broker> broker, Options options);
    ~BayeuxServer();
    BayeuxServer(const BayeuxServer&) = delete;
    BayeuxServer& operator=(const BayeuxServer&) = delete;

    /// Carries out the messages of one frame or request body, in order, and sends the replies in one
    /// frame, or in `Connection::refuseFrame` when it cannot be read; nothing is sent when the only message
    /// is a connect that is held. `frame` may change its capacity.
    void receive(const std::shared_ptr<Connection>& from, std::string& frame);

    /// The connection has written everything it took.
    void writable(Connection& connection);

    /// The connection is gone. The sessions stay for their grace time.
    void closed(Connection& connection);

    /// Answers connects that are due, ends sessions whose grace time is over, closes connections. To be
    /// called a few times a second, and at the moment that it returns: when the next connect is due, or the
    /// end of all time. A connect that is held longer than advised is given up by its client.
    Clock::time_point advance();

    /// From now on handshakes and requests are refused; what is under way is still delivered.
    void stopAccepting() { accepting_ = false; }
    bool isAccepting() const { return accepting_; }

    /// Whether events wait for a session that is connected, or was a moment ago: a client that polls has
    /// no connection between two requests.
    bool hasUndelivered() const;

    /// May be asked from any thread.
    const RequestsInFlight& requestsInFlight() const { return requestsInFlight_; }

    /// Where a transport looks before it tells whether a token is right, and notes that one was wrong.
    FailedHandshakes& failedHandshakes() { return failedHandshakes_; }

    std::size_t sessionCount() const { return sessions_.size(); }
    std::size_t clientCount() const { return lifecycle_.clients().size(); }
    const std::shared_ptr<metrics::Metrics>& metrics() const { return options_.metrics; }
    /// What is measured now, beside what has been counted.
    metrics::Metrics::Gauges gauges() const;

  private:
    struct Batch;
    struct Closing {
        std::weak_ptr<Connection> connection;
        Clock::time_point due;
    };

    void handle(Batch& batch, const Message& message);
    void handshake(Batch& batch, const Message& message);
    /// Nothing when the handshake may go on.
    std::optional<Refusal> refuseHandshake(const Connection& from, const Message& message);
    void connect(Batch& batch, const Message& message, const std::shared_ptr<Session>& session);
    void disconnect(Batch& batch, const Message& message, const std::shared_ptr<Session>& session);
    void subscribe(Batch& batch, const Message& message, Session& session);
    void unsubscribe(Batch& batch, const Message& message, Session& session);
    void publish(Batch& batch, const Message& message, Session& session);
    void refuse(Batch& batch, const Message& message, const Refusal& refusal, std::string_view fields = {});

    std::shared_ptr<Session> find(const std::string& clientId) const;
    std::shared_ptr<Session> find(SessionNumber number) const;
    /// From now on the events of the session go to this connection, and to no other.
    void bind(const std::shared_ptr<Session>& session, const std::shared_ptr<Connection>& connection);
    static void unbind(const std::shared_ptr<Session>& session);
    void flush(const std::shared_ptr<Session>& session);
    void answerHeld(Session& session, Frame&& frame);
    /// Sends all that has been collected, and counts it.
    void send(Connection& to, Frame& frame);
    FrameText take(Frame& frame);
    void addEvents(Frame& frame, Session& session) const;
    /// Of a successful reply to a connect that is made now.
    std::string connectFields(Session& session) const;
    void closeSoon(const std::shared_ptr<Connection>& connection);
    /// Tells the client why, closes its connection unless others use it too, and ends the session.
    void evict(const std::shared_ptr<Session>& session, const Refusal& why, metrics::SessionEnd cause);
    void end(const std::shared_ptr<Session>& session, metrics::SessionEnd cause);

    const std::shared_ptr<connector::message_service::Broker> broker_;
    const Options options_;
    const Ingress ingress_;
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    std::unordered_map<std::string, std::shared_ptr<Session>> sessions_;
    std::unordered_map<SessionNumber, std::weak_ptr<Session>> sessionsByNumber_;
    /// How many sessions a peer has, without those that have none.
    std::unordered_map<std::string, std::size_t> sessionsByAddress_;
    FailedHandshakes failedHandshakes_;
    SessionNumber lastSession_ = 0;
    std::vector<Closing> closing_;
    bool accepting_ = true;

    RequestsInFlight requestsInFlight_;
    ClientLifecycle lifecycle_;
    AccessPolicy policy_{lifecycle_.clients()};
    std::shared_ptr<connector::message_service::Subscription> responses_;
};

}  // namespace server::bayeux
