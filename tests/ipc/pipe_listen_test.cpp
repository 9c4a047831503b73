// SPDX-License-Identifier: MIT
// Pipe::listen: names, socket files, and what it does with a file that is there already.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/un.h>
#include <zedipc/pipe.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <string>

#include "ipc/endpoints.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The longest name, and one byte more.
const std::string kLongest(107, 'n');
const std::string kTooLong(108, 'n');

// Leaves a socket file behind that nobody listens on.
void leave_socket_file(const std::string& path) {
  Child dying({}, [&] {
    Pipe listener;
    EXPECT_TRUE(listener.listen(path.c_str()));
    kill(getpid(), SIGKILL);
  });
  EXPECT_EQ(dying.wait(), 128 + SIGKILL);
  EXPECT_TRUE(is_socket_file(path));
}

bool accepts_connections(Pipe& listener, const std::string& path) {
  const RawPeer peer = RawPeer::connect_pipe(path);
  const Session session(listener.accept(10000));
  return session != nullptr && session->write("x", 1) && peer.receive(1) == "x";
}

// Whether a peer gets through to the listener, past connections that were closed again.
bool serves(Pipe& listener, const std::string& path) {
  const RawPeer peer = RawPeer::connect_pipe(path);
  peer.send("x");
  for (;;) {
    const Session session(listener.accept(10000));
    char byte = 0;
    if (session == nullptr) return false;
    if (session->read(&byte, 1, 10000) == 1) return byte == 'x';
  }
}

}  // namespace

TEST(PipeListen, MakesASocketFileOfTheNameAndListens) {
  ListeningPipe listening;
  EXPECT_TRUE(is_socket_file(listening.name));
  EXPECT_TRUE(listening.channel.is_server());
  EXPECT_NE(listening.channel.getFD(), -1);
  EXPECT_TRUE(accepts_connections(listening.channel, listening.name));
}

TEST(PipeListen, HasNoAddresses) {
  ListeningPipe listening;
  EXPECT_STREQ(listening.channel.local_addr(), "");
  EXPECT_STREQ(listening.channel.remote_addr(), "");
}

TEST(PipeListen, SetsNoFlag) {
  ListeningPipe listening;
  EXPECT_FALSE(listening.channel.eof());
  EXPECT_FALSE(listening.channel.error());
}

TEST(PipeListen, BindsTheNameWithItsTerminatingZero) {
  const ListeningPipe listening;
  sockaddr_un address{};
  socklen_t length = sizeof address;
  ASSERT_EQ(getsockname(listening.channel.getFD(), reinterpret_cast<sockaddr*>(&address), &length),
            0);
  EXPECT_EQ(length, listening.name.size() + 3);
  EXPECT_EQ(address.sun_family, AF_UNIX);
  EXPECT_EQ(std::string(address.sun_path), listening.name);
}

TEST(PipeListen, ClosesItsSocketOnExec) {
  const ListeningPipe listening;
  EXPECT_TRUE(closes_on_exec(listening.channel.getFD()));
}

TEST(PipeListen, LogsNameAndSocket) {
  expect_logged([] {
    const ListeningPipe listening;
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
  });
}

