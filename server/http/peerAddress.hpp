#pragma once

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <string>

namespace server::http {

/// What a peer is called where limits count by address: "192.0.2.1", also when IPv6 maps it; the network of
/// 64 bits of another IPv6 address, "2001:db8:1:2::/64", since one host may have all the addresses in it;
/// "::1" as it stands.
std::string peerAddressOf(const boost::asio::ip::address& address);

/// That of the peer of a connection, or "unknown" when it is gone already.
std::string peerAddressOf(const boost::asio::ip::tcp::socket& socket);

}  // namespace server::http
