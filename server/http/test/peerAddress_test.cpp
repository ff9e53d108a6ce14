#include "server/http/peerAddress.hpp"

#include <gtest/gtest.h>

namespace server::http {
namespace {

std::string nameOf(const char* address) {
    return peerAddressOf(boost::asio::ip::make_address(address));
}

TEST(PeerAddress, IsTheSameForAnIpv4AddressAndItsMappedForm) {
    EXPECT_EQ(nameOf("192.0.2.1"), "192.0.2.1");
    EXPECT_EQ(nameOf("::ffff:192.0.2.1"), "192.0.2.1");
    EXPECT_NE(nameOf("192.0.2.1"), nameOf("192.0.2.2"));
}

TEST(PeerAddress, IsTheNetworkOfAnIpv6Address) {
    EXPECT_EQ(nameOf("2001:db8:1:2:3:4:5:6"), "2001:db8:1:2::/64");
    EXPECT_EQ(nameOf("2001:db8:1:2::1"), nameOf("2001:db8:1:2:ffff::"));
    EXPECT_NE(nameOf("2001:db8:1:2::1"), nameOf("2001:db8:1:3::1"));
    EXPECT_EQ(nameOf("fe80::1%2"), "fe80::/64");
    EXPECT_EQ(nameOf("::1"), "::1");
}

TEST(PeerAddress, OfAConnectionThatIsGoneIsUnknown) {
    boost::asio::io_context context;
    EXPECT_EQ(peerAddressOf(boost::asio::ip::tcp::socket(context)), "unknown");
}

}  // namespace
}  // namespace server::http
