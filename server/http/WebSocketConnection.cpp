#include "server/http/WebSocketConnection.hpp"

#include "server/http/serverName.hpp"

#include <boost/beast/websocket/rfc6455.hpp>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace server::http {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;

namespace {

/// For the envelopes around the payloads.
constexpr std::size_t kEnvelopeBytes = 1024UL * 1024;

/// How long a frame may be of a peer that has shown neither a token nor a client id that is valid: ample for
/// a handshake, and little to keep for everyone who asks.
constexpr std::size_t kStrangersFrameBytes = 64UL * 1024;

/// What one message may leave allocated for the next.
constexpr std::size_t kKeptBytes = 1024UL * 1024;

/// While more than this waits behind the frame that is being written, nothing more is read. Events are sent
/// only when nothing waits, so these are replies, which a peer that does not read asks for without end.
constexpr std::size_t kMaxWaitingBytes = 1024UL * 1024;

/// How much is taken in at once: little at first, as most frames are short and the room for them is
/// cleared each time.
constexpr std::size_t kMinReadBytes = 4UL * 1024;
constexpr std::size_t kMaxReadBytes = 1024UL * 1024;

/// Up to here frames are joined to one.
constexpr std::size_t kJoinedBytes = 64UL * 1024;

/// How long an acknowledgement waits for the answer, to leave in one frame with it. A frame of its own
/// costs both sides as much as a whole short eval.
constexpr std::chrono::microseconds kSoon{500};

/// From so many frames on that leave while the peer says nothing, more of them are on their way. Short ones
/// then wait for company: a frame costs both sides as much as several messages. Until then, and after
/// silence, events leave at once, so that an answer waits for nothing.
constexpr unsigned kFloodFrames = 8;
constexpr std::size_t kShortFrameBytes = 16UL * 1024;
constexpr std::chrono::microseconds kGatherTime{250};

/// How long a slow peer may take to read what was sent before its connection is cut.
constexpr std::chrono::seconds kCloseTimeout{5};

/// Control frames are short: what remains of 125 bytes behind the code.
constexpr std::size_t kMaxReasonBytes = 123;

}  // namespace

std::size_t maxFrameBytes(std::size_t maxMessageBytes) {
    return 2 * maxMessageBytes + kEnvelopeBytes;
}

WebSocketConnection::WebSocketConnection(beast::tcp_stream&& stream, bayeux::BayeuxServer& server,
                                         std::size_t maxMessageBytes, std::string peerAddress,
                                         bool isAuthenticated)
    : Connection(std::move(peerAddress)),
      socket_(std::move(stream)),
      server_(server),
      open_(server.metrics(), metrics::Transport::WebSocket),
      isAuthenticated_(isAuthenticated),
      maxFrameBytes_(maxFrameBytes(maxMessageBytes)),
      soonTimer_(socket_.get_executor()),
      gatherTimer_(socket_.get_executor()),
      closeTimer_(socket_.get_executor()),
      isKnown_(isAuthenticated),
      strangerTimer_(socket_.get_executor()) {
    // The library's own limit closes the socket with data unread: the reset that follows may reach the peer
    // before the close frame that tells why. `onRead` counts instead.
    socket_.read_message_max(0);
    // One frame a message: some clients count frames, and there is nothing to interleave.
    socket_.auto_fragment(false);
    socket_.text(true);
}

void WebSocketConnection::run(const Request& upgrade, std::chrono::milliseconds idleTimeout,
                              std::chrono::milliseconds strangerTimeout) {
    strangerTimeout_ = strangerTimeout;
    beast::get_lowest_layer(socket_).expires_never();
    websocket::stream_base::timeout timeout;
    timeout.handshake_timeout = std::chrono::seconds(30);
    timeout.idle_timeout = idleTimeout;
    timeout.keep_alive_pings = true;
    socket_.set_option(timeout);
    const std::string offered(upgrade[beast::http::field::sec_websocket_protocol]);
    socket_.set_option(websocket::stream_base::decorator([offered](websocket::response_type& response) {
        response.set(beast::http::field::server, kServerName);
        // A stock client rejects the socket when it offered subprotocols and none is named.
        if (!offered.empty()) {
            response.set(beast::http::field::sec_websocket_protocol, offered.substr(0, offered.find(',')));
        }
    }));
    socket_.async_accept(upgrade, [self = shared_from_this()](beast::error_code error) {
        if (!error) {
            self->isOpen_ = true;
            self->lastSessionHeard_ = std::chrono::steady_clock::now();
            self->startStrangerTimer();
            self->read();
        }
    });
}

void WebSocketConnection::read() {
    socket_.async_read_some(
        buffer_, std::clamp(buffer_.size(), kMinReadBytes, kMaxReadBytes),
        [self = shared_from_this()](beast::error_code error, std::size_t) { self->onRead(error); });
}

void WebSocketConnection::onRead(beast::error_code error) {
    if (error) {
        drop();
        return;
    }
    if (closeReason_) {
        return;
    }
    if (buffer_.size() > frameLimit()) {
        server_.metrics()->refusals.add(metrics::RefusalReason::BodyBytes);
        // Closing reads on and throws away what comes, so that the peer can finish and read the reason.
        buffer_.consume(buffer_.size());
        close(bayeux::CloseCode::TooBig, "the frame is too long");
        return;
    }
    if (!socket_.is_message_done()) {
        read();
        return;
    }
    framesSinceHeard_ = 0;
    frame_.resize(buffer_.size());
    server_.receive(shared_from_this(), frame_);
    buffer_.consume(buffer_.size());
    if (frame_.capacity() > kKeptBytes) {
        frame_.shrink_to_fit();
    }
    isReadingPaused_ = waitingBytes_ > kMaxWaitingBytes;
    if (!isReadingPaused_) {
        read();
    }
}

