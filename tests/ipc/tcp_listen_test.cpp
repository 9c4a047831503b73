// SPDX-License-Identifier: MIT
// TCP::listen.
#include <gtest/gtest.h>
#include <netdb.h>
#include <zedipc/tcp.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

#include "ipc/endpoints.h"
#include "ipc/setup_calls.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// An address that no machine has.
const char kForeign[] = "192.0.2.1";

// The line about a listener that `node` and the port 0 were asked for.
void print_listening(const IPC& listener, const char* node) {
  std::printf("IPC:debug|TCP::listen(): listening on port 0 (ip=%s), fd=%d\n", node,
              listener.getFD());
}

int system_backlog_limit() {
  std::ifstream in("/proc/sys/net/core/somaxconn");
  int limit = 128;
  in >> limit;
  return limit;
}

}  // namespace

TEST(TcpListen, ShowsThePortThatTheSystemChose) {
  const Listening listening;
  const std::string address = listening.channel.local_addr();
  EXPECT_EQ(address, loopback_text(listening.channel.getFD()));
  EXPECT_NE(port_in(address), 0);
}

TEST(TcpListen, BindsThePortThatItIsGiven) {
  TCP listener;
  unsigned short port;
  {
    const RawListener free_port("127.0.0.1", 0);
    port = free_port.port();
  }
  ASSERT_TRUE(listener.listen(port, "127.0.0.1"));
  EXPECT_EQ(listener.local_addr(), "127.0.0.1:" + std::to_string(port));
}

TEST(TcpListen, MakesAServerWithoutFlagsOrPeer) {
  Listening listening;
  EXPECT_TRUE(listening.channel.is_server());
  EXPECT_FALSE(listening.channel.eof());
  EXPECT_FALSE(listening.channel.error());
  EXPECT_STREQ(listening.channel.remote_addr(), "");
}

TEST(TcpListen, ClosesItsSocketOnExec) {
  const Listening listening;
  EXPECT_TRUE(closes_on_exec(listening.channel.getFD()));
}

TEST(TcpListen, MayTakeAnAddressThatWasJustInUse) {
  const Listening listening;
  EXPECT_EQ(option(listening.channel.getFD(), SOL_SOCKET, SO_REUSEADDR), 1);
}

TEST(TcpListen, HasAQueueOf128) {
  const Listening listening;
  tcp_info info{};
  socklen_t length = sizeof info;
  ASSERT_EQ(getsockopt(listening.channel.getFD(), IPPROTO_TCP, TCP_INFO, &info, &length), 0);
  // For a listening socket this field is the queue's length.
  EXPECT_EQ(info.tcpi_sacked, static_cast<unsigned>(std::min(128, system_backlog_limit())));
}

TEST(TcpListen, LogsPortAddressAndSocket) {
  expect_logged([] {
    const Listening listening;
    print_listening(listening.channel, "127.0.0.1");
  });
}

TEST(TcpListen, LooksTheNodeUpForStreamsOfAnyFamily) {
  const SetupCalls calls;
  TCP listener;
  ASSERT_TRUE(listener.listen(0, "127.0.0.1"));
  ASSERT_EQ(calls.lookups().size(), 1U);
  const Lookup lookup = calls.lookups()[0];
  EXPECT_EQ(lookup.question, "127.0.0.1|0");
  EXPECT_EQ(lookup.flags, AI_PASSIVE);
  EXPECT_EQ(lookup.family, AF_UNSPEC);
  EXPECT_EQ(lookup.socktype, SOCK_STREAM);
  EXPECT_EQ(lookup.protocol, 0);
}

TEST(TcpListen, TakesThePortAsAnUnsignedNumber) {
  SetupCalls calls;
  calls.fail_lookups(EAI_NONAME);
  TCP listener;
  EXPECT_FALSE(listener.listen(65535, "host"));
  ASSERT_EQ(calls.lookups().size(), 1U);
  EXPECT_EQ(calls.lookups()[0].question, "host|65535");
}

// ---- All addresses

TEST(TcpListenAnywhere, LooksUpTheIpv6Wildcard) {
  SetupCalls calls;
  calls.fail_lookups(EAI_NONAME);
  TCP listener;
  EXPECT_FALSE(listener.listen(5, nullptr));
  ASSERT_EQ(calls.lookups().size(), 1U);
  const Lookup lookup = calls.lookups()[0];
  EXPECT_EQ(lookup.question, "(null)|5");
  EXPECT_EQ(lookup.flags, AI_PASSIVE);
  EXPECT_EQ(lookup.family, AF_INET6);
  EXPECT_EQ(lookup.socktype, SOCK_STREAM);
}

