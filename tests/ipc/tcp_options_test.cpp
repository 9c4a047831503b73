// SPDX-License-Identifier: MIT
// TCP's keep-alive, adopted sockets, and the end of a channel.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <cstdio>
#include <memory>

#include "ipc/endpoints.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The four options in the order in which they are set.
std::vector<int> keepalive_of(const IPC& channel) {
  const int fd = channel.getFD();
  return {option(fd, SOL_SOCKET, SO_KEEPALIVE), option(fd, IPPROTO_TCP, TCP_KEEPCNT),
          option(fd, IPPROTO_TCP, TCP_KEEPIDLE), option(fd, IPPROTO_TCP, TCP_KEEPINTVL)};
}

class CountingTcp : public TCP {
 public:
  void close() override {
    ++closes;
    TCP::close();
  }
  int closes = 0;
};

}  // namespace

TEST(TcpKeepalive, SetsProbesIdleTimeAndInterval) {
  ConnectedTcp connected;
  EXPECT_TRUE(connected.channel.setKeepalive(3, 10));
  EXPECT_EQ(keepalive_of(connected.channel), (std::vector<int>{1, 3, 10, 10}));
}

TEST(TcpKeepalive, IsChangedByALaterCall) {
  ConnectedTcp connected;
  EXPECT_TRUE(connected.channel.setKeepalive(3, 10));
  EXPECT_TRUE(connected.channel.setKeepalive(5, 77));
  EXPECT_EQ(keepalive_of(connected.channel), (std::vector<int>{1, 5, 77, 77}));
}

TEST(TcpKeepalive, OfNoProbesIsOffAndRefused) {
  ConnectedTcp connected;
  std::vector<int> expected = keepalive_of(connected.channel);
  EXPECT_FALSE(connected.channel.setKeepalive(0, 10));
  expected[0] = 0;
  EXPECT_EQ(keepalive_of(connected.channel), expected);
}

TEST(TcpKeepalive, OfANegativeNumberOfProbesIsOffAndRefused) {
  ConnectedTcp connected;
  std::vector<int> expected = keepalive_of(connected.channel);
  EXPECT_FALSE(connected.channel.setKeepalive(-1, 10));
  expected[0] = 0;
  EXPECT_EQ(keepalive_of(connected.channel), expected);
}

TEST(TcpKeepalive, OfNoTimeIsRefusedWithTheProbesSet) {
  ConnectedTcp connected;
  std::vector<int> expected = keepalive_of(connected.channel);
  EXPECT_FALSE(connected.channel.setKeepalive(3, 0));
  expected[1] = 3;
  EXPECT_EQ(keepalive_of(connected.channel), expected);
}

TEST(TcpKeepalive, ComesOnAgainAfterItWasOff) {
  ConnectedTcp connected;
  EXPECT_FALSE(connected.channel.setKeepalive(0, 10));
  EXPECT_TRUE(connected.channel.setKeepalive(2, 5));
  EXPECT_EQ(keepalive_of(connected.channel), (std::vector<int>{1, 2, 5, 5}));
}

TEST(TcpKeepalive, IsRefusedWithoutASocketAndSaysNothing) {
  expect_logged([] {
    TCP channel;
    EXPECT_FALSE(channel.setKeepalive(3, 10));
    EXPECT_FALSE(channel.error());
    channel.connect(nullptr, 0, 0);
    std::puts("IPC:error|TCP::connect(): no hostname");
  });
}

TEST(TcpKeepalive, IsRefusedByASocketOfAnotherFamilyButOn) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.setKeepalive(3, 10));
  EXPECT_EQ(option(adopted.channel.getFD(), SOL_SOCKET, SO_KEEPALIVE), 1);
}

TEST(TcpKeepalive, GoesWithTheConnection) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port()));
  const std::vector<int> before = keepalive_of(channel);
  EXPECT_TRUE(channel.setKeepalive(3, 10));
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port()));
  EXPECT_EQ(keepalive_of(channel), before);
}

// ---- Adopted sockets

TEST(TcpAdoption, GivesAConnectionThatIsNoServer) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.is_server());
  EXPECT_TRUE(adopted.channel.write("x", 1));
  EXPECT_EQ(adopted.peer.receive(1), "x");
  adopted.peer.send("y");
  char byte = 0;
  EXPECT_EQ(adopted.channel.read(&byte, 1, 10000), 1);
}

TEST(TcpAdoption, TakesTheNumberAsItIs) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const RawPeer peer(ends[1]);
  TCP channel;
  EXPECT_TRUE(channel.setFD(ends[0]));
  EXPECT_EQ(channel.getFD(), ends[0]);
}

