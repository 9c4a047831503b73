// SPDX-License-Identifier: MIT
// Several threads on one channel.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ipc/channels.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kBlock = 4000000;  // more than a socket buffers

std::string block(char byte) { return std::string(kBlock, byte); }

}  // namespace

TEST(Concurrency, AWriteDoesNotWaitForARead) {
  Adopted adopted;
  char byte;
  Background reader([&] { adopted.channel.read(&byte, 1, -1); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  EXPECT_TRUE(adopted.channel.write("x", 1));
  EXPECT_EQ(adopted.peer.receive(1), "x");
  adopted.peer.send("y");
}

TEST(Concurrency, AReadDoesNotWaitForAWrite) {
  Adopted adopted;
  const std::string data = block('x');
  Background writer([&] { adopted.channel.write(data.data(), kBlock); });
  ASSERT_TRUE(writer.blocks_in(kInSend));
  adopted.peer.send("y");
  char byte;
  EXPECT_EQ(adopted.channel.read(&byte, 1, 10000), 1);
  EXPECT_EQ(adopted.peer.receive(kBlock), data);
}

TEST(Concurrency, TwoWritesGoOutOneAfterTheOther) {
  Adopted adopted;
  const std::string a = block('a');
  const std::string b = block('b');
  Background first([&] { adopted.channel.write(a.data(), kBlock); });
  ASSERT_TRUE(first.blocks_in(kInSend));
  Background second([&] { adopted.channel.write(b.data(), kBlock); });
  ASSERT_TRUE(second.blocks_in(kInMutex));
  EXPECT_EQ(adopted.peer.receive(kBlock), a);
  EXPECT_EQ(adopted.peer.receive(kBlock), b);
}

TEST(Concurrency, TwoReadsAreServedOneAfterTheOther) {
  Adopted adopted;
  std::string a(6, '?');
  std::string b(6, '?');
  Background first([&] { adopted.channel.read(a.data(), 6, -1); });
  ASSERT_TRUE(first.blocks_in(kInPoll));
  Background second([&] { adopted.channel.read(b.data(), 6, -1); });
  ASSERT_TRUE(second.blocks_in(kInMutex));
  adopted.peer.send("one");
  EXPECT_FALSE(first.ends(100));
  adopted.peer.send("onetwotwo");
  first.join();
  second.join();
  EXPECT_EQ(a, "oneone");
  EXPECT_EQ(b, "twotwo");
}

TEST(Concurrency, PollInQueuesBehindARead) {
  Adopted adopted;
  char data[2];
  Background reader([&] { adopted.channel.read(data, 2, -1); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  bool found = true;
  Background poller([&] { found = adopted.channel.poll_in(0); });
  ASSERT_TRUE(poller.blocks_in(kInMutex));
  adopted.peer.send("ab");
  poller.join();
  EXPECT_FALSE(found) << "the read took it all";
}

TEST(Concurrency, ManyThreadsCloseOneChannel) {
  for (int i = 0; i < 100; ++i) {
    Adopted adopted;
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n) threads.emplace_back([&] { adopted.channel.close(); });
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(adopted.channel.getFD(), -1);
    ASSERT_TRUE(adopted.peer.at_end());
  }
}

TEST(Concurrency, FlagsAndSocketAreReadDuringEverything) {
  Adopted adopted;
  std::atomic<bool> stop{false};
  Background observer([&] {
    while (!stop) {
      if (adopted.channel.is_server()) ADD_FAILURE() << "never a listener";
      if (adopted.channel.eof()) ADD_FAILURE() << "no end is met";
      if (adopted.channel.error()) ADD_FAILURE() << "no error happens";
      if (adopted.channel.getFD() < -1) ADD_FAILURE() << "neither a descriptor nor none";
    }
  });
  for (int i = 0; i < 200; ++i) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    adopted.channel.setFD(ends[0]);
    const RawPeer peer(ends[1]);
    char byte;
    peer.send("x");
    EXPECT_EQ(adopted.channel.read(&byte, 1, 10000), 1);
    EXPECT_TRUE(adopted.channel.write("y", 1));
  }
  stop = true;
}

TEST(Concurrency, ChannelsAreClosedWhileOthersRead) {
  for (int i = 0; i < 100; ++i) {
    Adopted adopted;
    int count = -1;
    char data[4];
    Background reader([&] { count = adopted.channel.read(data, 4, -1); });
    adopted.channel.close();
    reader.join();
    ASSERT_EQ(count, 0);
    ASSERT_EQ(adopted.channel.getFD(), -1);
  }
}