void WebSocketConnection::send(bayeux::FrameText frame) {
    if (!isOpen_ || closeReason_) {
        return;
    }
    append(std::move(frame));
    isInHurry_ = true;
    if (writing_.empty()) {
        write();
    }
}

void WebSocketConnection::sendSoon(bayeux::FrameText frame) {
    if (!isOpen_ || closeReason_) {
        return;
    }
    isInHurry_ = isInHurry_ && !waiting_.empty();
    append(std::move(frame));
    if (!isInHurry_ && !isSoonTimerRunning_) {
        startSoonTimer();
    }
}

std::size_t WebSocketConnection::frameLimit() const {
    return isKnown_ ? maxFrameBytes_ : std::min(kStrangersFrameBytes, maxFrameBytes_);
}

void WebSocketConnection::sessionHeard() {
    isKnown_ = true;
    lastSessionHeard_ = std::chrono::steady_clock::now();
}

void WebSocketConnection::startStrangerTimer() {
    strangerTimer_.expires_at(lastSessionHeard_ + strangerTimeout_);
    strangerTimer_.async_wait([weak = weak_from_this()](beast::error_code cancelled) {
        const auto self = weak.lock();
        if (cancelled || !self) {
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        if (!self->boundSessions.empty()) {
            // As long as a session is served here it has a time of its own.
            self->lastSessionHeard_ = now;
        }
        if (now - self->lastSessionHeard_ < self->strangerTimeout_) {
            self->startStrangerTimer();
        } else {
            self->close(bayeux::CloseCode::PolicyViolation, "no message of a session came for too long");
        }
    });
}

void WebSocketConnection::startSoonTimer() {
    // Left running when all has been written before: the next frame may leave earlier than it has to.
    isSoonTimerRunning_ = true;
    soonTimer_.expires_after(kSoon);
    soonTimer_.async_wait([self = shared_from_this()](beast::error_code cancelled) {
        self->isSoonTimerRunning_ = false;
        if (cancelled) {
            return;
        }
        self->isInHurry_ = true;
        if (self->writing_.empty() && !self->waiting_.empty() && self->isOpen_ && !self->closeReason_) {
            self->write();
        }
    });
}

void WebSocketConnection::gather() {
    if (std::exchange(isGathering_, true)) {
        return;
    }
    gatherTimer_.expires_after(kGatherTime);
    gatherTimer_.async_wait([self = shared_from_this()](beast::error_code cancelled) {
        self->isGathering_ = false;
        if (!cancelled && self->isWritable()) {
            self->server_.writable(*self);
        }
    });
}

void WebSocketConnection::append(bayeux::FrameText frame) {
    waitingBytes_ += frame.size();
    if (!waiting_.empty() && waiting_.back().join(frame, kJoinedBytes)) {
        // One comma takes the place of two brackets.
        --waitingBytes_;
    } else {
        waiting_.push_back(std::move(frame));
    }
}

void WebSocketConnection::write() {
    writing_ = std::move(waiting_.front());
    waiting_.pop_front();
    waitingBytes_ -= writing_.size();
    ++framesSinceHeard_;
    std::vector<asio::const_buffer> buffers;
    for (const std::string_view piece : writing_.pieces()) {
        buffers.emplace_back(piece.data(), piece.size());
    }
    socket_.async_write(buffers, [self = shared_from_this()](beast::error_code error, std::size_t) {
        self->onWritten(error);
    });
}

void WebSocketConnection::onWritten(beast::error_code error) {
    if (error) {
        drop();
        return;
    }
    const bool isShort = writing_.size() < kShortFrameBytes;
    writing_ = {};
    if (!waiting_.empty() && (isInHurry_ || closeReason_)) {
        write();
    } else if (closeReason_) {
        startClosing();
    } else if (isShort && framesSinceHeard_ >= kFloodFrames) {
        gather();
    } else {
        server_.writable(*this);
    }
    if (isReadingPaused_ && isOpen_ && !closeReason_ && waitingBytes_ <= kMaxWaitingBytes) {
        isReadingPaused_ = false;
        read();
    }
}

void WebSocketConnection::close(bayeux::CloseCode code, std::string reason) {
    if (!isOpen_ || closeReason_) {
        return;
    }
    reason.resize(std::min(reason.size(), kMaxReasonBytes));
    closeReason_ = websocket::close_reason(static_cast<websocket::close_code>(code), reason);
    closeTimer_.expires_after(kCloseTimeout);
    closeTimer_.async_wait([self = shared_from_this()](beast::error_code error) {
        if (!error) {
            self->drop();
        }
    });
    if (!writing_.empty()) {
        return;
    }
    if (waiting_.empty()) {
        startClosing();
    } else {
        write();
    }
}

void WebSocketConnection::startClosing() {
    socket_.async_close(*closeReason_, [self = shared_from_this()](beast::error_code) { self->drop(); });
}

void WebSocketConnection::supersede() {
    close(bayeux::CloseCode::Normal, "another connection has taken over");
}

void WebSocketConnection::drop() {
    if (!isOpen_) {
        return;
    }
    isOpen_ = false;
    closeTimer_.cancel();
    soonTimer_.cancel();
    gatherTimer_.cancel();
    strangerTimer_.cancel();
    beast::get_lowest_layer(socket_).close();
    server_.closed(*this);
}

}  // namespace server::http