TEST(TcpAdoption, LeavesTheSocketsOptionsAlone) {
  RawListener listener("127.0.0.1", 0);
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  TCP channel;
  EXPECT_TRUE(channel.setFD(fd));
  EXPECT_EQ(option(fd, IPPROTO_TCP, TCP_NODELAY), 0);
  EXPECT_EQ(option(fd, SOL_SOCKET, SO_KEEPALIVE), 0);
  EXPECT_FALSE(blocks(fd));
  EXPECT_FALSE(closes_on_exec(fd));
}

TEST(TcpAdoption, LeavesTheAddressesEmpty) {
  ConnectedTcp connected;
  TCP channel;
  EXPECT_TRUE(channel.setFD(dup(connected.channel.getFD())));
  EXPECT_STREQ(channel.remote_addr(), "");
  EXPECT_STREQ(channel.local_addr(), "");
}

TEST(TcpAdoption, ClosesWhatTheObjectHad) {
  Adopted adopted;
  Adopted next;
  adopted.channel.setFD(dup(next.channel.getFD()));
  EXPECT_TRUE(adopted.peer.at_end());
}

TEST(TcpAdoption, EmptiesTheAddressesOfAConnection) {
  ConnectedTcp connected;
  Adopted other;
  EXPECT_TRUE(connected.channel.setFD(dup(other.channel.getFD())));
  EXPECT_STREQ(connected.channel.remote_addr(), "");
  EXPECT_STREQ(connected.channel.local_addr(), "");
}

TEST(TcpAdoption, EndsBeingAListener) {
  Listening listening;
  Adopted other;
  EXPECT_TRUE(listening.channel.setFD(dup(other.channel.getFD())));
  EXPECT_FALSE(listening.channel.is_server());
}

TEST(TcpAdoption, MakesTheSocketTheChannelsOwn) {
  int fd;
  {
    const Adopted adopted;
    fd = adopted.channel.getFD();
    EXPECT_TRUE(is_open(fd));
  }
  EXPECT_FALSE(is_open(fd));
}

TEST(TcpAdoption, OfNoSocketLeavesAClosedChannel) {
  TCP channel;
  EXPECT_TRUE(channel.setFD(-1));
  EXPECT_EQ(channel.getFD(), -1);
  EXPECT_FALSE(channel.error());
  EXPECT_FALSE(channel.write("x", 1));
  EXPECT_TRUE(channel.error());
}

TEST(TcpAdoption, OfNoSocketEndsTheConnectionThatWas) {
  ConnectedTcp connected;
  EXPECT_TRUE(connected.channel.setFD(-1));
  EXPECT_TRUE(connected.peer.at_end());
  EXPECT_EQ(connected.channel.getFD(), -1);
}

TEST(TcpAdoption, LogsNothing) {
  expect_logged([] {
    Adopted adopted;
    adopted.channel.setFD(-1);
    adopted.channel.connect(nullptr, 0, 0);
    std::puts("IPC:error|TCP::connect(): no hostname");
  });
}

// ---- The end

TEST(TcpClose, OfAListenerFreesItsPort) {
  Listening listening;
  const unsigned short port = port_in(listening.channel.local_addr());
  listening.channel.close();
  TCP channel;
  EXPECT_FALSE(channel.connect("127.0.0.1", port, 10000));
}

TEST(TcpClose, IsUndoneByConnecting) {
  const RawListener listener("127.0.0.1", 0);
  ConnectedTcp connected;
  connected.channel.close();
  ASSERT_TRUE(connected.channel.connect("127.0.0.1", listener.port()));
  EXPECT_TRUE(connected.channel.write("x", 1));
  EXPECT_EQ(listener.accept().receive(1), "x");
}

TEST(TcpDestruction, EndsTheConnection) {
  auto connected = std::make_unique<TCP>();
  const RawListener listener("127.0.0.1", 0);
  ASSERT_TRUE(connected->connect("127.0.0.1", listener.port()));
  const RawPeer peer = listener.accept();
  const int fd = connected->getFD();
  Session as_ipc = std::move(connected);
  as_ipc.reset();
  EXPECT_TRUE(peer.at_end());
  EXPECT_FALSE(is_open(fd));
}

TEST(TcpSetUp, ClosesThroughTheVirtualOperation) {
  const RawListener other("127.0.0.1", 0);
  CountingTcp channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", other.port()));
  EXPECT_EQ(channel.closes, 1);
  ASSERT_TRUE(channel.listen(0, "127.0.0.1"));
  EXPECT_EQ(channel.closes, 2);
  EXPECT_TRUE(channel.setFD(-1));
  EXPECT_EQ(channel.closes, 3);
}

TEST(TcpListener, IsNotWrittenTo) {
  Listening listening;
  EXPECT_FALSE(listening.channel.write("x", 1));
  EXPECT_TRUE(listening.channel.error());
  EXPECT_TRUE(listening.channel.is_server());
}
