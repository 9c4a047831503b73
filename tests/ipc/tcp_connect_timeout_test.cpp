// SPDX-License-Identifier: MIT
// TCP::connect to somebody who does not answer.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <zedipc/tcp.h>

#include <cstdio>

#include "ipc/endpoints.h"
#include "ipc/setup_calls.h"
#include "ipc/stopwatch.h"
#include "ipc/system_calls.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(TcpConnectTimeout, EndsTheWaitForAPeerThatDoesNotAnswer) {
  expect_logged([] {
    const FullListener silent;
    TCP channel;
    const Stopwatch watch;
    EXPECT_FALSE(channel.connect("127.0.0.1", silent.port(), 200));
    EXPECT_GE(watch.msec(), 200);
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_FALSE(channel.error());
    EXPECT_STREQ(channel.remote_addr(), "");
    std::printf("IPC:error|TCP::connect(): failed to connect to 127.0.0.1:%d\n", silent.port());
  });
}

TEST(TcpConnectTimeout, OfZeroEndsAtOnce) {
  const FullListener silent;
  TCP channel;
  const int fd = next_descriptor();
  const SystemCalls calls(fd);
  EXPECT_FALSE(channel.connect("127.0.0.1", silent.port(), 0));
  EXPECT_EQ(calls.poll_timeouts(), std::vector<int>{0});
  EXPECT_EQ(calls.close_calls(), 1);
}

TEST(TcpConnectTimeout, HoldsForEachAddressInTurn) {
  const FullListener silent;
  SetupCalls lookup;
  lookup.resolve_to({{"127.0.0.1", silent.port()}, {"127.0.0.1", silent.port()}});
  TCP channel;
  // Both sockets have the same number, since the first one is closed by then.
  const SystemCalls calls(next_descriptor());
  EXPECT_FALSE(channel.connect("name", 9, 50));
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{50, 50}));
}

TEST(TcpConnectTimeout, MovesOnToAnAddressThatAnswers) {
  const FullListener silent;
  const RawListener listener("127.0.0.1", 0);
  SetupCalls lookup;
  lookup.resolve_to({{"127.0.0.1", silent.port()}, {"127.0.0.1", listener.port()}});
  TCP channel;
  ASSERT_TRUE(channel.connect("name", 9, 300));
  EXPECT_EQ(channel.remote_addr(), "127.0.0.1:" + std::to_string(listener.port()));
  EXPECT_TRUE(blocks(channel.getFD()));
}

TEST(TcpConnectTimeout, StartsAfreshAfterASignal) {
  const FullListener silent;
  TCP channel;
  SystemCalls calls(next_descriptor());
  calls.answer_poll({{-1, EINTR}});
  EXPECT_FALSE(channel.connect("127.0.0.1", silent.port(), 50));
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{50, 50}));
}

TEST(TcpConnectTimeout, IsNotWaitedForWhenPollFails) {
  const FullListener silent;
  TCP channel;
  SystemCalls calls(next_descriptor());
  calls.answer_poll({{-1, ENOMEM}});
  EXPECT_FALSE(channel.connect("127.0.0.1", silent.port(), 20000));
  EXPECT_EQ(calls.poll_timeouts(), std::vector<int>{20000});
  EXPECT_EQ(channel.getFD(), -1);
}

TEST(TcpConnectTimeout, IsNotWaitedForWhenThePeerRefuses) {
  FullListener silent;
  TCP channel;
  bool connected = true;
  const Stopwatch watch;
  Background connecting([&] { connected = channel.connect("127.0.0.1", silent.port(), 30000); });
  ASSERT_TRUE(connecting.blocks_in(kInPoll));
  // The system asks again after a second, and is refused then.
  silent.close();
  connecting.join();
  EXPECT_FALSE(connected);
  EXPECT_LT(watch.msec(), 30000);
}

TEST(TcpConnectTimeout, IsLongEnoughForAPeerThatAnswersWithinIt) {
  FullListener silent;
  TCP channel;
  bool connected = false;
  Background connecting([&] { connected = channel.connect("127.0.0.1", silent.port(), 30000); });
  ASSERT_TRUE(connecting.blocks_in(kInPoll));
  silent.make_room();
  connecting.join();
  EXPECT_TRUE(connected);
}

TEST(TcpConnectWithoutTimeout, WaitsForThePeer) {
  FullListener silent;
  TCP channel;
  bool connected = false;
  Background connecting([&] { connected = channel.connect("127.0.0.1", silent.port(), -1); });
  ASSERT_TRUE(connecting.blocks_in(SYS_connect));
  silent.make_room();
  connecting.join();
  EXPECT_TRUE(connected);
}

TEST(TcpConnectWithoutTimeout, WaitsOnAfterASignal) {
  FullListener silent;
  TCP channel;
  bool connected = false;
  Background connecting([&] { connected = channel.connect("127.0.0.1", silent.port(), -1); });
  ASSERT_TRUE(connecting.blocks_in(SYS_connect));
  connecting.interrupt();
  ASSERT_TRUE(connecting.blocks_in(SYS_connect));
  silent.make_room();
  connecting.join();
  EXPECT_TRUE(connected);
}