TEST(TcpListenAnywhere, IsLoggedAsAny) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  expect_logged([] {
    TCP listener;
    EXPECT_TRUE(listener.listen(0, nullptr));
    print_listening(listener, "any");
  });
}

TEST(TcpListenAnywhere, ShowsTheIpv6Wildcard) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  TCP listener;
  ASSERT_TRUE(listener.listen(0, nullptr));
  const std::string address = listener.local_addr();
  EXPECT_EQ(address, "[::]:" + std::to_string(port_in(address)));
}

TEST(TcpListenAnywhere, ServesIpv4AndIpv6OnOneSocket) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  TCP listener;
  ASSERT_TRUE(listener.listen(0, nullptr));
  const RawPeer ipv4 = RawPeer::connect("127.0.0.1", port_in(listener.local_addr()));
  const Session first(listener.accept(10000));
  const RawPeer ipv6 = connect_ipv6(port_in(listener.local_addr()));
  const Session second(listener.accept(10000));
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(first->write("4", 1));
  EXPECT_TRUE(second->write("6", 1));
  EXPECT_EQ(ipv4.receive(1), "4");
  EXPECT_EQ(ipv6.receive(1), "6");
}

TEST(TcpListenAnywhere, ShowsIpv4PeersInPlainIpv4Form) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  TCP listener;
  ASSERT_TRUE(listener.listen(0, nullptr));
  const std::string port = std::to_string(port_in(listener.local_addr()));
  const RawPeer peer = RawPeer::connect("127.0.0.1", port_in(listener.local_addr()));
  const Session session(listener.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->remote_addr(), loopback_text(peer.fd()));
  EXPECT_EQ(session->local_addr(), "127.0.0.1:" + port);
}

// ---- Several addresses of one name

TEST(TcpListenNames, MoveOnToAnAddressThatCanBeBound) {
  expect_logged([] {
    SetupCalls calls;
    calls.resolve_to({{kForeign, 0}, {"127.0.0.1", 0}});
    TCP listener;
    EXPECT_TRUE(listener.listen(0, "here"));
    EXPECT_EQ(listener.local_addr(), loopback_text(listener.getFD()));
    std::printf("IPC:error|TCP::listen() bind() failed for here:0, close fd=%d\n",
                listener.getFD());
    print_listening(listener, "here");
  });
}

TEST(TcpListenNames, StopAtTheFirstAddressThatCanBeBound) {
  expect_logged([] {
    SetupCalls calls;
    calls.resolve_to({{"127.0.0.1", 0}, {kForeign, 0}});
    TCP listener;
    EXPECT_TRUE(listener.listen(0, "here"));
    print_listening(listener, "here");
  });
}

TEST(TcpListenNames, FailWithoutAnAddressThatCanBeBound) {
  expect_logged([] {
    SetupCalls calls;
    calls.resolve_to({{kForeign, 0}, {kForeign, 0}});
    TCP listener;
    const int fd = next_descriptor();
    EXPECT_FALSE(listener.listen(12, "here"));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_EQ(next_descriptor(), fd);
    std::printf("IPC:error|TCP::listen() bind() failed for here:12, close fd=%d\n", fd);
    std::printf("IPC:error|TCP::listen() bind() failed for here:12, close fd=%d\n", fd);
    std::puts("IPC:error|TCP::listen() failed");
  });
}

TEST(TcpListenNames, MoveOnWithoutASocketToo) {
  expect_logged([] {
    SetupCalls calls;
    calls.resolve_to({{"127.0.0.1", 0}, {"127.0.0.1", 0}});
    TCP listener;
    show_to_sanitizer(listener);
    {
      const NoDescriptors full;
      EXPECT_FALSE(listener.listen(0, "here"));
    }
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.error());
    std::puts("IPC:error|TCP::listen() socket() failed");
    std::puts("IPC:error|TCP::listen() socket() failed");
    std::puts("IPC:error|TCP::listen() failed");
  });
}

// ---- Failures

TEST(TcpListenFailure, ForAPortInUseLeavesTheChannelClosed) {
  expect_logged([] {
    const RawListener owner("127.0.0.1", 0);
    TCP listener;
    const int fd = next_descriptor();
    EXPECT_FALSE(listener.listen(owner.port(), "127.0.0.1"));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_FALSE(listener.eof());
    EXPECT_FALSE(listener.error());
    EXPECT_STREQ(listener.local_addr(), "");
    std::printf("IPC:error|TCP::listen() bind() failed for 127.0.0.1:%d, close fd=%d\n",
                owner.port(), fd);
    std::puts("IPC:error|TCP::listen() failed");
  });
}

