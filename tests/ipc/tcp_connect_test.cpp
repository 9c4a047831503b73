// SPDX-License-Identifier: MIT
// TCP::connect: connections, their options and addresses, and what keeps one from being
// made. How the host's text is read stands in tcp_host_test.cpp.
#include <gtest/gtest.h>
#include <netdb.h>
#include <zedipc/tcp.h>

#include <cstdio>
#include <string>

#include "ipc/endpoints.h"
#include "ipc/setup_calls.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

void print_connected(const IPC& channel, const char* host, unsigned short port) {
  std::printf("IPC:debug|TCP::connect(): connected to %s:%d (fd=%d)\n", host, port,
              channel.getFD());
}

void print_failed(const char* host, unsigned short port) {
  std::printf("IPC:error|TCP::connect(): failed to connect to %s:%d\n", host, port);
}

}  // namespace

class TcpConnect : public ::testing::TestWithParam<int> {};

// Without a timeout and with one.
INSTANTIATE_TEST_SUITE_P(With, TcpConnect, ::testing::Values(-1, 10000), [](const auto& test) {
  return test.param < 0 ? "out_timeout" : "_timeout";
});

TEST_P(TcpConnect, MakesAConnectionThatCarriesBytesBothWays) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
  const RawPeer peer = listener.accept();
  EXPECT_TRUE(channel.write("abc", 3));
  EXPECT_EQ(peer.receive(3), "abc");
  peer.send("x");
  char byte = 0;
  EXPECT_EQ(channel.read(&byte, 1, 10000), 1);
  EXPECT_EQ(byte, 'x');
}

TEST_P(TcpConnect, GivesABlockingSocket) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
  EXPECT_TRUE(blocks(channel.getFD()));
}

TEST_P(TcpConnect, ClosesItsSocketOnExec) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
  EXPECT_TRUE(closes_on_exec(channel.getFD()));
}

TEST_P(TcpConnect, SendsWithoutDelayAndKeepsAlive) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
  EXPECT_EQ(option(channel.getFD(), IPPROTO_TCP, TCP_NODELAY), 1);
  EXPECT_EQ(option(channel.getFD(), SOL_SOCKET, SO_KEEPALIVE), 1);
}

TEST_P(TcpConnect, ShowsBothAddresses) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
  EXPECT_EQ(channel.remote_addr(), "127.0.0.1:" + std::to_string(listener.port()));
  EXPECT_EQ(channel.local_addr(), loopback_text(channel.getFD()));
}

TEST_P(TcpConnect, MakesNoServerAndSetsNoFlag) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
  EXPECT_FALSE(channel.is_server());
  EXPECT_FALSE(channel.eof());
  EXPECT_FALSE(channel.error());
}

TEST_P(TcpConnect, LogsHostPortAndSocket) {
  expect_logged([] {
    const RawListener listener("127.0.0.1", 0);
    TCP channel;
    EXPECT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
    print_connected(channel, "127.0.0.1", listener.port());
  });
}

TEST_P(TcpConnect, FailsWhereNobodyListens) {
  expect_logged([] {
    const ClosedPort closed;
    TCP channel;
    const int fd = next_descriptor();
    EXPECT_FALSE(channel.connect("127.0.0.1", closed.port(), GetParam()));
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_EQ(next_descriptor(), fd);
    EXPECT_FALSE(channel.eof());
    EXPECT_FALSE(channel.error());
    EXPECT_STREQ(channel.remote_addr(), "");
    EXPECT_STREQ(channel.local_addr(), "");
    print_failed("127.0.0.1", closed.port());
  });
}

TEST_P(TcpConnect, TriesTheAddressesOfANameInTurn) {
  const ClosedPort closed;
  const RawListener first("127.0.0.1", 0);
  const RawListener second("127.0.0.1", 0);
  SetupCalls calls;
  calls.resolve_to(
      {{"127.0.0.1", closed.port()}, {"127.0.0.1", first.port()}, {"127.0.0.1", second.port()}});
  TCP channel;
  ASSERT_TRUE(channel.connect("name", 9, GetParam()));
  EXPECT_EQ(channel.remote_addr(), "127.0.0.1:" + std::to_string(first.port()));
  EXPECT_FALSE(second.accept(50).connected());
}

TEST_P(TcpConnect, LogsOneLineForAllAddressesOfAName) {
  expect_logged([] {
    const ClosedPort first;
    const ClosedPort second;
    SetupCalls calls;
    calls.resolve_to({{"127.0.0.1", first.port()}, {"127.0.0.1", second.port()}});
    TCP channel;
    EXPECT_FALSE(channel.connect("name", 9, GetParam()));
    print_failed("name", 9);
  });
}

