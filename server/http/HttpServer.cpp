#include "server/http/HttpServer.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"
#include "server/bayeux/BayeuxServer.hpp"
#include "server/http/HttpSession.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace server::http {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;

namespace {

/// How often sessions are looked after: they are ended so much late at most.
constexpr std::chrono::milliseconds kTick{250};
constexpr std::chrono::milliseconds kMinTick{10};

/// So many connections beyond the limit may be told so at the same time; others are closed without a word.
constexpr std::size_t kMaxRefusedAtOnce = 100;

/// After a failure to accept, such as too many open files, the next try waits.
constexpr std::chrono::milliseconds kAcceptPause{100};

/// How often it is looked at whether all has been written, at the end.
constexpr std::chrono::milliseconds kDrainStep{10};

foundation::log::diagnostic_logger& logger() {
    static auto& instance = *new foundation::log::diagnostic_logger("server::http");
    return instance;
}

}  // namespace

struct HttpServer::Impl {
    Impl(std::shared_ptr<connector::message_service::Broker> broker, Options options)
        : files(std::move(options.files)),
          guard(std::move(options.guard)),
          maxConnections(options.maxConnections),
          bayeux(std::move(broker), bayeuxOptions(options)),
          services{bayeux,
                   guard,
                   files,
                   options.limits.maxMessageBytes,
                   options.requestTimeout,
                   options.webSocketIdleTimeout,
                   options.strangerTimeout,
                   [this, isReady = std::move(options.isReady)] { return bayeux.isAccepting() && isReady(); },
                   [this](std::weak_ptr<WebSocketConnection> socket) { sockets.add(std::move(socket)); }} {
        listen(options.host, options.port);
    }

    bayeux::BayeuxServer::Options bayeuxOptions(const Options& options) {
        bayeux::BayeuxServer::Options result;
        result.connectTimeout = options.connectTimeout;
        result.graceTime = options.graceTime;
        result.limits = options.limits;
        result.metrics = options.metrics;
        result.textGate = options.textGate;
        result.acceptsToken = [this](std::string_view token) { return guard.isRight(token); };
        result.post = [this](std::function<void()> work) { asio::post(context, std::move(work)); };
        return result;
    }

    void listen(const std::string& host, std::uint16_t port) {
        beast::error_code error;
        const auto endpoints = tcp::resolver(context).resolve(host, std::to_string(port), error);
        if (!error) {
            const tcp::endpoint endpoint = endpoints.begin()->endpoint();
            acceptor.open(endpoint.protocol(), error);
            if (!error) {
                acceptor.set_option(asio::socket_base::reuse_address(true), error);
            }
            if (!error) {
                acceptor.bind(endpoint, error);
            }
            if (!error) {
                acceptor.listen(asio::socket_base::max_listen_connections, error);
            }
        }
        if (error) {
            throw std::runtime_error("cannot listen on " + host + ":" + std::to_string(port) + ": " +
                                     error.message());
        }
    }

    void accept() {
        acceptor.async_accept([this](beast::error_code error, tcp::socket socket) {
            if (error == asio::error::operation_aborted) {
                return;
            }
            if (error) {
                FOUNDATION_LOG(logger(), foundation::log::CaughtException)
                    << "accept failed: " << error.message();
                acceptTimer.expires_after(kAcceptPause);
                acceptTimer.async_wait([this](beast::error_code cancelled) {
                    if (!cancelled) {
                        accept();
                    }
                });
                return;
            }
            // First, so that a fault in what follows ends this connection only.
            accept();
            // Answers are small and wait for nobody.
            const std::uint64_t open = openConnections();
            if (open >= maxConnections + kMaxRefusedAtOnce) {
                bayeux.metrics()->refusals.add(metrics::RefusalReason::Connections);
                return;
            }
            beast::error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            const auto session =
                std::make_shared<HttpSession>(beast::tcp_stream(std::move(socket)), services);
            sessions.add(session);
            if (open < maxConnections) {
                session->run();
            } else {
                session->refuse(maxConnections);
            }
        });
    }

    std::uint64_t openConnections() const {
        const auto& connections = bayeux.metrics()->connections;
        return connections[metrics::Transport::Http] + connections[metrics::Transport::WebSocket];
    }

