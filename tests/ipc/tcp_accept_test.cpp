// SPDX-License-Identifier: MIT
// TCP::accept.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <cstdio>
#include <string>

#include "ipc/endpoints.h"
#include "ipc/stopwatch.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

struct AcceptedTcp {
  AcceptedTcp() { EXPECT_NE(session, nullptr); }

  TCP listener;
  const bool listening = listener.listen(0, "127.0.0.1");
  RawPeer peer = RawPeer::connect("127.0.0.1", port_in(listener.local_addr()));
  Session session{listener.accept(10000)};
};

RawPeer connect_to(const Listening& listening) {
  return RawPeer::connect("127.0.0.1", port_in(listening.channel.local_addr()));
}

void print_listening(const IPC& listener) {
  std::printf("IPC:debug|TCP::listen(): listening on port 0 (ip=127.0.0.1), fd=%d\n",
              listener.getFD());
}

}  // namespace

TEST(TcpAccept, GivesATcpChannel) {
  const AcceptedTcp accepted;
  EXPECT_NE(dynamic_cast<TCP*>(accepted.session.get()), nullptr);
}

TEST(TcpAccept, GivesAConnectionThatIsNoServer) {
  const AcceptedTcp accepted;
  EXPECT_FALSE(accepted.session->is_server());
  EXPECT_FALSE(accepted.session->eof());
  EXPECT_FALSE(accepted.session->error());
  EXPECT_TRUE(accepted.session->write("x", 1));
  EXPECT_EQ(accepted.peer.receive(1), "x");
}

TEST(TcpAccept, ShowsBothAddresses) {
  const AcceptedTcp accepted;
  EXPECT_EQ(accepted.session->remote_addr(), loopback_text(accepted.peer.fd()));
  EXPECT_STREQ(accepted.session->local_addr(), accepted.listener.local_addr());
}

TEST(TcpAccept, MakesSessionsThatSendWithoutDelayAndKeepAlive) {
  const AcceptedTcp accepted;
  EXPECT_EQ(option(accepted.session->getFD(), IPPROTO_TCP, TCP_NODELAY), 1);
  EXPECT_EQ(option(accepted.session->getFD(), SOL_SOCKET, SO_KEEPALIVE), 1);
}

TEST(TcpAccept, MakesSessionsThatBlockAndCloseOnExec) {
  const AcceptedTcp accepted;
  EXPECT_TRUE(blocks(accepted.session->getFD()));
  EXPECT_TRUE(closes_on_exec(accepted.session->getFD()));
}

TEST(TcpAccept, LeavesTheListenerListening) {
  Listening listening;
  const RawPeer first = connect_to(listening);
  const Session one(listening.channel.accept(10000));
  const RawPeer second = connect_to(listening);
  const Session other(listening.channel.accept(10000));
  ASSERT_NE(one, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(listening.channel.is_server());
  EXPECT_TRUE(other->write("2", 1));
  EXPECT_TRUE(one->write("1", 1));
  EXPECT_EQ(first.receive(1), "1");
  EXPECT_EQ(second.receive(1), "2");
}

TEST(TcpAccept, LogsNothingForASession) {
  expect_logged([] {
    const AcceptedTcp accepted;
    print_listening(accepted.listener);
  });
}

TEST(TcpAccept, WaitsForAPeerWithoutLimitForANegativeTimeout) {
  Listening listening;
  Session session;
  Background accepting([&] { session.reset(listening.channel.accept(-1)); });
  ASSERT_TRUE(accepting.blocks_in(kInPoll));
  const RawPeer peer = connect_to(listening);
  accepting.join();
  EXPECT_NE(session, nullptr);
}

TEST(TcpAccept, WaitsOnAfterASignal) {
  Listening listening;
  Session session;
  Background accepting([&] { session.reset(listening.channel.accept(-1)); });
  ASSERT_TRUE(accepting.blocks_in(kInPoll));
  accepting.interrupt();
  ASSERT_TRUE(accepting.blocks_in(kInPoll));
  const RawPeer peer = connect_to(listening);
  accepting.join();
  EXPECT_NE(session, nullptr);
}

TEST(TcpAccept, GivesNobodyAfterItsTimeoutAndLogsNothing) {
  expect_logged([] {
    Listening listening;
    const Stopwatch watch;
    EXPECT_EQ(listening.channel.accept(120), nullptr);
    EXPECT_GE(watch.msec(), 120);
    EXPECT_TRUE(listening.channel.is_server());
    EXPECT_FALSE(listening.channel.error());
    print_listening(listening.channel);
  });
}

TEST(TcpAccept, GivesNobodyAtOnceForATimeoutOfZeroAndLogsNothing) {
  expect_logged([] {
    Listening listening;
    const Stopwatch watch;
    EXPECT_EQ(listening.channel.accept(0), nullptr);
    EXPECT_LT(watch.msec(), 5000);
    print_listening(listening.channel);
  });
}

TEST(TcpAccept, GivesNobodyOnAClosedChannelAndLogsNothing) {
  expect_logged([] {
    TCP channel;
    EXPECT_EQ(channel.accept(-1), nullptr);
    EXPECT_FALSE(channel.error());
    channel.connect(nullptr, 0, 0);
    std::puts("IPC:error|TCP::connect(): no hostname");
  });
}

TEST(TcpAccept, GivesNobodyOnAConnectionAndLogsNothing) {
  expect_logged([] {
    Adopted adopted;
    adopted.peer.send("input");
    EXPECT_EQ(adopted.channel.accept(-1), nullptr);
    EXPECT_FALSE(adopted.channel.error());
    adopted.channel.connect(nullptr, 0, 0);
    std::puts("IPC:error|TCP::connect(): no hostname");
  });
}

TEST(TcpAccept, GivesNobodyOnAListeningSocketThatWasAdopted) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(listen(fd, 1), 0);
  TCP channel;
  channel.setFD(fd);
  EXPECT_EQ(channel.accept(-1), nullptr);
}

TEST(TcpAccept, ForWantOfADescriptorFailsAndStaysListening) {
  expect_logged([] {
    Listening listening;
    const RawPeer peer = connect_to(listening);
    {
      const NoDescriptors full;
      EXPECT_EQ(listening.channel.accept(10000), nullptr);
    }
    EXPECT_TRUE(listening.channel.is_server());
    EXPECT_FALSE(listening.channel.error());
    print_listening(listening.channel);
    std::puts("IPC:error|TCP::accept(): accept() failed");
  });
}

TEST(TcpAccept, TakesThePeerLaterThatItHadNoDescriptorFor) {
  Listening listening;
  const RawPeer peer = connect_to(listening);
  {
    const NoDescriptors full;
    EXPECT_EQ(listening.channel.accept(10000), nullptr);
  }
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(session, nullptr);
}

TEST(TcpSession, OutlivesItsListener) {
  AcceptedTcp accepted;
  accepted.listener.close();
  EXPECT_TRUE(accepted.session->write("x", 1));
  EXPECT_EQ(accepted.peer.receive(1), "x");
}