TEST(TcpListenFailure, OfALookupLeavesTheChannelClosed) {
  expect_logged([] {
    SetupCalls calls;
    calls.fail_lookups(EAI_NONAME);
    TCP listener;
    EXPECT_FALSE(listener.listen(65535, "nowhere"));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_FALSE(listener.error());
    std::printf("IPC:error|TCP::listen() getaddrinfo() for nowhere:65535 failed with error %d\n",
                EAI_NONAME);
  });
}

TEST(TcpListenFailure, OfALookupForAllAddressesShowsAnEmptyNode) {
  expect_logged([] {
    SetupCalls calls;
    calls.fail_lookups(EAI_FAIL);
    TCP listener;
    EXPECT_FALSE(listener.listen(7, nullptr));
    std::printf("IPC:error|TCP::listen() getaddrinfo() for :7 failed with error %d\n", EAI_FAIL);
  });
}

TEST(TcpListenFailure, OfBindForAllAddressesShowsAnEmptyNode) {
  expect_logged([] {
    SetupCalls calls;
    calls.resolve_to({{"127.0.0.1", 0}});
    calls.fail_bind(EADDRINUSE);
    TCP listener;
    const int fd = next_descriptor();
    EXPECT_FALSE(listener.listen(7, nullptr));
    std::printf("IPC:error|TCP::listen() bind() failed for :7, close fd=%d\n", fd);
    std::puts("IPC:error|TCP::listen() failed");
  });
}

TEST(TcpListenFailure, OfTheLastStepLeavesTheChannelClosed) {
  expect_logged([] {
    SetupCalls calls;
    calls.fail_listen(EADDRINUSE);
    TCP listener;
    const int fd = next_descriptor();
    EXPECT_FALSE(listener.listen(0, "127.0.0.1"));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_FALSE(listener.error());
    EXPECT_STREQ(listener.local_addr(), "");
    EXPECT_FALSE(is_open(fd));
    std::printf("IPC:error|TCP::listen(): listen() failed (fd=%d)\n", fd);
  });
}

TEST(TcpListenFailure, DoesNotHinderALaterCall) {
  const RawListener owner("127.0.0.1", 0);
  TCP listener;
  EXPECT_FALSE(listener.listen(owner.port(), "127.0.0.1"));
  ASSERT_TRUE(listener.listen(0, "127.0.0.1"));
  const RawPeer peer = RawPeer::connect("127.0.0.1", port_in(listener.local_addr()));
  const Session session(listener.accept(10000));
  EXPECT_NE(session, nullptr);
}

TEST(TcpListenFailure, EndsWhatTheObjectListenedOnBefore) {
  const RawListener owner("127.0.0.1", 0);
  Listening listening;
  EXPECT_FALSE(listening.channel.listen(owner.port(), "127.0.0.1"));
  EXPECT_FALSE(listening.channel.is_server());
  EXPECT_EQ(listening.channel.getFD(), -1);
  EXPECT_STREQ(listening.channel.local_addr(), "");
}

TEST(TcpListen, HasNoAddressTextIfTheSystemDoesNotTell) {
  SetupCalls calls;
  calls.fail_getsockname(ENOBUFS);
  Listening listening;
  EXPECT_TRUE(listening.channel.is_server());
  EXPECT_STREQ(listening.channel.local_addr(), "");
}

// ---- On an object in use

TEST(TcpListenAgain, FreesTheFirstPort) {
  Listening listening;
  const unsigned short first = port_in(listening.channel.local_addr());
  ASSERT_TRUE(listening.channel.listen(0, "127.0.0.1"));
  TCP other;
  EXPECT_TRUE(other.listen(first, "127.0.0.1"));
}

TEST(TcpListenAgain, WorksOnTheSamePort) {
  Listening listening;
  const unsigned short port = port_in(listening.channel.local_addr());
  ASSERT_TRUE(listening.channel.listen(port, "127.0.0.1"));
  const RawPeer peer = RawPeer::connect("127.0.0.1", port);
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(session, nullptr);
}

TEST(TcpListenAgain, WorksOnThePortOfASessionThatTheListenerEnded) {
  Listening listening;
  const unsigned short port = port_in(listening.channel.local_addr());
  RawPeer peer = RawPeer::connect("127.0.0.1", port);
  delete listening.channel.accept(10000);
  EXPECT_TRUE(peer.at_end());
  peer.close();
  EXPECT_TRUE(listening.channel.listen(port, "127.0.0.1"));
}

TEST(TcpListen, ClosesAConnectionThatTheObjectHad) {
  ConnectedTcp connected;
  ASSERT_TRUE(connected.channel.listen(0, "127.0.0.1"));
  EXPECT_TRUE(connected.peer.at_end());
  EXPECT_STREQ(connected.channel.remote_addr(), "");
}
