#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <gtest/gtest.h>
#include <simdjson.h>

#include <chrono>
#include <map>
#include <string>

namespace server::testing {

/// A plain WebSocket client. Every wait is bounded: a test fails rather than hang.
class WebSocketClient {
    static constexpr std::chrono::seconds kDeadline{60};

  public:
    explicit WebSocketClient(std::uint16_t port, const std::string& target = "/bayeux",
                             std::map<std::string, std::string> headers = {})
        : socket_(context_) {
        boost::beast::get_lowest_layer(socket_).expires_after(kDeadline);
        boost::beast::error_code error;
        boost::beast::get_lowest_layer(socket_).async_connect(
            boost::asio::ip::tcp::endpoint(boost::asio::ip::address_v4::loopback(), port),
            [&](boost::beast::error_code e) { error = e; });
        run();
        socket_.set_option(boost::beast::websocket::stream_base::decorator(
            [headers](boost::beast::websocket::request_type& request) {
                for (const auto& [name, value] : headers) {
                    request.set(name, value);
                }
            }));
        const std::string host =
            headers.count("Host") != 0 ? headers.at("Host") : "127.0.0.1:" + std::to_string(port);
        socket_.async_handshake(response, host, target, [&](boost::beast::error_code e) { error = e; });
        run();
        isOpen = !error;
    }

    void send(const std::string& frame) {
        boost::beast::error_code error;
        // Each operation its own time: what came before it may be long ago.
        boost::beast::get_lowest_layer(socket_).expires_after(kDeadline);
        socket_.async_write(boost::asio::buffer(frame),
                            [&](boost::beast::error_code e, std::size_t) { error = e; });
        run();
        EXPECT_FALSE(error) << error.message();
    }

    /// The next frame, or "closed <code> <reason>".
    std::string receive() {
        boost::beast::flat_buffer buffer;
        boost::beast::error_code error;
        boost::beast::get_lowest_layer(socket_).expires_after(kDeadline);
        socket_.async_read(buffer, [&](boost::beast::error_code e, std::size_t) { error = e; });
        run();
        if (error) {
            return "closed " + std::to_string(socket_.reason().code) + " " +
                   std::string(socket_.reason().reason.c_str());
        }
        return boost::beast::buffers_to_string(buffer.data());
    }

    std::string exchange(const std::string& frame) {
        send(frame);
        return receive();
    }

    /// Sends, and gives the messages of all frames up to the one that contains `last`, as one array.
    std::string exchangeUntil(const std::string& frame, std::string_view last) {
        std::string all = exchange(frame);
        while (socket_.is_open() && all.find(last) == std::string::npos) {
            all.back() = ',';
            all += receive().substr(1);
        }
        return all;
    }

    /// A handshake, whose reply is given back.
    std::string handshake(const std::string& fields = "") {
        const std::string reply =
            exchange(R"([{"channel":"/meta/handshake","id":"1","supportedConnectionTypes":["websocket"])" +
                     fields + "}]");
        simdjson::dom::parser parser;
        const simdjson::dom::element parsed = parser.parse(reply);
        if (std::string_view id; !parsed.at(0)["clientId"].get(id)) {
            clientId = id;
        }
        return reply;
    }

    std::string message(const std::string& channel, const std::string& fields) {
        return R"([{"channel":")" + channel + R"(","clientId":")" + clientId + R"(","id":"7")" + fields +
               "}]";
    }

    bool isOpen = false;
    boost::beast::websocket::response_type response;
    std::string clientId;

  private:
    void run() {
        context_.restart();
        context_.run();
    }

    boost::asio::io_context context_;
    boost::beast::websocket::stream<boost::beast::tcp_stream> socket_;
};

}  // namespace server::testing
