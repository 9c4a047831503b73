// SPDX-License-Identifier: MIT
// Pipe::connect, and the credentials that both ends show.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <zedipc/pipe.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "ipc/endpoints.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The credentials of a process of this test's user.
std::string credentials(pid_t pid) {
  return std::to_string(pid) + " " + std::to_string(geteuid()) + " " + std::to_string(getegid());
}

// A process that listens on a pipe until it is killed.
Child listening_process(const std::string& path) {
  return Child({}, [&path] {
    Pipe listener;
    EXPECT_TRUE(listener.listen(path.c_str()));
    for (;;) pause();
  });
}

}  // namespace

TEST(PipeConnect, MakesAConnectionThatCarriesBytesBothWays) {
  ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  char bytes[3];
  EXPECT_TRUE(channel.write("abc", 3));
  EXPECT_EQ(session->read(bytes, 3, 10000), 3);
  EXPECT_EQ(std::string(bytes, 3), "abc");
  EXPECT_TRUE(session->write("xyz", 3));
  EXPECT_EQ(channel.read(bytes, 3, 10000), 3);
  EXPECT_EQ(std::string(bytes, 3), "xyz");
}

TEST(PipeConnect, PutsNothingIntoTheStream) {
  ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(channel.write("first", 5));
  char bytes[5];
  EXPECT_EQ(session->read(bytes, 5, 10000), 5);
  EXPECT_EQ(std::string(bytes, 5), "first");
}

TEST(PipeConnect, MakesNoServer) {
  const ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_FALSE(channel.is_server());
  EXPECT_NE(channel.getFD(), -1);
}

TEST(PipeConnect, SetsNoFlag) {
  const ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_FALSE(channel.eof());
  EXPECT_FALSE(channel.error());
}

TEST(PipeConnect, ClosesItsSocketOnExec) {
  const ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_TRUE(closes_on_exec(channel.getFD()));
}

TEST(PipeConnect, LeavesTheSocketFileInPlaceWhenClosed) {
  const ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  channel.close();
  EXPECT_TRUE(is_socket_file(listening.name));
}

TEST(PipeConnect, LogsTheNameAndTheListenersCredentials) {
  expect_logged([] {
    const ListeningPipe listening;
    Pipe channel;
    EXPECT_TRUE(channel.connect(listening.name.c_str()));
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::printf(
        "IPC:debug|Pipe::connect(): connected to pipe %s (fd=%d) with pid=%d (uid=%u,gid=%u)!\n",
        listening.name.c_str(), channel.getFD(), getpid(), geteuid(), getegid());
  });
}

TEST(PipeConnect, WaitsWhileTheListenersQueueIsFull) {
  ListeningPipe listening;
  const RawPeer first = RawPeer::connect_pipe(listening.name);
  const RawPeer second = RawPeer::connect_pipe(listening.name);
  Pipe channel;
  bool connected = false;
  Background connecting([&] { connected = channel.connect(listening.name.c_str()); });
  ASSERT_TRUE(connecting.blocks_in(SYS_connect));
  const Session session(listening.channel.accept(10000));
  connecting.join();
  EXPECT_TRUE(connected);
}

TEST(PipeConnect, WaitsOnAfterASignal) {
  ListeningPipe listening;
  const RawPeer first = RawPeer::connect_pipe(listening.name);
  const RawPeer second = RawPeer::connect_pipe(listening.name);
  Pipe channel;
  bool connected = false;
  Background connecting([&] { connected = channel.connect(listening.name.c_str()); });
  ASSERT_TRUE(connecting.blocks_in(SYS_connect));
  connecting.interrupt();
  ASSERT_TRUE(connecting.blocks_in(SYS_connect));
  const Session session(listening.channel.accept(10000));
  connecting.join();
  EXPECT_TRUE(connected);
}

// ---- Credentials

TEST(PipeCredentials, AreThoseOfTheListenersProcess) {
  const ScratchDir dir;
  const std::string path = dir.file("pipe");
  const Child listener = listening_process(path);
  Pipe channel;
  ASSERT_TRUE(eventually([&] { return channel.connect(path.c_str()); }));
  EXPECT_EQ(channel.remote_addr(), credentials(listener.pid()));
  EXPECT_STREQ(channel.local_addr(), "");
}

TEST(PipeCredentials, AreThoseOfTheConnectingProcess) {
  ListeningPipe listening;
  const Child peer({}, [&] {
    Pipe channel;
    EXPECT_TRUE(channel.connect(listening.name.c_str()));
    for (;;) pause();
  });
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->remote_addr(), credentials(peer.pid()));
  EXPECT_STREQ(session->local_addr(), "");
}

TEST(PipeCredentials, AreProcessThenUserThenGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  ListeningPipe listening;
  std::filesystem::permissions(listening.dir.file(""), std::filesystem::perms::all);
  std::filesystem::permissions(listening.name, std::filesystem::perms::all);
  const Child peer({}, [&] {
    EXPECT_EQ(setegid(2222), 0);
    EXPECT_EQ(seteuid(1111), 0);
    Pipe channel;
    EXPECT_TRUE(channel.connect(listening.name.c_str()));
    for (;;) pause();
  });
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->remote_addr(), std::to_string(peer.pid()) + " 1111 2222");
}

