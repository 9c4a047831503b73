// SPDX-License-Identifier: MIT
// Receiving frames: what is found, skipped and stored.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "ipc/channels.h"
#include "ipc/receive.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(ReadMsg, ReadsOneFrameAndLeavesTheNext) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 1, "one") + frame(kId, 2, "two"));
  EXPECT_EQ(receive(adopted.channel), "1:one");
  EXPECT_EQ(receive(adopted.channel), "2:two");
  EXPECT_EQ(receive(adopted.channel, 0), "false");
}

TEST(ReadMsg, TakesATagWithItsSign) {
  Adopted adopted;
  for (const int tag : {-1, INT_MIN, INT_MAX, 0}) {
    adopted.peer.send(frame(kId, static_cast<std::uint32_t>(tag), "p"));
    EXPECT_EQ(receive(adopted.channel), std::to_string(tag) + ":p");
  }
}

TEST(ReadMsg, TakesAnyId) {
  Adopted adopted;
  for (const unsigned id : {0U, 1U, 0x4E4659U, 0x80000000U, UINT_MAX}) {
    adopted.peer.send(frame(id, 3, "p"));
    EXPECT_EQ(receive(adopted.channel, 10000, 100, id), "3:p");
  }
}

TEST(ReadMsg, PutsTogetherAFrameThatComesByteByByte) {
  Adopted adopted;
  std::string received;
  Background reader([&] { received = receive(adopted.channel); });
  for (const char byte : frame(kId, 7, "payload")) {
    ASSERT_TRUE(reader.blocks_in(kInPoll));
    adopted.peer.send(std::string(1, byte));
  }
  reader.join();
  EXPECT_EQ(received, "7:payload");
}

TEST(ReadMsg, LogsEachStep) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send(frame(kId, 7, "abc"));
              EXPECT_EQ(receive(adopted.channel, 4321), "7:abc");
            }),
            (Lines{"IPC:debug|IPC::read_msg(timeout_msec==4321)",
                   "IPC:debug|PTR->IpcPrivate::read() -> 12 bytes read successfully (0 remaining)",
                   "IPC:debug|PTR->IpcPrivate::read() -> 3 bytes read successfully (0 remaining)",
                   "IPC:debug|IPC::read_msg() -> read 3 bytes successfully"}));
}

TEST(ReadMsg, LogsAnEmptyMessage) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send(frame(kId, 7, ""));
              EXPECT_EQ(receive(adopted.channel, -1), "7:");
            }),
            (Lines{"IPC:debug|IPC::read_msg(timeout_msec==-1)",
                   "IPC:debug|PTR->IpcPrivate::read() -> 12 bytes read successfully (0 remaining)",
                   "IPC:debug|IPC::read_msg() -> size==0"}));
}

TEST(ReadMsg, IsNotDisturbedByItsIdInAPayload) {
  Adopted adopted;
  const std::string inner = frame(kId, 9, "inner");
  adopted.peer.send(frame(kId, 1, inner + word(kId) + word(kId)) + frame(kId, 2, "next"));
  EXPECT_EQ(receive(adopted.channel), "1:" + inner + word(kId) + word(kId));
  EXPECT_EQ(receive(adopted.channel), "2:next");
}

// ---- The search for a frame

TEST(ReadMsg, SkipsGarbageAheadOfAFrame) {
  Adopted adopted;
  adopted.peer.send("12345" + frame(kId, 7, "abc"));
  EXPECT_EQ(receive(adopted.channel), "7:abc");
  EXPECT_FALSE(adopted.channel.error());
}

TEST(ReadMsg, SkipsGarbageOfAnyLength) {
  Adopted adopted;
  for (std::size_t length = 1; length <= 40; ++length) {
    adopted.peer.send(std::string(length, 'g') + frame(kId, 7, "abc"));
    EXPECT_EQ(receive(adopted.channel), "7:abc") << length;
  }
}

TEST(ReadMsg, SkipsMuchGarbage) {
  Adopted adopted;
  std::string received;
  Background reader([&] { received = receive(adopted.channel); });
  adopted.peer.send(std::string(200000, 'g') + frame(kId, 7, "abc"));
  reader.join();
  EXPECT_EQ(received, "7:abc");
}

TEST(ReadMsg, SkipsAFrameWithAnotherId) {
  Adopted adopted;
  adopted.peer.send(frame(kId + 1, 1, "other") + frame(kId, 2, "mine"));
  EXPECT_EQ(receive(adopted.channel), "2:mine");
}

