// SPDX-License-Identifier: MIT
// Socket addresses as text.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <cstring>
#include <string>

#include "ipc/sockaddr_text.h"

using namespace zedipc;

namespace {

std::string text_of(const void* address) {
  char out[kSockaddrText];
  std::memset(out, 'x', sizeof out);
  sockaddr_text(out, static_cast<const sockaddr*>(address));
  return out;
}

std::string ipv4(const char* address, unsigned short port) {
  sockaddr_in in{};
  in.sin_family = AF_INET;
  in.sin_port = htons(port);
  EXPECT_EQ(inet_pton(AF_INET, address, &in.sin_addr), 1);
  return text_of(&in);
}

std::string ipv6(const char* address, unsigned short port) {
  sockaddr_in6 in{};
  in.sin6_family = AF_INET6;
  in.sin6_port = htons(port);
  EXPECT_EQ(inet_pton(AF_INET6, address, &in.sin6_addr), 1);
  return text_of(&in);
}

}  // namespace

TEST(SockaddrText, OfIpv4IsAddressAndPort) {
  EXPECT_EQ(ipv4("192.0.2.1", 5899), "192.0.2.1:5899");
  EXPECT_EQ(ipv4("0.0.0.0", 0), "0.0.0.0:0");
}

TEST(SockaddrText, HasRoomForTheLongestIpv4) {
  EXPECT_EQ(ipv4("255.255.255.255", 65535), "255.255.255.255:65535");
}

TEST(SockaddrText, OfIpv6HasBracketsAroundTheAddress) {
  EXPECT_EQ(ipv6("2001:db8::1", 5899), "[2001:db8::1]:5899");
  EXPECT_EQ(ipv6("::1", 40000), "[::1]:40000");
  EXPECT_EQ(ipv6("::", 0), "[::]:0");
}

TEST(SockaddrText, HasRoomForTheLongestIpv6) {
  EXPECT_EQ(ipv6("1111:2222:3333:4444:5555:6666:7777:8888", 65535),
            "[1111:2222:3333:4444:5555:6666:7777:8888]:65535");
}

TEST(SockaddrText, HasRoomForAnIpv4TailOfAnIpv6Address) {
  EXPECT_EQ(ipv6("::254.253.252.251", 65535), "[::254.253.252.251]:65535");
}

TEST(SockaddrText, OfAMappedAddressIsPlainIpv4) {
  EXPECT_EQ(ipv6("::ffff:127.0.0.1", 40000), "127.0.0.1:40000");
  EXPECT_EQ(ipv6("::ffff:255.255.255.255", 65535), "255.255.255.255:65535");
}

TEST(SockaddrText, TakesOnlyTheExactPrefixForAMappedAddress) {
  EXPECT_EQ(ipv6("::fffe:7f00:1", 1), "[::fffe:7f00:1]:1");
  EXPECT_EQ(ipv6("0:0:0:0:1:ffff:7f00:1", 1), "[::1:ffff:7f00:1]:1");
  EXPECT_EQ(ipv6("1::ffff:7f00:1", 1), "[1::ffff:7f00:1]:1");
}

TEST(SockaddrText, SwapsThePortFromNetworkOrder) {
  sockaddr_in in{};
  in.sin_family = AF_INET;
  const unsigned char port[2] = {0x12, 0x34};
  std::memcpy(&in.sin_port, port, sizeof port);
  EXPECT_EQ(text_of(&in), "0.0.0.0:4660");
}

TEST(SockaddrText, OfAnotherFamilyIsEmpty) {
  sockaddr_un un{};
  un.sun_family = AF_UNIX;
  std::strcpy(un.sun_path, "file");
  EXPECT_EQ(text_of(&un), "");
  sockaddr_storage none{};
  none.ss_family = AF_UNSPEC;
  EXPECT_EQ(text_of(&none), "");
}

TEST(SockaddrText, WithoutAFieldDoesNothing) {
  sockaddr_in in{};
  in.sin_family = AF_INET;
  sockaddr_text(nullptr, reinterpret_cast<const sockaddr*>(&in));
  EXPECT_EQ(in.sin_family, AF_INET);
}
