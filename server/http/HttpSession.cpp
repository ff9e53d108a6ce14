#include "server/http/HttpSession.hpp"

#include "server/http/peerAddress.hpp"
#include "server/http/serverName.hpp"
#include "server/metrics/PrometheusText.hpp"

#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

namespace server::http {

namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace {

/// Ample for cookies and a token; a bigger header is no client of ours.
constexpr std::uint32_t kMaxHeaderBytes = 16 * 1024;

/// A body that is read and passed over, for the sake of the connection.
constexpr std::size_t kMaxIgnoredBody = 64UL * 1024;

/// How long what a peer still sends is read after the last answer.
constexpr std::chrono::seconds kLinger{2};

/// A page under this policy runs its own scripts only. Data and blob images are figures, and one stock
/// client runs its timers in a worker from a blob.
constexpr const char* kContentSecurityPolicy =
    "default-src 'self'; img-src 'self' data: blob:; worker-src 'self' blob:; object-src 'none'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

using metrics::RefusalReason;

constexpr const char* kTooManyFailures = "too many failed handshakes from this address";

using Response = http::response<http::string_body>;

Response makeResponse(const http::request<http::string_body>& request, http::status status,
                      std::string_view contentType, std::string body) {
    Response response(status, request.version());
    response.set(http::field::server, kServerName);
    response.set(http::field::content_type, contentType);
    response.set("X-Content-Type-Options", "nosniff");
    response.set("Referrer-Policy", "no-referrer");
    response.set(http::field::cache_control, "no-store");
    response.keep_alive(request.keep_alive());
    response.body() = std::move(body);
    response.prepare_payload();
    if (request.method() == http::verb::head) {
        // The length stays that of the body which is not sent.
        response.body().clear();
    }
    return response;
}

Response makeText(const http::request<http::string_body>& request, http::status status, std::string body) {
    return makeResponse(request, status, "text/plain; charset=utf-8", std::move(body) + "\n");
}

Response makeFile(const http::request<http::string_body>& request, const StaticFiles::File& file) {
    const bool isKnown = request[http::field::if_none_match] == file.etag;
    Response response = makeResponse(request, isKnown ? http::status::not_modified : http::status::ok,
                                     file.contentType, isKnown ? std::string() : file.body);
    response.set(http::field::etag, file.etag);
    response.set(http::field::cache_control,
                 file.isImmutable ? "public, max-age=31536000, immutable" : "no-cache");
    response.set("Content-Security-Policy", kContentSecurityPolicy);
    return response;
}

/// Whether what came breaks the rules of HTTP.
bool isBadHttp(beast::error_code error) {
    return error && error.category() == http::make_error_code(http::error::bad_method).category();
}

std::string_view pathOf(std::string_view target) {
    return target.substr(0, target.find('?'));
}

bool isBayeuxPath(std::string_view path) {
    return path == "/bayeux" || path.starts_with("/bayeux/");
}

/// What a stock client puts behind the address; it says nothing that the body does not.
bool isPollPath(std::string_view path) {
    return path == "/bayeux" || path == "/bayeux/" || path == "/bayeux/handshake" ||
           path == "/bayeux/connect" || path == "/bayeux/disconnect";
}

/// Whether the media type is JSON. A foreign page cannot send that without asking first.
bool isJson(std::string_view contentType) {
    const std::string_view type = contentType.substr(0, contentType.find_first_of("; "));
    return beast::iequals(type, "application/json");
}

/// Lets a page of another origin, which has been allowed, read the answer.
void allowCrossOrigin(const http::request<http::string_body>& request, Response& response) {
    if (request.count(http::field::origin) != 0) {
        response.set(http::field::access_control_allow_origin, request[http::field::origin]);
        response.set(http::field::access_control_allow_credentials, "true");
        response.set(http::field::vary, "Origin");
    }
}

Response makePreflight(const http::request<http::string_body>& request) {
    Response response = makeResponse(request, http::status::no_content, "text/plain", "");
    allowCrossOrigin(request, response);
    response.set(http::field::access_control_allow_methods, "POST, OPTIONS");
    response.set(http::field::access_control_allow_headers,
                 "content-type, authorization, pragma, x-requested-with");
    response.set(http::field::access_control_max_age, "600");
    return response;
}

}  // namespace

HttpSession::HttpSession(beast::tcp_stream&& stream, const HttpServices& services)
    : stream_(std::move(stream)),
      services_(services),
      peerAddress_(peerAddressOf(stream_.socket())),
      open_(services.bayeux.metrics(), metrics::Transport::Http) {}

void HttpSession::refuse(std::size_t maxConnections) {
    countRefusal(RefusalReason::Connections);
    Request none;
    none.keep_alive(false);
    write(makeText(none, http::status::service_unavailable,
                   "too many connections - the server takes " + std::to_string(maxConnections)),
          false);
}

void HttpSession::close() {
    isClosing_ = true;
    if (!isWriting_) {
        stream_.close();
        waiting_.reset();
    }
}

void HttpSession::read() {
    parser_.emplace();
    parser_->header_limit(kMaxHeaderBytes);
    // Until the header tells what is to be done with the body. Beast compares with the limit already there.
    parser_->body_limit(boost::none);
    stream_.expires_after(services_.requestTimeout);
    http::async_read_header(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](beast::error_code error, std::size_t) { self->onHeader(error); });
}

