#pragma once

#include "server/bayeux/BayeuxServer.hpp"
#include "server/http/LongPollExchange.hpp"
#include "server/http/OpenConnection.hpp"
#include "server/http/RequestGuard.hpp"
#include "server/http/StaticFiles.hpp"
#include "server/http/WebSocketConnection.hpp"

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message_generator.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace server::http {

/// What all HTTP sessions share. Must outlive them.
struct HttpServices {
    bayeux::BayeuxServer& bayeux;
    const RequestGuard& guard;
    const StaticFiles& files;
    std::size_t maxMessageBytes;
    std::chrono::milliseconds requestTimeout;
    std::chrono::milliseconds webSocketIdleTimeout;
    std::chrono::milliseconds strangerTimeout;
    std::function<bool()> isReady;
    /// Takes note of a WebSocket, so that it can be closed at the end.
    std::function<void(std::weak_ptr<WebSocketConnection>)> opened;
};

/// One TCP connection that speaks HTTP: answers request after request, Bayeux over long-polling among
/// them, until it is closed or becomes a WebSocket. Keeps itself alive by its reads and writes; confined to
/// the server's thread.
class HttpSession final : public std::enable_shared_from_this<HttpSession> {
  public:
    HttpSession(boost::beast::tcp_stream&& stream, const HttpServices& services);

    void run() { read(); }

    /// Tells the peer that the server has too many connections, instead of `run`.
    void refuse(std::size_t maxConnections);

    /// Cuts the connection, when the reply that is being written is out.
    void close();

  private:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;

    void read();
    void onHeader(boost::beast::error_code error);
    void onRead(boost::beast::error_code error);
    void refuseBody();
    void refuseBadHttp(boost::beast::error_code error);
    void upgrade();
    boost::beast::http::message_generator answerMetrics(const Request& request);
    /// Notes that a request was refused without its Bayeux messages being looked at.
    void countRefusal(metrics::RefusalReason reason) { services_.bayeux.metrics()->refusals.add(reason); }
    boost::beast::http::message_generator answer(const Request& request);
    bool isPoll(const Request& request) const;
    void poll();
    void answerPoll(unsigned status, std::string body);
    void watchForTheEnd();
    bool allowsOrigin(const Request& request) const;
    void write(boost::beast::http::message_generator response, bool keepAlive);

    /// Reads and forgets what still comes: a connection that is closed before would be reset, and the peer
    /// could lose the answer.
    void linger();

    boost::beast::tcp_stream stream_;
    const HttpServices& services_;
    const std::string peerAddress_;
    const OpenConnection open_;
    boost::beast::flat_buffer buffer_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
    /// The long-polling request that is being served.
    std::shared_ptr<LongPollExchange> exchange_;
    /// Itself, while a request is held and nothing is being read or written.
    std::shared_ptr<HttpSession> waiting_;
    bool isWriting_ = false;
    bool isClosing_ = false;
};

}  // namespace server::http