TEST(PipeListen, LetsTwoPeersWaitAndNoMore) {
  const ListeningPipe listening;
  const RawPeer first = RawPeer::connect_pipe(listening.name);
  const RawPeer second = RawPeer::connect_pipe(listening.name);
  const RawPeer third(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  listening.name.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(connect(third.fd(), reinterpret_cast<sockaddr*>(&address), sizeof address), -1);
  EXPECT_EQ(errno, EAGAIN);
}

// ---- Names

TEST(PipeListenName, MayBeRelative) {
  const ScratchDir dir;
  const ChildResult result = run_in_child({}, [&] {
    std::filesystem::current_path(dir.file(""));
    Pipe listener;
    EXPECT_TRUE(listener.listen("relative"));
    EXPECT_TRUE(accepts_connections(listener, dir.file("relative")));
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(PipeListenName, MayHave107Bytes) {
  const ScratchDir dir;
  const ChildResult result = run_in_child({}, [&] {
    std::filesystem::current_path(dir.file(""));
    Pipe listener;
    EXPECT_TRUE(listener.listen(kLongest.c_str()));
    EXPECT_TRUE(is_socket_file(kLongest));
    Pipe peer;
    EXPECT_TRUE(peer.connect(kLongest.c_str()));
    const Session session(listener.accept(10000));
    EXPECT_NE(session, nullptr);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(PipeListenName, MayNotHave108Bytes) {
  const ScratchDir dir;
  expect_logged([&] {
    std::filesystem::current_path(dir.file(""));
    Pipe listener;
    EXPECT_FALSE(listener.listen(kTooLong.c_str()));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_TRUE(std::filesystem::is_empty("."));
    std::printf("IPC:error|Pipe::listen(): invalid pipe name '%s'\n", kTooLong.c_str());
  });
}

TEST(PipeListenName, MayNotBeNull) {
  expect_logged([] {
    Pipe listener;
    EXPECT_FALSE(listener.listen(nullptr));
    EXPECT_EQ(listener.getFD(), -1);
    std::puts("IPC:error|Pipe::listen(): invalid pipe name '<NULL>'");
  });
}

TEST(PipeListenName, ThatIsBadSetsNoFlag) {
  Pipe listener;
  EXPECT_FALSE(listener.listen(nullptr));
  EXPECT_FALSE(listener.listen(kTooLong.c_str()));
  EXPECT_FALSE(listener.error());
  EXPECT_FALSE(listener.eof());
}

// ---- A name that is taken

TEST(PipeListenTaken, ReplacesTheSocketFileOfADeadProcess) {
  const ScratchDir dir;
  leave_socket_file(dir.file("pipe"));
  Pipe listener;
  EXPECT_TRUE(listener.listen(dir.file("pipe").c_str()));
  EXPECT_TRUE(listener.is_server());
  EXPECT_TRUE(accepts_connections(listener, dir.file("pipe")));
}

TEST(PipeListenTaken, MakesTheSocketFileAnew) {
  const ScratchDir dir;
  leave_socket_file(dir.file("pipe"));
  // A second name for the old file shows whether the first one is still its.
  std::filesystem::create_hard_link(dir.file("pipe"), dir.file("old"));
  Pipe listener;
  ASSERT_TRUE(listener.listen(dir.file("pipe").c_str()));
  EXPECT_TRUE(is_socket_file(dir.file("pipe")));
  EXPECT_EQ(std::filesystem::hard_link_count(dir.file("old")), 1U);
}

TEST(PipeListenTaken, LogsTheReplacementLikeAnyOther) {
  const ScratchDir dir;
  leave_socket_file(dir.file("pipe"));
  expect_logged([&] {
    Pipe listener;
    EXPECT_TRUE(listener.listen(dir.file("pipe").c_str()));
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", dir.file("pipe").c_str(),
                listener.getFD());
  });
}

TEST(PipeListenTaken, ReplacesARegularFile) {
  const ScratchDir dir;
  const std::string path = dir.write("pipe", "precious");
  Pipe listener;
  EXPECT_TRUE(listener.listen(path.c_str()));
  EXPECT_TRUE(is_socket_file(path));
  EXPECT_TRUE(accepts_connections(listener, path));
}

TEST(PipeListenTaken, ReplacesAnEmptyDirectory) {
  const ScratchDir dir;
  std::filesystem::create_directory(dir.file("pipe"));
  Pipe listener;
  EXPECT_TRUE(listener.listen(dir.file("pipe").c_str()));
  EXPECT_TRUE(is_socket_file(dir.file("pipe")));
}

TEST(PipeListenTaken, FailsWhereTheFileCannotBeRemoved) {
  const ScratchDir dir;
  std::filesystem::create_directories(dir.file("pipe/full"));
  expect_logged([&] {
    Pipe listener;
    EXPECT_FALSE(listener.listen(dir.file("pipe").c_str()));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_FALSE(listener.error());
    EXPECT_TRUE(exists(dir.file("pipe/full")));
    std::printf("IPC:error|Pipe::listen(): bind()/listen() on pipe %s failed (fd=-1)\n",
                dir.file("pipe").c_str());
  });
}

TEST(PipeListenTaken, FailsWithALiveListener) {
  expect_logged([] {
    ListeningPipe listening;
    Pipe second;
    EXPECT_FALSE(second.listen(listening.name.c_str()));
    EXPECT_EQ(second.getFD(), -1);
    EXPECT_FALSE(second.is_server());
    EXPECT_FALSE(second.error());
    EXPECT_FALSE(second.eof());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::printf("IPC:error|Pipe::listen(): bind()/listen() on pipe %s failed (fd=-1)\n",
                listening.name.c_str());
  });
}

TEST(PipeListenTaken, LeavesALiveListenerUndisturbed) {
  ListeningPipe listening;
  Pipe second;
  EXPECT_FALSE(second.listen(listening.name.c_str()));
  EXPECT_TRUE(listening.channel.is_server());
  EXPECT_TRUE(serves(listening.channel, listening.name));
}

TEST(PipeListenTaken, LeavesTheFileOfALiveListenerToIt) {
  const ListeningPipe listening;
  {
    Pipe second;
    EXPECT_FALSE(second.listen(listening.name.c_str()));
    second.close();
  }
  EXPECT_TRUE(is_socket_file(listening.name));
}

// ---- Other failures

TEST(PipeListenFailure, OfBindLeavesTheChannelClosed) {
  const ScratchDir dir;
  expect_logged([&] {
    Pipe listener;
    EXPECT_FALSE(listener.listen(dir.file("missing/pipe").c_str()));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_FALSE(listener.error());
    std::printf("IPC:error|Pipe::listen(): bind()/listen() on pipe %s failed (fd=-1)\n",
                dir.file("missing/pipe").c_str());
  });
}

TEST(PipeListenFailure, LeavesNoDescriptorBehind) {
  const ScratchDir dir;
  Pipe listener;
  const int next = next_descriptor();
  EXPECT_FALSE(listener.listen(dir.file("missing/pipe").c_str()));
  EXPECT_EQ(next_descriptor(), next);
}

TEST(PipeListenFailure, ForWantOfADescriptorLeavesTheChannelClosed) {
  const ScratchDir dir;
  expect_logged([&] {
    Pipe listener;
    show_to_sanitizer(listener);
    {
      const NoDescriptors full;
      EXPECT_FALSE(listener.listen(dir.file("pipe").c_str()));
    }
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_FALSE(listener.error());
    EXPECT_FALSE(exists(dir.file("pipe")));
    std::puts("IPC:error|Pipe::listen(): socket() failed");
  });
}

TEST(PipeListenFailure, DoesNotHinderALaterCall) {
  const ScratchDir dir;
  Pipe listener;
  EXPECT_FALSE(listener.listen(dir.file("missing/pipe").c_str()));
  EXPECT_TRUE(listener.listen(dir.file("pipe").c_str()));
  EXPECT_TRUE(accepts_connections(listener, dir.file("pipe")));
}

// ---- On an object in use

TEST(PipeListenAgain, RemovesTheFirstFile) {
  ListeningPipe listening;
  const std::string second = listening.dir.file("second");
  ASSERT_TRUE(listening.channel.listen(second.c_str()));
  EXPECT_FALSE(exists(listening.name));
  EXPECT_TRUE(accepts_connections(listening.channel, second));
}

TEST(PipeListenAgain, WorksUnderTheSameName) {
  ListeningPipe listening;
  ASSERT_TRUE(listening.channel.listen(listening.name.c_str()));
  EXPECT_TRUE(accepts_connections(listening.channel, listening.name));
}

TEST(PipeListenAgain, WithABadNameEndsTheFirstListener) {
  ListeningPipe listening;
  EXPECT_FALSE(listening.channel.listen(nullptr));
  EXPECT_FALSE(listening.channel.is_server());
  EXPECT_EQ(listening.channel.getFD(), -1);
  EXPECT_FALSE(exists(listening.name));
}

TEST(PipeListen, ClosesAConnectionThatTheObjectHad) {
  ListeningPipe other;
  const ScratchDir dir;
  Pipe channel;
  ASSERT_TRUE(channel.connect(other.name.c_str()));
  Session session(other.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  ASSERT_TRUE(channel.listen(dir.file("pipe").c_str()));
  char byte;
  EXPECT_EQ(session->read(&byte, 1, 10000), 0);
  EXPECT_TRUE(session->eof());
  EXPECT_STREQ(channel.remote_addr(), "");
}
