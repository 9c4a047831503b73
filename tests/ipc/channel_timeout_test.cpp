// SPDX-License-Identifier: MIT
// How long reads wait.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <string>

#include "ipc/channels.h"
#include "ipc/stopwatch.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr long kGenerous = 8000;  // for what ends by itself, on a machine that is busy

}  // namespace

TEST(ReadTimeout, OfZeroReturnsAtOnceAndSetsNoFlag) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              char data[4];
              EXPECT_EQ(adopted.channel.read(data, 4, 0, -1), 0);
              EXPECT_FALSE(adopted.channel.eof());
              EXPECT_FALSE(adopted.channel.error());
            }),
            Lines{});
}

TEST(ReadTimeout, EndsAWaitForTheFirstByte) {
  Adopted adopted;
  char data[4];
  const Stopwatch watch;
  EXPECT_EQ(adopted.channel.read(data, 4, 300, -1), 0);
  EXPECT_GE(watch.msec(), 300);
  EXPECT_LT(watch.msec(), kGenerous);
  EXPECT_FALSE(adopted.channel.eof());
  EXPECT_FALSE(adopted.channel.error());
}

TEST(ReadTimeout, OfTheNextChunksEndsTheWaitForTheRest) {
  Adopted adopted;
  adopted.peer.send("a");
  char data[4];
  const Stopwatch watch;
  EXPECT_EQ(adopted.channel.read(data, 4, 0, 700), 1);
  EXPECT_GE(watch.msec(), 700);
  EXPECT_LT(watch.msec(), kGenerous);
  EXPECT_FALSE(adopted.channel.eof());
  EXPECT_FALSE(adopted.channel.error());
}

TEST(ReadTimeout, OfTheNextChunksMayBeZero) {
  Adopted adopted;
  adopted.peer.send("abc");
  char data[4];
  EXPECT_EQ(adopted.channel.read(data, 4, -1, 0), 3);
  EXPECT_FALSE(adopted.channel.error());
}

TEST(ReadTimeout, IsOneForAllChunksInTheShortForm) {
  Adopted adopted;
  adopted.peer.send("a");
  char data[4];
  const Stopwatch watch;
  EXPECT_EQ(adopted.channel.read(data, 4, 400), 1);
  EXPECT_GE(watch.msec(), 400);
}

TEST(ReadTimeout, BelowZeroWaitsUntilDataComes) {
  Adopted adopted;
  int count = 0;
  char data[2];
  Background reader([&] { count = adopted.channel.read(data, 2, -1, -1); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.peer.send("a");
  EXPECT_FALSE(reader.ends(100)) << "one byte is missing";
  adopted.peer.send("b");
  reader.join();
  EXPECT_EQ(count, 2);
}

TEST(ReadTimeout, StartsAfreshWithEachChunk) {
  Adopted adopted;
  int count = 0;
  char data[4];
  const Stopwatch watch;
  Background reader([&] { count = adopted.channel.read(data, 4, 2000, 2000); });
  for (const char* byte : {"a", "b", "c", "d"}) {
    pause(1000);
    adopted.peer.send(byte);
  }
  reader.join();
  EXPECT_EQ(count, 4);
  EXPECT_GE(watch.msec(), 4000);
}

TEST(ReadTimeout, OfTheFirstByteIsOverWhenItHasCome) {
  Adopted adopted;
  int count = 0;
  char data[4];
  const Stopwatch watch;
  Background reader([&] { count = adopted.channel.read(data, 4, 5000, 500); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.peer.send("ab");
  reader.join();
  EXPECT_EQ(count, 2);
  EXPECT_GE(watch.msec(), 500);
  EXPECT_LT(watch.msec(), 4500);
}

// ---- Signals

TEST(ReadInterrupted, WaitsOn) {
  Adopted adopted;
  int count = 0;
  char data[3];
  Background reader([&] { count = adopted.channel.read(data, 3, -1, -1); });
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(reader.blocks_in(kInPoll));
    reader.interrupt();
  }
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.peer.send("abc");
  reader.join();
  EXPECT_EQ(count, 3);
  EXPECT_FALSE(adopted.channel.error());
}

TEST(ReadInterrupted, StartsItsTimeoutAfresh) {
  Adopted adopted;
  int count = -1;
  char data[3];
  const Stopwatch watch;
  Background reader([&] { count = adopted.channel.read(data, 3, 1500, 1500); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  pause(900);
  reader.interrupt();
  reader.join();
  EXPECT_EQ(count, 0);
  EXPECT_GE(watch.msec(), 900 + 1500);
}

TEST(PollInInterrupted, StartsItsTimeoutAfresh) {
  Adopted adopted;
  bool found = true;
  const Stopwatch watch;
  Background poller([&] { found = adopted.channel.poll_in(1500); });
  ASSERT_TRUE(poller.blocks_in(kInPoll));
  pause(900);
  poller.interrupt();
  poller.join();
  EXPECT_FALSE(found);
  EXPECT_GE(watch.msec(), 900 + 1500);
}

TEST(PollInInterrupted, WaitsOn) {
  Adopted adopted;
  bool found = false;
  Background poller([&] { found = adopted.channel.poll_in(-1); });
  ASSERT_TRUE(poller.blocks_in(kInPoll));
  poller.interrupt();
  ASSERT_TRUE(poller.blocks_in(kInPoll));
  adopted.peer.send("a");
  poller.join();
  EXPECT_TRUE(found);
  EXPECT_FALSE(adopted.channel.error());
}

TEST(WriteInterrupted, SendsOn) {
  Adopted adopted;
  std::string data;
  for (int i = 0; i < 400000; ++i) data += std::to_string(i);
  bool written = false;
  Background writer(
      [&] { written = adopted.channel.write(data.data(), static_cast<int>(data.size())); });
  // The first ends a send that has sent a part, the others one that has sent nothing.
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(writer.blocks_in(kInSend));
    writer.interrupt();
  }
  EXPECT_EQ(adopted.peer.receive(data.size()), data);
  writer.join();
  EXPECT_TRUE(written);
  EXPECT_FALSE(adopted.channel.error());
}
