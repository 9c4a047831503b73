// SPDX-License-Identifier: MIT
// Frames that are refused, and what comes after them.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "ipc/channels.h"
#include "ipc/receive.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The error lines of a frame with this length word.
Lines errors_for_length(std::uint32_t length, int size_limit = 100) {
  return log_of(
      [=] {
        Adopted adopted;
        adopted.peer.send(word(kId) + word(length) + word(7));
        EXPECT_EQ(receive(adopted.channel, 0, size_limit), "false");
        EXPECT_FALSE(adopted.channel.error());
        EXPECT_FALSE(adopted.channel.eof());
      },
      "error");
}

class Buffer : public IPC::IpcBuffer {
 public:
  void clear() override { calls.emplace_back("clear"); }
  void resize(int size) override {
    calls.push_back("resize " + std::to_string(size));
    if (throws) throw 17;
    bytes.resize(static_cast<std::size_t>(size));
  }
  void* data() override {
    calls.emplace_back("data");
    return bytes.empty() || hides ? nullptr : bytes.data();
  }

  std::vector<std::string> calls;
  std::string bytes;
  bool throws = false;
  bool hides = false;  // gives null as its address
};

using Calls = std::vector<std::string>;

// The calls for a stream that holds `bytes` and ends.
Calls calls_for(const std::string& bytes) {
  Adopted adopted;
  adopted.peer.send(bytes);
  adopted.peer.close();
  Buffer buffer;
  int tag = 0;
  adopted.channel.read_msg(kId, tag, buffer, 5, 10000);
  return buffer.calls;
}

}  // namespace

TEST(ReadMsgLength, BelowFourIsRefusedWithTheNegativeSize) {
  EXPECT_EQ(errors_for_length(0), Lines{"IPC:error|IPC::read_msg() -> size<0 (-4<0)"});
  EXPECT_EQ(errors_for_length(1), Lines{"IPC:error|IPC::read_msg() -> size<0 (-3<0)"});
  EXPECT_EQ(errors_for_length(2), Lines{"IPC:error|IPC::read_msg() -> size<0 (-2<0)"});
  EXPECT_EQ(errors_for_length(3), Lines{"IPC:error|IPC::read_msg() -> size<0 (-1<0)"});
}

TEST(ReadMsgLength, WithTheSignBitIsRefusedWithTheNegativeSize) {
  EXPECT_EQ(errors_for_length(0xFFFFFFFF), Lines{"IPC:error|IPC::read_msg() -> size<0 (-5<0)"});
  EXPECT_EQ(errors_for_length(0x80000004),
            Lines{"IPC:error|IPC::read_msg() -> size<0 (-2147483648<0)"});
}

// Four less than these is no negative number of 32 bits, but they are negative.
TEST(ReadMsgLength, WithTheSignBitAloneCountsAsNegative) {
  const std::string negative = "IPC:error|IPC::read_msg() -> size<0 (";
  for (const std::uint32_t length : {0x80000000, 0x80000001, 0x80000002, 0x80000003}) {
    const Lines errors = errors_for_length(length);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].substr(0, negative.size()), negative) << errors[0];
  }
}

TEST(ReadMsgLength, OfTheLargestPositiveNumberIsAboveTheLimit) {
  EXPECT_EQ(errors_for_length(0x7FFFFFFF),
            Lines{"IPC:error|IPC::read_msg() -> size>size_limit (2147483643>100)"});
}

TEST(ReadMsgLength, ThatIsRefusedLeavesWhatFollowsTheHeader) {
  Adopted adopted;
  adopted.peer.send(word(kId) + word(3) + word(7) + frame(kId, 8, "next"));
  EXPECT_EQ(receive(adopted.channel), "false");
  EXPECT_EQ(receive(adopted.channel), "8:next");
}

TEST(ReadMsgLength, ThatIsRefusedDoesNotHaveItsHeaderSearched) {
  Adopted adopted;
  // The tag of the refused header, and what follows it, would make an id.
  adopted.peer.send(word(kId) + word(0) + "xx" + word(kId).substr(0, 2) + word(kId).substr(2) +
                    frame(kId, 8, "next"));
  EXPECT_EQ(receive(adopted.channel), "false");
  EXPECT_EQ(receive(adopted.channel), "8:next");
}

// ---- The limit

TEST(ReadMsgLimit, RefusesALargerPayload) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  adopted.peer.send(frame(kId, 7, std::string(100, 'p')));
                  EXPECT_EQ(receive(adopted.channel, 10000, 99), "false");
                  EXPECT_FALSE(adopted.channel.error());
                  EXPECT_FALSE(adopted.channel.eof());
                },
                "error"),
            Lines{"IPC:error|IPC::read_msg() -> size>size_limit (100>99)"});
}

