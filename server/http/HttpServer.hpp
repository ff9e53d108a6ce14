#pragma once

#include "connector/message_service/Broker.hpp"
#include "server/bayeux/Limits.hpp"
#include "server/http/RequestGuard.hpp"
#include "server/http/StaticFiles.hpp"
#include "server/metrics/Metrics.hpp"
#include "server/output/TextGate.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace server::http {

/// The door to the network: Bayeux at /bayeux over WebSocket and long-polling, the static page, the health
/// checks, the metrics.
///
/// Has one thread, "the server's thread", on which all sessions, connections and the protocol run.
/// Life: create (binds the port), `start`, `stopAccepting`, `stop` (idempotent; the destructor does it
/// too). `broker` must be stopped after it.
class HttpServer {
  public:
    struct Options {
        std::string host = "127.0.0.1";
        /// 0 lets the system choose: see `port()`.
        std::uint16_t port = 8888;
        RequestGuard::Options guard;
        StaticFiles files;
        bayeux::Limits limits;
        /// Where everything is counted, and what /metrics tells. Not null.
        std::shared_ptr<metrics::Metrics> metrics = std::make_shared<metrics::Metrics>();
        /// Holds back who writes text faster than sessions read it; null for nobody.
        std::shared_ptr<output::TextGate> textGate;
        /// Those beyond it are answered with 503. The system's limit of open files counts too.
        std::size_t maxConnections = 20'000;
        /// A connection is cut that rests longer, or over which a header, a body or an answer takes longer. A
        /// rest and the header behind it count together. Longer than the keep-alive of the clients, which
        /// would otherwise send into a connection that is being closed.
        std::chrono::milliseconds requestTimeout{90'000};
        std::chrono::milliseconds connectTimeout{30'000};
        std::chrono::milliseconds graceTime{60'000};
        /// A peer that has not even answered a ping for so long is taken for dead.
        std::chrono::milliseconds webSocketIdleTimeout{60'000};
        /// A WebSocket that serves no session, and over which no message of one has come for so long, is
        /// closed.
        std::chrono::milliseconds strangerTimeout{600'000};
        /// What /readyz tells until `stopAccepting`. Called on the server's thread.
        std::function<bool()> isReady = [] { return true; };
    };

    /// Throws `std::runtime_error`, "cannot listen on <host>:<port>: <why>".
    HttpServer(std::shared_ptr<connector::message_service::Broker> broker, Options options);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    std::uint16_t port() const;

    void start();

    /// Takes no more connections and requests; what is under way is still answered.
    void stopAccepting();

    /// Waits until every eval and feval that was accepted has been answered. False when that takes longer
    /// than `bound`.
    bool waitForAnswers(std::chrono::milliseconds bound) const;

    /// Writes what waits for connected clients, closes all connections, WebSockets with 1001, and ends the
    /// thread. Takes at most `bound`; what is not written by then is lost.
    void stop(std::chrono::milliseconds bound);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace server::http
