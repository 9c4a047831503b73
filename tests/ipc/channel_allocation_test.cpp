// SPDX-License-Identifier: MIT
// Reading and writing cost no memory.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <string>

#include "ipc/channels.h"
#include "ipc/receive.h"
#include "support/allocations.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(Allocation, IsNotMadeByWriting) {
  Adopted adopted;
  EXPECT_EQ(cost([&] { EXPECT_TRUE(adopted.channel.write("abc", 3)); }), 0);
}

TEST(Allocation, IsNotMadeByReading) {
  Adopted adopted;
  adopted.peer.send("abcdef");
  char data[3];
  EXPECT_EQ(cost([&] { EXPECT_EQ(adopted.channel.read(data, 3, 0), 3); }), 0);
}

TEST(Allocation, IsNotMadeByAskingForInput) {
  Adopted adopted;
  EXPECT_EQ(cost([&] { EXPECT_FALSE(adopted.channel.poll_in(0)); }), 0);
}

TEST(Allocation, IsNotMadeBySendingAFrame) {
  Adopted adopted;
  const std::string payload(1000, 'p');
  EXPECT_EQ(cost([&] { EXPECT_TRUE(adopted.channel.write_msg(kId, 7, payload)); }), 0);
}

TEST(Allocation, IsMadeOnceForTheContainerOfAFrame) {
  Adopted adopted;
  const std::string payload(1000, 'p');
  adopted.peer.send(frame(kId, 7, payload) + frame(kId, 7, payload));
  EXPECT_EQ(cost([&] {
              std::string received;
              int tag = 0;
              EXPECT_TRUE(adopted.channel.read_msg(kId, tag, received, 1000, 0));
            }),
            1);
}

TEST(Allocation, IsNotMadeForAContainerThatIsLargeEnough) {
  Adopted adopted;
  const std::string payload(1000, 'p');
  adopted.peer.send(frame(kId, 7, payload) + frame(kId, 7, payload));
  std::string received;
  int tag = 0;
  EXPECT_EQ(cost([&] { EXPECT_TRUE(adopted.channel.read_msg(kId, tag, received, 1000, 0)); }), 0);
}
