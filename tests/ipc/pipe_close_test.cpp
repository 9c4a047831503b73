// SPDX-License-Identifier: MIT
// The end of a pipe, its socket file, and the second way to construct one.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "ipc/endpoints.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

class CountingPipe : public Pipe {
 public:
  void close() override {
    ++closes;
    Pipe::close();
  }
  int closes = 0;
};

}  // namespace

TEST(PipeClose, RemovesTheListenersFile) {
  ListeningPipe listening;
  listening.channel.close();
  EXPECT_FALSE(exists(listening.name));
  EXPECT_FALSE(listening.channel.is_server());
  EXPECT_EQ(listening.channel.getFD(), -1);
}

TEST(PipeClose, ClosesTheListenersSocket) {
  ListeningPipe listening;
  const int fd = listening.channel.getFD();
  listening.channel.close();
  EXPECT_FALSE(is_open(fd));
}

TEST(PipeClose, OfAListenerLeavesItsSessionsWorking) {
  AcceptedPipe accepted;
  accepted.listener.close();
  EXPECT_TRUE(accepted.session->write("x", 1));
  EXPECT_EQ(accepted.peer.receive(1), "x");
}

TEST(PipeClose, OfASessionLeavesTheFileInPlace) {
  AcceptedPipe accepted;
  accepted.session->close();
  EXPECT_TRUE(accepted.peer.at_end());
  EXPECT_TRUE(is_socket_file(accepted.dir.file("pipe")));
}

TEST(PipeClose, RemovesTheFileThoughItIsSomebodyElsesByNow) {
  ListeningPipe first;
  std::remove(first.name.c_str());
  Pipe second;
  ASSERT_TRUE(second.listen(first.name.c_str()));
  first.channel.close();
  EXPECT_FALSE(exists(first.name));
}

TEST(PipeClose, RemovesNothingTheSecondTime) {
  ListeningPipe listening;
  listening.channel.close();
  const std::string path = listening.dir.write("pipe", "somebody else's");
  listening.channel.close();
  EXPECT_TRUE(exists(path));
}

TEST(PipeClose, MayComeFromSeveralThreadsAtOnce) {
  ListeningPipe listening;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([&] { listening.channel.close(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(exists(listening.name));
  EXPECT_EQ(listening.channel.getFD(), -1);
}

TEST(PipeClose, DoesWithoutAFileThatIsGoneAlready) {
  ListeningPipe listening;
  std::remove(listening.name.c_str());
  listening.channel.close();
  EXPECT_EQ(listening.channel.getFD(), -1);
}

TEST(PipeClose, RemovesTheFileOfAListenerWhoseSocketIsGoneAlready) {
  ListeningPipe listening;
  listening.channel.IPC::close();
  EXPECT_TRUE(exists(listening.name));
  listening.channel.close();
  EXPECT_FALSE(exists(listening.name));
}

TEST(PipeClose, IsUndoneByListening) {
  ListeningPipe listening;
  listening.channel.close();
  ASSERT_TRUE(listening.channel.listen(listening.name.c_str()));
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(session, nullptr);
}

TEST(PipeDestruction, RemovesTheListenersFile) {
  const ScratchDir dir;
  auto listener = std::make_unique<Pipe>();
  ASSERT_TRUE(listener->listen(dir.file("pipe").c_str()));
  const int fd = listener->getFD();
  Session as_ipc = std::move(listener);
  as_ipc.reset();
  EXPECT_FALSE(exists(dir.file("pipe")));
  EXPECT_FALSE(is_open(fd));
}

TEST(PipeDestruction, EndsTheConnection) {
  AcceptedPipe accepted;
  accepted.session.reset();
  EXPECT_TRUE(accepted.peer.at_end());
  EXPECT_TRUE(is_socket_file(accepted.dir.file("pipe")));
}

TEST(PipeListener, IsNotWrittenTo) {
  expect_logged([] {
    ListeningPipe listening;
    EXPECT_FALSE(listening.channel.write("x", 1));
    EXPECT_TRUE(listening.channel.error());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::puts("IPC:error|PTR->IpcPrivate::write(): not allowed for listener");
  });
}

TEST(PipeListener, IsNotReadFrom) {
  expect_logged([] {
    ListeningPipe listening;
    char byte;
    EXPECT_EQ(listening.channel.read(&byte, 1, -1), 0);
    EXPECT_TRUE(listening.channel.error());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::puts("IPC:error|PTR->IpcPrivate::read(): not allowed for listener");
  });
}

TEST(PipeSetUp, ClosesThroughTheVirtualOperation) {
  const ListeningPipe other;
  CountingPipe channel;
  ASSERT_TRUE(channel.connect(other.name.c_str()));
  EXPECT_EQ(channel.closes, 1);
  ASSERT_TRUE(channel.listen(other.dir.file("second").c_str()));
  EXPECT_EQ(channel.closes, 2);
}

TEST(PipeSetUp, ClosesThroughTheVirtualOperationWhenAConnectionFails) {
  const ScratchDir dir;
  CountingPipe channel;
  EXPECT_FALSE(channel.connect(dir.file("pipe").c_str()));
  EXPECT_EQ(channel.closes, 2);
}

TEST(PipeWithAnArgument, StartsClosed) {
  Pipe channel(42);
  EXPECT_EQ(channel.getFD(), -1);
  EXPECT_FALSE(channel.is_server());
  EXPECT_FALSE(channel.eof());
  EXPECT_FALSE(channel.error());
  EXPECT_STREQ(channel.remote_addr(), "");
  EXPECT_STREQ(channel.local_addr(), "");
}

TEST(PipeWithAnArgument, ListensConnectsAndAcceptsLikeAnyOther) {
  const ScratchDir dir;
  Pipe listener(42);
  Pipe channel(-1);
  ASSERT_TRUE(listener.listen(dir.file("pipe").c_str()));
  ASSERT_TRUE(channel.connect(dir.file("pipe").c_str()));
  const Session session(listener.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(session->write("x", 1));
  char byte = 0;
  EXPECT_EQ(channel.read(&byte, 1, 10000), 1);
  listener.close();
  EXPECT_FALSE(exists(dir.file("pipe")));
}