TEST_P(TcpConnect, FailsForWantOfADescriptorWithoutALineOfItsOwn) {
  expect_logged([] {
    const RawListener listener("127.0.0.1", 0);
    TCP channel;
    show_to_sanitizer(channel);
    {
      const NoDescriptors full;
      EXPECT_FALSE(channel.connect("127.0.0.1", listener.port(), GetParam()));
    }
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_FALSE(channel.error());
    print_failed("127.0.0.1", listener.port());
  });
}

TEST_P(TcpConnect, CanBeTriedAgainAfterAFailure) {
  const ClosedPort closed;
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  EXPECT_FALSE(channel.connect("127.0.0.1", closed.port(), GetParam()));
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port(), GetParam()));
  EXPECT_TRUE(channel.write("x", 1));
  EXPECT_EQ(listener.accept().receive(1), "x");
}

// ---- Addresses

TEST(TcpConnectAddress, OfIpv6StandsInBrackets) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  TCP listener;
  TCP channel;
  ASSERT_TRUE(listener.listen(0, "::1"));
  const std::string port = std::to_string(port_in(listener.local_addr()));
  EXPECT_EQ(listener.local_addr(), "[::1]:" + port);
  ASSERT_TRUE(channel.connect("::1", port_in(listener.local_addr()), 10000));
  const Session session(listener.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(channel.remote_addr(), "[::1]:" + port);
  EXPECT_EQ(session->local_addr(), "[::1]:" + port);
  EXPECT_EQ(std::string(session->remote_addr()), channel.local_addr());
}

TEST(TcpConnectAddress, OfAMappedAddressIsPlainIpv4) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("::ffff:127.0.0.1", listener.port(), 10000));
  EXPECT_EQ(channel.remote_addr(), "127.0.0.1:" + std::to_string(listener.port()));
  EXPECT_EQ(channel.local_addr(), "127.0.0.1:" + std::to_string(port_in(channel.local_addr())));
}

TEST(TcpConnectAddress, OfTheOwnEndIsEmptyIfTheSystemDoesNotTell) {
  const RawListener listener("127.0.0.1", 0);
  const unsigned short port = listener.port();
  SetupCalls calls;
  calls.fail_getsockname(ENOBUFS);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", port, 10000));
  EXPECT_STREQ(channel.local_addr(), "");
  EXPECT_STRNE(channel.remote_addr(), "");
}

// ---- On an object in use

TEST(TcpConnectAgain, LeavesTheFirstListenerForTheSecond) {
  const RawListener first("127.0.0.1", 0);
  const RawListener second("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", first.port()));
  const RawPeer left = first.accept();
  ASSERT_TRUE(channel.connect("127.0.0.1", second.port()));
  EXPECT_TRUE(left.at_end());
  EXPECT_TRUE(channel.write("x", 1));
  EXPECT_EQ(second.accept().receive(1), "x");
  EXPECT_EQ(channel.remote_addr(), "127.0.0.1:" + std::to_string(second.port()));
  EXPECT_EQ(channel.local_addr(), loopback_text(channel.getFD()));
}

TEST(TcpConnectAgain, ClearsTheFlagsOfTheFirstConnection) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port()));
  listener.accept().close();
  EXPECT_TRUE(channel.poll_in(10000));
  ASSERT_TRUE(channel.eof());
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port()));
  EXPECT_FALSE(channel.eof());
}

TEST(TcpConnectAgain, WithoutSuccessEndsTheFirstConnection) {
  ConnectedTcp connected;
  const ClosedPort closed;
  EXPECT_FALSE(connected.channel.connect("127.0.0.1", closed.port()));
  EXPECT_TRUE(connected.peer.at_end());
  EXPECT_EQ(connected.channel.getFD(), -1);
  EXPECT_STREQ(connected.channel.remote_addr(), "");
  EXPECT_STREQ(connected.channel.local_addr(), "");
}

TEST(TcpConnectAgain, EndsBeingAListener) {
  const RawListener other("127.0.0.1", 0);
  Listening listening;
  ASSERT_TRUE(listening.channel.connect("127.0.0.1", other.port()));
  EXPECT_FALSE(listening.channel.is_server());
}

TEST(TcpConnectFailure, KeepsAFlagThatWasSetWithoutASocket) {
  const ClosedPort closed;
  TCP channel;
  EXPECT_FALSE(channel.write("x", 1));
  EXPECT_FALSE(channel.connect("127.0.0.1", closed.port()));
  EXPECT_TRUE(channel.error());
}
