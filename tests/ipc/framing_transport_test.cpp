// SPDX-License-Identifier: MIT
// Frames over each kind of channel, and from channel to channel.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <memory>
#include <string>
#include <vector>

#include "ipc/channels.h"
#include "ipc/receive.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// One kind of channel with its raw peer.
struct PipeTransport {
  IPC& channel() { return *accepted.session; }
  RawPeer& peer() { return accepted.peer; }
  AcceptedPipe accepted;
};

struct TcpTransport {
  IPC& channel() { return connected.channel; }
  RawPeer& peer() { return connected.peer; }
  ConnectedTcp connected;
};

struct AdoptedTransport {
  IPC& channel() { return adopted.channel; }
  RawPeer& peer() { return adopted.peer; }
  Adopted adopted;
};

template <typename Transport>
class FrameOver : public testing::Test {};

using Transports = testing::Types<PipeTransport, TcpTransport, AdoptedTransport>;

}  // namespace

TYPED_TEST_SUITE(FrameOver, Transports);

TYPED_TEST(FrameOver, IsSentByteForByte) {
  TypeParam transport;
  EXPECT_TRUE(transport.channel().write_msg(0x4E4659, -2, std::string("a\0b", 3)));
  EXPECT_EQ(transport.peer().receive(15), std::string("\0NFY\0\0\0\x07\xFF\xFF\xFF\xFE"
                                                      "a\0b",
                                                      15));
}

TYPED_TEST(FrameOver, IsReceivedByteForByte) {
  TypeParam transport;
  transport.peer().send(
      std::string("\x51\xA7\xF0\x0D\0\0\0\x07\xFF\xFF\xFF\xFE"
                  "a\0b",
                  15));
  EXPECT_EQ(receive(transport.channel()), std::string("-2:a\0b", 6));
}

TYPED_TEST(FrameOver, CarriesAMegabyteEachWay) {
  TypeParam transport;
  std::string payload;
  while (payload.size() < 1000000) payload += std::to_string(payload.size()) + " ";
  payload.resize(1000000);
  Background sender([&] { transport.peer().send(frame(kId, 7, payload)); });
  EXPECT_EQ(receive(transport.channel()), "7:" + payload);
  sender.join();
  Background writer([&] { EXPECT_TRUE(transport.channel().write_msg(kId, 7, payload)); });
  EXPECT_EQ(transport.peer().receive(payload.size() + 12), frame(kId, 7, payload));
}

TYPED_TEST(FrameOver, ThatIsCutOffEndsWithEof) {
  TypeParam transport;
  transport.peer().send(frame(kId, 7, "abc").substr(0, 13));
  transport.peer().close();
  std::string payload;
  int tag = 0;
  EXPECT_FALSE(transport.channel().read_msg(kId, tag, payload, 100, 10000));
  EXPECT_EQ(payload, std::string("a\0\0", 3));
  EXPECT_TRUE(transport.channel().eof());
}

TEST(Frames, GoFromChannelToChannelInOrder) {
  AdoptedPair pair;
  constexpr int kCount = 500;
  Background writer([&] {
    for (int i = 0; i < kCount; ++i) {
      EXPECT_TRUE(pair.one.write_msg(kId, -i, std::string(static_cast<std::size_t>(i * 7), 'x')));
    }
  });
  for (int i = 0; i < kCount; ++i) {
    const std::string expected =
        std::to_string(-i) + ":" + std::string(static_cast<std::size_t>(i * 7), 'x');
    ASSERT_EQ(receive(pair.other), expected);
  }
}

TEST(Frames, GoBothWaysAtOnce) {
  AdoptedPair pair;
  constexpr int kCount = 500;
  const auto write = [](IPC& channel, char byte) {
    const std::string payload(5000, byte);
    for (int i = 0; i < kCount; ++i) EXPECT_TRUE(channel.write_msg(kId, i, payload));
  };
  const auto read = [](IPC& channel, char byte) {
    const std::string payload(5000, byte);
    for (int i = 0; i < kCount; ++i) {
      ASSERT_EQ(receive(channel), std::to_string(i) + ":" + payload);
    }
  };
  Background first([&] { write(pair.one, 'a'); });
  Background second([&] { write(pair.other, 'b'); });
  Background third([&] { read(pair.other, 'a'); });
  read(pair.one, 'b');
}