void HttpSession::onHeader(beast::error_code error) {
    if (error == http::error::end_of_stream) {
        beast::error_code ignored;
        static_cast<void>(stream_.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored));
        return;
    }
    if (error == http::error::header_limit) {
        countRefusal(RefusalReason::HeaderBytes);
        write(
            makeText(parser_->get(), http::status::request_header_fields_too_large, "the header is too long"),
            false);
        return;
    }
    if (error == http::error::body_limit) {
        refuseBody();
        return;
    }
    if (isBadHttp(error)) {
        refuseBadHttp(error);
        return;
    }
    if (error == beast::error::timeout && parser_->got_some()) {
        countRefusal(RefusalReason::SlowRequest);
    }
    if (error) {
        return;
    }
    if (!services_.guard.allowsHost(parser_->get()[http::field::host])) {
        countRefusal(RefusalReason::Host);
        parser_->get().keep_alive(false);
        write(makeText(parser_->get(), http::status::forbidden,
                       "without a token the server is called by a loopback name only"),
              false);
        return;
    }
    if (beast::websocket::is_upgrade(parser_->get())) {
        upgrade();
        return;
    }
    const Request& request = parser_->get();
    const auto length = parser_->content_length();
    if (isPoll(request)) {
        parser_->body_limit(maxFrameBytes(services_.maxMessageBytes));
        if (length && *length > maxFrameBytes(services_.maxMessageBytes)) {
            refuseBody();
            return;
        }
    } else if (parser_->chunked() || length.value_or(0) > kMaxIgnoredBody) {
        // A body that nobody wants is not read, and what remains of it would be taken for the next request.
        parser_->get().keep_alive(false);
        write(answer(request), false);
        return;
    }
    // A connection may have rested before the request came.
    stream_.expires_after(services_.requestTimeout);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](beast::error_code readError, std::size_t) { self->onRead(readError); });
}

void HttpSession::onRead(beast::error_code error) {
    if (error == http::error::body_limit) {
        refuseBody();
        return;
    }
    if (isBadHttp(error)) {
        refuseBadHttp(error);
        return;
    }
    if (error == beast::error::timeout) {
        countRefusal(RefusalReason::SlowRequest);
    }
    if (error) {
        return;
    }
    const Request& request = parser_->get();
    if (isPoll(request)) {
        poll();
    } else {
        write(answer(request), request.keep_alive());
    }
}

void HttpSession::refuseBadHttp(beast::error_code error) {
    countRefusal(RefusalReason::BadHttp);
    parser_->get().keep_alive(false);
    write(makeText(parser_->get(), http::status::bad_request, "no HTTP request: " + error.message()), false);
}