TEST(ReadMsgLimit, AcceptsAPayloadOfItsSize) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, std::string(100, 'p')));
  EXPECT_EQ(receive(adopted.channel, 10000, 100), "7:" + std::string(100, 'p'));
}

TEST(ReadMsgLimit, OfZeroAcceptsEmptyMessagesOnly) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, "") + frame(kId, 8, "p"));
  EXPECT_EQ(receive(adopted.channel, 10000, 0), "7:");
  EXPECT_EQ(receive(adopted.channel, 10000, 0), "false");
}

TEST(ReadMsgLimit, BelowZeroAcceptsNothing) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  adopted.peer.send(frame(kId, 7, ""));
                  EXPECT_EQ(receive(adopted.channel, 10000, -1), "false");
                },
                "error"),
            Lines{"IPC:error|IPC::read_msg() -> size>size_limit (0>-1)"});
}

TEST(ReadMsgLimit, IsCheckedBeforeThePayloadHasCome) {
  Adopted adopted;
  adopted.peer.send(word(kId) + word(0x7FFFFFFF) + word(7));
  EXPECT_EQ(receive(adopted.channel, 0), "false");
  EXPECT_TRUE(adopted.peer.connected());
}

TEST(ReadMsgLimit, HasTheNextCallSearchThroughTheRefusedPayload) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, std::string(5000, 'p')) + frame(kId, 8, "next"));
  EXPECT_EQ(receive(adopted.channel, 10000, 4999), "false");
  EXPECT_EQ(receive(adopted.channel), "8:next");
}

TEST(ReadMsgLimit, LetsAFrameInsideARefusedPayloadBeFound) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, "padding" + frame(kId, 9, "inner") + "padding") +
                    frame(kId, 8, "next"));
  EXPECT_EQ(receive(adopted.channel, 10000, 10), "false");
  EXPECT_EQ(receive(adopted.channel, 10000, 10), "9:inner");
  EXPECT_EQ(receive(adopted.channel, 10000, 10), "8:next");
}

// ---- What the buffer is asked for

TEST(ReadMsgBuffer, IsResizedAndFilledForAMessage) {
  EXPECT_EQ(calls_for(frame(kId, 7, "abc")), (Calls{"resize 3", "data"}));
}

TEST(ReadMsgBuffer, IsOnlyResizedForAnEmptyMessage) {
  EXPECT_EQ(calls_for(frame(kId, 7, "")), Calls{"resize 0"});
}

TEST(ReadMsgBuffer, IsOnlyClearedWhenTheHeaderFails) {
  EXPECT_EQ(calls_for("abc"), Calls{"clear"});
}

TEST(ReadMsgBuffer, IsOnlyClearedWhenTheSearchFails) {
  EXPECT_EQ(calls_for(std::string(50, 'g')), Calls{"clear"});
}

TEST(ReadMsgBuffer, IsOnlyClearedForARefusedFrame) {
  EXPECT_EQ(calls_for(frame(kId, 7, "abcdef")), Calls{"clear"});
  EXPECT_EQ(calls_for(word(kId) + word(2) + word(7)), Calls{"clear"});
}

TEST(ReadMsgBuffer, IsNotClearedWhenThePayloadIsCutShort) {
  EXPECT_EQ(calls_for(frame(kId, 7, "abc").substr(0, 13)), (Calls{"resize 3", "data"}));
}

TEST(ReadMsgBuffer, MayThrowThroughTheCallAfterTheTagIsStored) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, "abc"));
  Buffer buffer;
  buffer.throws = true;
  int tag = 0;
  EXPECT_THROW(adopted.channel.read_msg(kId, tag, buffer, 5, 10000), int);
  EXPECT_EQ(tag, 7);
}

TEST(ReadMsgBuffer, IsNotResizedForANegativeLengthThoughThereIsNoLimit) {
  Adopted adopted;
  adopted.peer.send(word(kId) + word(0x80000000) + word(7));
  adopted.peer.close();
  Buffer buffer;
  buffer.throws = true;
  int tag = 0;
  EXPECT_NO_THROW(adopted.channel.read_msg(kId, tag, buffer, INT_MAX, 10000));
  EXPECT_EQ(buffer.calls, Calls{"clear"});
}

TEST(ReadMsgBuffer, WithoutAnAddressFailsAsAReadToNowhere) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  adopted.peer.send(frame(kId, 7, "abc"));
                  Buffer buffer;
                  buffer.hides = true;
                  int tag = 0;
                  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, buffer, 5, 10000));
                  EXPECT_TRUE(adopted.channel.error());
                  EXPECT_EQ(tag, 7);
                },
                "error"),
            (Lines{"IPC:error|PTR->IpcPrivate::read(): invalid parameter (data=(nil), size=0)",
                   "IPC:error|IPC::read_msg() -> size!=read_bytes (3!=0)"}));
}
