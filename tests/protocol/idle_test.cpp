// SPDX-License-Identifier: MIT
// What a connection keeps of a large message.
#include "protocol/idle.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <zedipc/tcp.h>

#include <chrono>
#include <string>

#include "support/raw_peer.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr std::size_t kLarge = 524288;

struct Connection {
  Connection() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    channel.setFD(ends[0]);
    peer = RawPeer(ends[1]);
  }

  TCP channel;
  RawPeer peer;
};

}  // namespace

TEST(ReleaseWhenIdle, GivesTheTextBackWhereNothingArrives) {
  Connection connection;
  std::string text(kLarge, 'x');
  release_when_idle(connection.channel, text);
  EXPECT_EQ(text.capacity(), std::string().capacity());
  EXPECT_FALSE(connection.channel.eof());
  EXPECT_FALSE(connection.channel.error());
}

TEST(ReleaseWhenIdle, GivesBackWhatALargeTextLeftToASmallOne) {
  const Connection connection;
  std::string text(kLarge, 'x');
  text = "small";
  release_when_idle(connection.channel, text);
  EXPECT_LT(text.capacity(), kLarge);
}

TEST(ReleaseWhenIdle, KeepsTheTextWhereTheNextMessageIsThere) {
  const Connection connection;
  std::string text(kLarge, 'x');
  connection.peer.send("x");
  release_when_idle(connection.channel, text);
  EXPECT_EQ(text, std::string(kLarge, 'x'));
}

TEST(ReleaseWhenIdle, KeepsTheTextAtTheEndOfTheStream) {
  Connection connection;
  std::string text(kLarge, 'x');
  connection.peer.close();
  release_when_idle(connection.channel, text);
  EXPECT_EQ(text.size(), kLarge);
  EXPECT_FALSE(connection.channel.eof());
}

TEST(ReleaseWhenIdle, DoesNotWaitAfterASmallText) {
  const Connection connection;
  std::string text(1000, 'x');
  const auto begin = std::chrono::steady_clock::now();
  release_when_idle(connection.channel, text);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
  EXPECT_EQ(text.size(), 1000U);
}
