#pragma once

#include "server/bayeux/BayeuxServer.hpp"
#include "server/bayeux/Connection.hpp"
#include "server/http/OpenConnection.hpp"

#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <chrono>
#include <deque>
#include <memory>
#include <string>

namespace server::http {

/// How long a frame or body may be whose messages have payloads of at most `maxMessageBytes`. Somewhat more
/// than that is read, so that it can be answered that a payload is too long.
std::size_t maxFrameBytes(std::size_t maxMessageBytes);

/// One WebSocket of a client. Keeps itself alive by its read, or by its write while it takes no more
/// messages from a peer that does not read its replies; confined to the server's thread.
class WebSocketConnection final : public bayeux::Connection,
                                  public std::enable_shared_from_this<WebSocketConnection> {
  public:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;

    /// `server` must outlive the connection. `isAuthenticated`: the upgrade carried the right token.
    WebSocketConnection(boost::beast::tcp_stream&& stream, bayeux::BayeuxServer& server,
                        std::size_t maxMessageBytes, std::string peerAddress, bool isAuthenticated);

    /// Answers the upgrade and starts to read. A peer that is silent for `idleTimeout`, even when it is
    /// pinged, has gone. One that is served no session, and sends no message of one for `strangerTimeout`, is
    /// turned away.
    void run(const Request& upgrade, std::chrono::milliseconds idleTimeout,
             std::chrono::milliseconds strangerTimeout);

    void send(bayeux::FrameText frame) override;
    void sendSoon(bayeux::FrameText frame) override;
    void close(bayeux::CloseCode code, std::string reason) override;
    void supersede() override;
    void sessionHeard() override;
    bool isWritable() const override { return writing_.empty() && !isGathering_ && !closeReason_; }
    bool isStreaming() const override { return true; }
    bool isAuthenticated() const override { return isAuthenticated_; }

  private:
    void read();
    void onRead(boost::beast::error_code error);
    /// Puts a frame behind those that wait, as one with the last of them where that stays short.
    void append(bayeux::FrameText frame);
    void startSoonTimer();
    /// Lets events wait for others for a moment.
    void gather();
    void startStrangerTimer();
    std::size_t frameLimit() const;
    void write();
    void onWritten(boost::beast::error_code error);
    void startClosing();
    void drop();

    boost::beast::websocket::stream<boost::beast::tcp_stream> socket_;
    bayeux::BayeuxServer& server_;
    const OpenConnection open_;
    const bool isAuthenticated_;
    const std::size_t maxFrameBytes_;
    std::string frame_;
    boost::asio::dynamic_string_buffer<char, std::char_traits<char>, std::allocator<char>> buffer_{frame_};
    /// The frame that is being written; empty when there is none.
    bayeux::FrameText writing_;
    std::deque<bayeux::FrameText> waiting_;
    std::size_t waitingBytes_ = 0;
    /// Whether what waits may not be kept back any longer.
    bool isInHurry_ = true;
    boost::asio::steady_timer soonTimer_;
    bool isSoonTimerRunning_ = false;
    unsigned framesSinceHeard_ = 0;
    boost::asio::steady_timer gatherTimer_;
    bool isGathering_ = false;
    bool isReadingPaused_ = false;
    std::optional<boost::beast::websocket::close_reason> closeReason_;
    boost::asio::steady_timer closeTimer_;
    /// Whether the peer has shown that it may have a session.
    bool isKnown_;
    std::chrono::milliseconds strangerTimeout_{};
    std::chrono::steady_clock::time_point lastSessionHeard_;
    boost::asio::steady_timer strangerTimer_;
    bool isOpen_ = false;
};

}  // namespace server::http