TEST(PipeCredentials, GoWithTheConnection) {
  const ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_STRNE(channel.remote_addr(), "");
  channel.close();
  EXPECT_STREQ(channel.remote_addr(), "");
}

// ---- Failures

TEST(PipeConnectFailure, OfABadNameLeavesTheChannelClosed) {
  expect_logged([] {
    Pipe channel;
    const std::string too_long(108, 'n');
    EXPECT_FALSE(channel.connect(nullptr));
    EXPECT_FALSE(channel.connect(too_long.c_str()));
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_FALSE(channel.eof());
    EXPECT_FALSE(channel.error());
    std::puts("IPC:error|Pipe::connect(): invalid pipe name '<NULL>'");
    std::printf("IPC:error|Pipe::connect(): invalid pipe name '%s'\n", too_long.c_str());
  });
}

TEST(PipeConnectFailure, OfAMissingFileLeavesTheChannelClosed) {
  const ScratchDir dir;
  expect_logged([&] {
    Pipe channel;
    EXPECT_FALSE(channel.connect(dir.file("pipe").c_str()));
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_FALSE(channel.eof());
    EXPECT_FALSE(channel.error());
    EXPECT_STREQ(channel.remote_addr(), "");
    std::printf("IPC:error|Pipe::connect(): connect() to %s failed\n", dir.file("pipe").c_str());
  });
}

TEST(PipeConnectFailure, OfAFileThatNobodyListensOnLeavesTheFileThere) {
  const ScratchDir dir;
  const std::string path = dir.write("pipe", "no socket");
  Pipe channel;
  EXPECT_FALSE(channel.connect(path.c_str()));
  EXPECT_TRUE(exists(path));
}

TEST(PipeConnectFailure, ForWantOfADescriptorLeavesTheChannelClosed) {
  expect_logged([] {
    Pipe channel;
    show_to_sanitizer(channel);
    {
      const NoDescriptors full;
      EXPECT_FALSE(channel.connect("pipe"));
    }
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_FALSE(channel.error());
    std::puts("IPC:error|Pipe::connect(): socket() failed");
  });
}

TEST(PipeConnectFailure, LeavesNoDescriptorBehind) {
  const ScratchDir dir;
  Pipe channel;
  const int next = next_descriptor();
  EXPECT_FALSE(channel.connect(dir.file("pipe").c_str()));
  EXPECT_EQ(next_descriptor(), next);
}

// The channel has a socket by then, so the close that follows clears the flags.
TEST(PipeConnectFailure, ClearsAFlagOfTheTimeBefore) {
  const ScratchDir dir;
  Pipe channel;
  EXPECT_FALSE(channel.write("x", 1));
  ASSERT_TRUE(channel.error());
  EXPECT_FALSE(channel.connect(dir.file("pipe").c_str()));
  EXPECT_FALSE(channel.error());
}

TEST(PipeConnectFailure, OfABadNameKeepsAFlagOfTheTimeBefore) {
  Pipe channel;
  EXPECT_FALSE(channel.write("x", 1));
  EXPECT_FALSE(channel.connect(nullptr));
  EXPECT_TRUE(channel.error());
}

TEST(PipeConnectFailure, DoesNotHinderALaterCall) {
  const ScratchDir dir;
  const ListeningPipe listening;
  Pipe channel;
  EXPECT_FALSE(channel.connect(dir.file("pipe").c_str()));
  EXPECT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_TRUE(channel.write("x", 1));
}

// ---- On an object in use

TEST(PipeConnectAgain, LeavesTheFirstListenerForTheSecond) {
  ListeningPipe first;
  ListeningPipe second;
  Pipe channel;
  ASSERT_TRUE(channel.connect(first.name.c_str()));
  const Session left(first.channel.accept(10000));
  ASSERT_NE(left, nullptr);
  ASSERT_TRUE(channel.connect(second.name.c_str()));
  const Session current(second.channel.accept(10000));
  ASSERT_NE(current, nullptr);
  char byte = 0;
  EXPECT_EQ(left->read(&byte, 1, 10000), 0);
  EXPECT_TRUE(left->eof());
  EXPECT_TRUE(channel.write("x", 1));
  EXPECT_EQ(current->read(&byte, 1, 10000), 1);
}

TEST(PipeConnectAgain, ClearsTheFlagsOfTheFirstConnection) {
  ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  delete listening.channel.accept(10000);
  EXPECT_TRUE(channel.poll_in(10000));
  ASSERT_TRUE(channel.eof());
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_FALSE(channel.eof());
}

TEST(PipeConnect, KeepsAFlagThatWasSetWithoutASocket) {
  const ListeningPipe listening;
  Pipe channel;
  EXPECT_FALSE(channel.write("x", 1));
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_TRUE(channel.error());
  EXPECT_TRUE(channel.write("x", 1));
}

TEST(PipeConnect, EndsBeingAListener) {
  const ListeningPipe other;
  ListeningPipe listening;
  ASSERT_TRUE(listening.channel.connect(other.name.c_str()));
  EXPECT_FALSE(listening.channel.is_server());
  EXPECT_FALSE(exists(listening.name));
}