bool HttpSession::isPoll(const Request& request) const {
    return request.method() == http::verb::post && isPollPath(pathOf(request.target())) &&
           allowsOrigin(request) && isJson(request[http::field::content_type]);
}

void HttpSession::poll() {
    Request& request = parser_->get();
    // A wrong token is told in the reply to the handshake: clients try for ever against a plain 401.
    const bool isAuthenticated =
        services_.guard.tokenOf(request.target(), request[http::field::authorization]) ==
        RequestGuard::Token::Right;
    exchange_ = std::make_shared<LongPollExchange>(
        peerAddress_, isAuthenticated, [weak = weak_from_this()](unsigned status, std::string body) {
            if (const auto self = weak.lock()) {
                self->answerPoll(status, std::move(body));
            }
        });
    std::string frame = std::move(request.body());
    services_.bayeux.receive(exchange_, frame);
    if (exchange_) {
        stream_.expires_never();
        watchForTheEnd();
    }
}

void HttpSession::answerPoll(unsigned status, std::string body) {
    exchange_.reset();
    const auto keptAlive = std::move(waiting_);
    // Ends the watch.
    stream_.cancel();
    const Request& request = parser_->get();
    Response response = status == 200 ? makeResponse(request, http::status::ok,
                                                     "application/json;charset=utf-8", std::move(body))
                                      : makeText(request, http::int_to_status(status), std::move(body));
    allowCrossOrigin(request, response);
    write(std::move(response), request.keep_alive());
}

void HttpSession::watchForTheEnd() {
    const auto onReadable = [self = shared_from_this()](beast::error_code error) {
        if (error == boost::asio::error::operation_aborted || !self->exchange_) {
            return;
        }
        // Readable without a byte is the end: an event must not be written into a connection that is no more.
        // A request that follows at once waits its turn, and hides the end until then.
        beast::error_code ignored;
        if (error || self->stream_.socket().available(ignored) == 0) {
            const auto exchange = std::exchange(self->exchange_, nullptr);
            self->services_.bayeux.closed(*exchange);
        } else {
            self->waiting_ = self;
        }
    };
    stream_.socket().async_wait(boost::asio::ip::tcp::socket::wait_read, onReadable);
}

bool HttpSession::allowsOrigin(const Request& request) const {
    return services_.guard.allowsOrigin(request[http::field::origin], request[http::field::host]);
}

void HttpSession::refuseBody() {
    countRefusal(RefusalReason::BodyBytes);
    parser_->get().keep_alive(false);
    write(makeText(parser_->get(), http::status::payload_too_large, "the body is too long"), false);
}

void HttpSession::upgrade() {
    const Request& request = parser_->get();
    const auto refuse = [&](http::status status, const char* why) {
        write(makeText(request, status, why), false);
    };
    const std::string_view path = pathOf(request.target());
    if (path != "/bayeux" && path != "/bayeux/") {
        refuse(http::status::not_found, "WebSockets are served at /bayeux");
        return;
    }
    if (!allowsOrigin(request)) {
        countRefusal(RefusalReason::Origin);
        refuse(http::status::forbidden, "pages of this origin are not allowed here");
        return;
    }
    // No token at all may still come in: it can handshake with a token in its message, or speak for a
    // session that exists.
    const auto token = services_.guard.tokenOf(request.target(), request[http::field::authorization]);
    auto& failedHandshakes = services_.bayeux.failedHandshakes();
    if (token != RequestGuard::Token::Absent && failedHandshakes.isBlocked(peerAddress_)) {
        countRefusal(RefusalReason::FailedHandshakes);
        refuse(http::status::too_many_requests, kTooManyFailures);
        return;
    }
    if (token == RequestGuard::Token::Wrong) {
        failedHandshakes.add(peerAddress_);
        countRefusal(RefusalReason::Unauthorized);
        refuse(http::status::unauthorized, "the token is wrong");
        return;
    }
    const auto socket =
        std::make_shared<WebSocketConnection>(std::move(stream_), services_.bayeux, services_.maxMessageBytes,
                                              peerAddress_, token == RequestGuard::Token::Right);
    services_.opened(socket);
    socket->run(request, services_.webSocketIdleTimeout, services_.strangerTimeout);
}

