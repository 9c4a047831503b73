// SPDX-License-Identifier: MIT
// Pipe::accept.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>

#include <cstdio>

#include "ipc/endpoints.h"
#include "ipc/stopwatch.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(PipeAccept, GivesAPipe) {
  ListeningPipe listening;
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(dynamic_cast<Pipe*>(session.get()), nullptr);
}

TEST(PipeAccept, GivesAConnectionThatIsNoServer) {
  ListeningPipe listening;
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_FALSE(session->is_server());
  EXPECT_FALSE(session->eof());
  EXPECT_FALSE(session->error());
  EXPECT_TRUE(session->write("x", 1));
  EXPECT_EQ(peer.receive(1), "x");
}

TEST(PipeAccept, LeavesTheListenerListening) {
  ListeningPipe listening;
  const RawPeer first = RawPeer::connect_pipe(listening.name);
  const Session one(listening.channel.accept(10000));
  const RawPeer second = RawPeer::connect_pipe(listening.name);
  const Session other(listening.channel.accept(10000));
  ASSERT_NE(one, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(listening.channel.is_server());
  EXPECT_TRUE(one->write("1", 1));
  EXPECT_TRUE(other->write("2", 1));
  EXPECT_EQ(first.receive(1), "1");
  EXPECT_EQ(second.receive(1), "2");
}

TEST(PipeAccept, MakesSessionsThatCloseOnExec) {
  ListeningPipe listening;
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(closes_on_exec(session->getFD()));
}

TEST(PipeAccept, LogsTheNameAndThePeersCredentials) {
  expect_logged([] {
    ListeningPipe listening;
    const RawPeer peer = RawPeer::connect_pipe(listening.name);
    const Session session(listening.channel.accept(10000));
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::printf(
        "IPC:debug|Pipe::accept(): accepted new session on pipe %s (afd=%d) from pid=%d "
        "(uid=%u,gid=%u)!\n",
        listening.name.c_str(), session->getFD(), getpid(), geteuid(), getegid());
  });
}

TEST(PipeAccept, WaitsForAPeerWithoutLimitForANegativeTimeout) {
  ListeningPipe listening;
  Session session;
  Background accepting([&] { session.reset(listening.channel.accept(-1)); });
  ASSERT_TRUE(accepting.blocks_in(kInPoll));
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  accepting.join();
  EXPECT_NE(session, nullptr);
}

TEST(PipeAccept, WaitsOnAfterASignal) {
  ListeningPipe listening;
  Session session;
  Background accepting([&] { session.reset(listening.channel.accept(-1)); });
  ASSERT_TRUE(accepting.blocks_in(kInPoll));
  accepting.interrupt();
  ASSERT_TRUE(accepting.blocks_in(kInPoll));
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  accepting.join();
  EXPECT_NE(session, nullptr);
}

TEST(PipeAccept, GivesNobodyAfterItsTimeoutAndLogsNothing) {
  expect_logged([] {
    ListeningPipe listening;
    const Stopwatch watch;
    EXPECT_EQ(listening.channel.accept(120), nullptr);
    EXPECT_GE(watch.msec(), 120);
    EXPECT_FALSE(listening.channel.error());
    EXPECT_TRUE(listening.channel.is_server());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
  });
}

TEST(PipeAccept, GivesNobodyAtOnceForATimeoutOfZero) {
  ListeningPipe listening;
  const Stopwatch watch;
  EXPECT_EQ(listening.channel.accept(0), nullptr);
  EXPECT_LT(watch.msec(), 5000);
}

TEST(PipeAccept, TakesAWaitingPeerForATimeoutOfZero) {
  ListeningPipe listening;
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  const Session session(listening.channel.accept(0));
  EXPECT_NE(session, nullptr);
}

TEST(PipeAccept, GivesNobodyOnAClosedChannelAndLogsNothing) {
  expect_logged([] {
    Pipe channel;
    EXPECT_EQ(channel.accept(-1), nullptr);
    EXPECT_FALSE(channel.error());
    channel.connect(nullptr);
    std::puts("IPC:error|Pipe::connect(): invalid pipe name '<NULL>'");
  });
}

TEST(PipeAccept, GivesNobodyOnAConnectionAndLogsNothing) {
  expect_logged([] {
    AcceptedPipe accepted;
    accepted.peer.send("input");
    EXPECT_EQ(accepted.session->accept(-1), nullptr);
    EXPECT_FALSE(accepted.session->error());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n",
                accepted.dir.file("pipe").c_str(), accepted.listener.getFD());
    std::printf(
        "IPC:debug|Pipe::accept(): accepted new session on pipe %s (afd=%d) from pid=%d "
        "(uid=%u,gid=%u)!\n",
        accepted.dir.file("pipe").c_str(), accepted.session->getFD(), getpid(), geteuid(),
        getegid());
  });
}

TEST(PipeAccept, ForWantOfADescriptorFailsAndStaysListening) {
  expect_logged([] {
    ListeningPipe listening;
    const RawPeer peer = RawPeer::connect_pipe(listening.name);
    {
      const NoDescriptors full;
      EXPECT_EQ(listening.channel.accept(10000), nullptr);
    }
    EXPECT_FALSE(listening.channel.error());
    EXPECT_TRUE(listening.channel.is_server());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::puts("IPC:error|Pipe::accept(): accept() failed");
  });
}

TEST(PipeAccept, TakesThePeerLaterThatItHadNoDescriptorFor) {
  ListeningPipe listening;
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  {
    const NoDescriptors full;
    EXPECT_EQ(listening.channel.accept(10000), nullptr);
  }
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(session, nullptr);
}