    void tick() {
        // First, so that a fault in what follows ends this turn only.
        tickAt(std::chrono::steady_clock::now() + kTick);
        // Not for each of many connects that are due one shortly after the other.
        const auto due = std::max(bayeux.advance(), std::chrono::steady_clock::now() + kMinTick);
        if (due < ticker.expiry()) {
            tickAt(due);
        }
    }

    void tickAt(std::chrono::steady_clock::time_point moment) {
        ticker.expires_at(moment);
        ticker.async_wait([this](beast::error_code cancelled) {
            if (!cancelled) {
                tick();
            }
        });
    }

    void run() {
        while (true) {
            try {
                context.run();
                return;
            } catch (const std::exception& error) {
                // A fault in the handling of one message must not take the other sessions along.
                FOUNDATION_LOG(logger(), foundation::log::CaughtException)
                    << "Exception caught: " << error.what();
            }
        }
    }

    /// Those that may still be there.
    template <typename T>
    struct Remembered {
        std::vector<std::weak_ptr<T>> all;

        void add(std::weak_ptr<T> one) {
            // Before the memory grows, so that it costs little for each one.
            if (all.size() == all.capacity()) {
                std::erase_if(all, [](const std::weak_ptr<T>& other) { return other.expired(); });
                all.reserve(2 * all.size() + 1);
            }
            all.push_back(std::move(one));
        }
    };

    /// Closes all connections when what waits for them has been written, or at `deadline`.
    void drain(std::chrono::steady_clock::time_point deadline) {
        acceptor.close();
        acceptTimer.cancel();
        const bool isWritten = !bayeux.hasUndelivered() &&
                               std::none_of(sockets.all.begin(), sockets.all.end(), [](const auto& weak) {
                                   const auto socket = weak.lock();
                                   return socket && !socket->isWritable();
                               });
        if (isWritten || std::chrono::steady_clock::now() >= deadline) {
            closeAll();
            return;
        }
        drainTimer.expires_after(kDrainStep);
        drainTimer.async_wait([this, deadline](beast::error_code) { drain(deadline); });
    }

    void closeAll() {
        ticker.cancel();
        for (const auto& weak : sockets.all) {
            if (const auto socket = weak.lock()) {
                socket->close(bayeux::CloseCode::GoingAway, "the server is shutting down");
            }
        }
        for (const auto& weak : sessions.all) {
            if (const auto session = weak.lock()) {
                session->close();
            }
        }
    }

    const StaticFiles files;
    const RequestGuard guard;
    const std::size_t maxConnections;
    // One thread runs it; other threads post.
    asio::io_context context{1};
    tcp::acceptor acceptor{context};
    asio::steady_timer acceptTimer{context};
    asio::steady_timer ticker{context};
    asio::steady_timer drainTimer{context};
    bayeux::BayeuxServer bayeux;
    const HttpServices services;
    Remembered<HttpSession> sessions;
    Remembered<WebSocketConnection> sockets;
    std::thread thread;
    std::promise<void> ended;
};

HttpServer::HttpServer(std::shared_ptr<connector::message_service::Broker> broker, Options options)
    : impl_(std::make_unique<Impl>(std::move(broker), std::move(options))) {}

HttpServer::~HttpServer() {
    stop(std::chrono::milliseconds(0));
}

std::uint16_t HttpServer::port() const {
    return impl_->acceptor.local_endpoint().port();
}

void HttpServer::start() {
    impl_->accept();
    impl_->tick();
    impl_->thread = std::thread([impl = impl_.get()] {
        impl->run();
        impl->ended.set_value();
    });
}

void HttpServer::stopAccepting() {
    asio::post(impl_->context, [impl = impl_.get()] {
        impl->acceptor.cancel();
        impl->bayeux.stopAccepting();
    });
}

bool HttpServer::waitForAnswers(std::chrono::milliseconds bound) const {
    return impl_->bayeux.requestsInFlight().waitForNone(bound);
}

void HttpServer::stop(std::chrono::milliseconds bound) {
    if (!impl_->thread.joinable()) {
        return;
    }
    // What remains is for the peers to answer the close.
    const auto deadline = std::chrono::steady_clock::now() + bound * 3 / 4;
    asio::post(impl_->context, [impl = impl_.get(), deadline] { impl->drain(deadline); });
    // The context runs out of work when the last connection has gone.
    if (impl_->ended.get_future().wait_for(bound) != std::future_status::ready) {
        impl_->context.stop();
    }
    impl_->thread.join();
}

}  // namespace server::http
