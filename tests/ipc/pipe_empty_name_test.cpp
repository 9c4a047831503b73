// SPDX-License-Identifier: MIT
// The empty name, which is a name like any other to the library. The kernel takes it for
// one outside the file system, of which there is one per network.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>

#include "ipc/endpoints.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(PipeEmptyName, IsListenedOnAndConnectedTo) {
  Pipe listener;
  Pipe channel;
  ASSERT_TRUE(listener.listen(""));
  ASSERT_TRUE(channel.connect(""));
  const Session session(listener.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(channel.write("x", 1));
  char byte = 0;
  EXPECT_EQ(session->read(&byte, 1, 10000), 1);
}

TEST(PipeEmptyName, IsTakenWhileSomebodyListens) {
  Pipe listener;
  Pipe second;
  ASSERT_TRUE(listener.listen(""));
  EXPECT_FALSE(second.listen(""));
}

TEST(PipeEmptyName, IsFreeWhenTheListenerCloses) {
  Pipe listener;
  Pipe second;
  ASSERT_TRUE(listener.listen(""));
  listener.close();
  EXPECT_FALSE(second.connect(""));
  EXPECT_TRUE(second.listen(""));
}
