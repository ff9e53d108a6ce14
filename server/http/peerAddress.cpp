#include "server/http/peerAddress.hpp"

#include <algorithm>

namespace server::http {

namespace ip = boost::asio::ip;

std::string peerAddressOf(const ip::address& address) {
    if (address.is_v4()) {
        return address.to_string();
    }
    const ip::address_v6 v6 = address.to_v6();
    if (v6.is_v4_mapped()) {
        return ip::make_address_v4(ip::v4_mapped, v6).to_string();
    }
    if (v6.is_loopback()) {
        return "::1";
    }
    auto bytes = v6.to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), static_cast<unsigned char>(0));
    return ip::address_v6(bytes).to_string() + "/64";
}

std::string peerAddressOf(const ip::tcp::socket& socket) {
    boost::system::error_code error;
    const auto endpoint = socket.remote_endpoint(error);
    return error ? "unknown" : peerAddressOf(endpoint.address());
}

}  // namespace server::http