http::message_generator HttpSession::answer(const Request& request) {
    const std::string_view path = pathOf(request.target());
    const bool isGet = request.method() == http::verb::get || request.method() == http::verb::head;
    if (isBayeuxPath(path) && !allowsOrigin(request)) {
        countRefusal(RefusalReason::Origin);
        return makeText(request, http::status::forbidden, "pages of this origin are not allowed here");
    }
    if (isPollPath(path)) {
        if (request.method() == http::verb::options) {
            return makePreflight(request);
        }
        if (request.method() == http::verb::post) {
            return makeText(request, http::status::unsupported_media_type,
                            "the content type must be application/json");
        }
        if (isGet) {
            return makeText(request, http::status::bad_request,
                            "a GET of this address must be a WebSocket upgrade");
        }
        return makeText(request, http::status::method_not_allowed,
                        "POST and WebSocket upgrades are served here");
    }
    if (!isGet) {
        return makeText(request, http::status::method_not_allowed, "only GET and HEAD are served here");
    }
    if (path == "/metrics") {
        return answerMetrics(request);
    }
    if (path == "/healthz") {
        return makeText(request, http::status::ok, "ok");
    }
    if (path == "/readyz") {
        return services_.isReady() ? makeText(request, http::status::ok, "ready")
                                   : makeText(request, http::status::service_unavailable, "not ready");
    }
    if (const StaticFiles::File* file = services_.files.find(request.target())) {
        return makeFile(request, *file);
    }
    return makeText(request, http::status::not_found, "there is nothing here");
}

http::message_generator HttpSession::answerMetrics(const Request& request) {
    auto& failedHandshakes = services_.bayeux.failedHandshakes();
    const auto token = services_.guard.tokenOf(request.target(), request[http::field::authorization]);
    if (token != RequestGuard::Token::Absent && failedHandshakes.isBlocked(peerAddress_)) {
        countRefusal(RefusalReason::FailedHandshakes);
        return makeText(request, http::status::too_many_requests, kTooManyFailures);
    }
    if (token != RequestGuard::Token::Right) {
        if (token == RequestGuard::Token::Wrong) {
            failedHandshakes.add(peerAddress_);
        }
        countRefusal(RefusalReason::Unauthorized);
        Response response = makeText(request, http::status::unauthorized, "the token is missing or wrong");
        response.set(http::field::www_authenticate, "Bearer");
        return response;
    }
    return makeResponse(request, http::status::ok, metrics::PrometheusText::kContentType,
                        services_.bayeux.metrics()->text(services_.bayeux.gauges()));
}

void HttpSession::write(http::message_generator response, bool keepAlive) {
    isWriting_ = true;
    stream_.expires_after(services_.requestTimeout);
    beast::async_write(stream_, std::move(response),
                       [self = shared_from_this(), keepAlive](beast::error_code error, std::size_t) {
                           self->isWriting_ = false;
                           if (error) {
                               return;
                           }
                           if (keepAlive && !self->isClosing_) {
                               self->read();
                           } else {
                               beast::error_code ignored;
                               static_cast<void>(self->stream_.socket().shutdown(
                                   boost::asio::ip::tcp::socket::shutdown_send, ignored));
                               if (!self->isClosing_) {
                                   self->stream_.expires_after(kLinger);
                                   self->linger();
                               }
                           }
                       });
}

void HttpSession::linger() {
    buffer_.clear();
    stream_.async_read_some(buffer_.prepare(kMaxIgnoredBody),
                            [self = shared_from_this()](beast::error_code error, std::size_t) {
                                if (!error && !self->isClosing_) {
                                    self->linger();
                                }
                            });
}

}  // namespace server::http