TEST(ReadMsg, FindsAnIdThatBeginsInsideGarbageLikeIt) {
  Adopted adopted;
  const std::string id = word(kId);
  for (std::size_t part = 1; part < 4; ++part) {
    adopted.peer.send(id.substr(0, part) + frame(kId, 7, "abc"));
    EXPECT_EQ(receive(adopted.channel), "7:abc") << part;
  }
}

TEST(ReadMsg, FindsAnIdThatOverlapsItself) {
  Adopted adopted;
  const std::string garbage = "\x01\x01\x01";
  adopted.peer.send(garbage + frame(0x01010102, 7, "abc"));
  EXPECT_EQ(receive(adopted.channel, 10000, 100, 0x01010102), "7:abc");
}

TEST(ReadMsg, SearchesByteByByteAndSilently) {
  const std::string one_byte =
      "IPC:debug|PTR->IpcPrivate::read() -> 1 bytes read successfully (0 remaining)";
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send("123" + frame(kId, 7, "abcd"));
              EXPECT_EQ(receive(adopted.channel), "7:abcd");
            }),
            (Lines{"IPC:debug|IPC::read_msg(timeout_msec==10000)",
                   "IPC:debug|PTR->IpcPrivate::read() -> 12 bytes read successfully (0 remaining)",
                   one_byte, one_byte, one_byte,
                   "IPC:debug|PTR->IpcPrivate::read() -> 4 bytes read successfully (0 remaining)",
                   "IPC:debug|IPC::read_msg() -> read 4 bytes successfully"}));
}

// ---- The end of the stream and failures

TEST(ReadMsg, FailsAtTheEndOfTheStreamAheadOfAFrame) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.close();
              EXPECT_EQ(receive(adopted.channel), "false");
              EXPECT_TRUE(adopted.channel.eof());
              EXPECT_FALSE(adopted.channel.error());
            }),
            (Lines{"IPC:debug|IPC::read_msg(timeout_msec==10000)",
                   "IPC:debug|PTR->IpcPrivate::read(): recv() returned 0 (eof)"}));
}

TEST(ReadMsg, FailsAtTheEndOfTheStreamInAHeader) {
  for (std::size_t length = 1; length < 12; ++length) {
    Adopted adopted;
    adopted.peer.send(frame(kId, 7, "abc").substr(0, length));
    adopted.peer.close();
    EXPECT_EQ(receive(adopted.channel), "false") << length;
    EXPECT_TRUE(adopted.channel.eof()) << length;
  }
}

TEST(ReadMsg, FailsAtTheEndOfTheStreamInTheSearch) {
  Adopted adopted;
  adopted.peer.send(std::string(30, 'g'));
  adopted.peer.close();
  EXPECT_EQ(receive(adopted.channel), "false");
  EXPECT_TRUE(adopted.channel.eof());
}

TEST(ReadMsg, FailsAtTheEndOfTheStreamInAPayloadAndKeepsItsLength) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  adopted.peer.send(frame(kId, 7, "abcde").substr(0, 15));
                  adopted.peer.close();
                  std::string payload = "0123456789";
                  int tag = 0;
                  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, 100, 10000));
                  EXPECT_EQ(payload, "abc34") << "the old bytes behind what came";
                  EXPECT_EQ(tag, 7);
                  EXPECT_TRUE(adopted.channel.eof());
                  EXPECT_FALSE(adopted.channel.error());
                },
                "error"),
            Lines{"IPC:error|IPC::read_msg() -> size!=read_bytes (5!=3)"});
}

TEST(ReadMsg, FailsWithoutAConnection) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_EQ(receive(channel, -1), "false");
              EXPECT_TRUE(channel.error());
            }),
            (Lines{"IPC:debug|IPC::read_msg(timeout_msec==-1)",
                   "IPC:error|PTR->IpcPrivate::read(): no connection"}));
}

TEST(ReadMsg, FailsOnAListener) {
  EXPECT_EQ(log_of(
                [] {
                  Listening listening;
                  EXPECT_EQ(receive(listening.channel, -1), "false");
                },
                "error"),
            Lines{"IPC:error|PTR->IpcPrivate::read(): not allowed for listener"});
}

TEST(ReadMsg, FailsWhenTheConnectionIsReset) {
  ConnectedTcp connected;
  connected.peer.reset();
  EXPECT_EQ(receive(connected.channel), "false");
  EXPECT_TRUE(connected.channel.error());
  EXPECT_FALSE(connected.channel.eof());
}

TEST(ReadMsg, LeavesTheChannelConnectedWhenItFails) {
  Adopted adopted;
  const int fd = adopted.channel.getFD();
  adopted.peer.close();
  EXPECT_EQ(receive(adopted.channel), "false");
  EXPECT_EQ(adopted.channel.getFD(), fd);
}
