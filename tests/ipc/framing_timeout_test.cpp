// SPDX-License-Identifier: MIT
// How long a frame is waited for.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <string>

#include "ipc/channels.h"
#include "ipc/receive.h"
#include "ipc/stopwatch.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr long kFloor = 10000;
constexpr long kGenerous = 25000;  // for what takes the floor, on a machine that is busy

// Expects that receiving fails after the floor and not later, without a flag.
void expect_failure_after_floor(Adopted& adopted, int timeout_msec) {
  const Stopwatch watch;
  EXPECT_EQ(receive(adopted.channel, timeout_msec), "false");
  EXPECT_GE(watch.msec(), kFloor);
  EXPECT_LT(watch.msec(), kGenerous);
  EXPECT_FALSE(adopted.channel.eof());
  EXPECT_FALSE(adopted.channel.error());
}

}  // namespace

TEST(ReadMsgTimeout, OfZeroWithoutDataFailsAtOnceWithoutAnErrorLine) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              EXPECT_EQ(receive(adopted.channel, 0), "false");
              EXPECT_FALSE(adopted.channel.eof());
              EXPECT_FALSE(adopted.channel.error());
            }),
            Lines{"IPC:debug|IPC::read_msg(timeout_msec==0)"});
}

TEST(ReadMsgTimeout, EndsTheWaitForTheFirstByte) {
  Adopted adopted;
  const Stopwatch watch;
  EXPECT_EQ(receive(adopted.channel, 300), "false");
  EXPECT_GE(watch.msec(), 300);
  EXPECT_LT(watch.msec(), 9000);
}

TEST(ReadMsgTimeout, OfZeroTakesAFrameThatIsThere) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, "abc"));
  EXPECT_EQ(receive(adopted.channel, 0), "7:abc");
}

TEST(ReadMsgTimeout, BelowZeroWaitsUntilAFrameComes) {
  Adopted adopted;
  std::string received;
  Background reader([&] { received = receive(adopted.channel, -1); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.peer.send(frame(kId, 7, "abc"));
  reader.join();
  EXPECT_EQ(received, "7:abc");
}

TEST(ReadMsgTimeout, OfZeroStillWaitsForTheRestOfAFrame) {
  Adopted adopted;
  const std::string bytes = frame(kId, 7, "abc");
  std::string received;
  adopted.peer.send(bytes.substr(0, 5));
  Background reader([&] { received = receive(adopted.channel, 0); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.peer.send(bytes.substr(5, 8));
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.peer.send(bytes.substr(13));
  reader.join();
  EXPECT_EQ(received, "7:abc");
}

// ---- The floor of ten seconds, at each place where a peer can stall

TEST(ReadMsgFloor, HoldsForTheRestOfAHeader) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, "abc").substr(0, 3));
  expect_failure_after_floor(adopted, 0);
}

TEST(ReadMsgFloor, EndsTheWaitForTheRestOfAHeaderWithoutLimit) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, "abc").substr(0, 11));
  expect_failure_after_floor(adopted, -1);
}

TEST(ReadMsgFloor, HoldsForTheSearch) {
  Adopted adopted;
  adopted.peer.send("some garbage");
  expect_failure_after_floor(adopted, 100);
}

TEST(ReadMsgFloor, EndsASearchWithoutLimit) {
  Adopted adopted;
  adopted.peer.send("some garbage, and more");
  expect_failure_after_floor(adopted, -1);
}

TEST(ReadMsgFloor, HoldsForAPayload) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  adopted.peer.send(frame(kId, 7, "abc").substr(0, 14));
                  std::string payload;
                  int tag = 0;
                  const Stopwatch watch;
                  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, 100, 0));
                  EXPECT_GE(watch.msec(), kFloor);
                  EXPECT_EQ(payload, std::string("ab\0", 3));
                  EXPECT_EQ(tag, 7);
                  EXPECT_FALSE(adopted.channel.eof());
                  EXPECT_FALSE(adopted.channel.error());
                },
                "error"),
            Lines{"IPC:error|IPC::read_msg() -> size!=read_bytes (3!=2)"});
}

TEST(ReadMsgFloor, EndsTheWaitForAPayloadWithoutLimit) {
  Adopted adopted;
  adopted.peer.send(frame(kId, 7, "abc").substr(0, 12));
  std::string payload;
  int tag = 0;
  const Stopwatch watch;
  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, 100, -1));
  EXPECT_GE(watch.msec(), kFloor);
  EXPECT_LT(watch.msec(), kGenerous);
  EXPECT_EQ(payload, std::string(3, '\0'));
}

TEST(ReadMsgFloor, StartsAfreshWithEachChunk) {
  Adopted adopted;
  const std::string bytes = frame(kId, 7, "abc");
  std::string received;
  const Stopwatch watch;
  adopted.peer.send(bytes.substr(0, 4));
  Background reader([&] { received = receive(adopted.channel, 0); });
  pause(6000);
  adopted.peer.send(bytes.substr(4, 9));
  pause(6000);
  adopted.peer.send(bytes.substr(13));
  reader.join();
  EXPECT_EQ(received, "7:abc");
  EXPECT_GE(watch.msec(), 12000);
}

// ---- What is left in the stream

TEST(ReadMsgTimeout, LosesTheHalfHeaderAndSearchesOnInTheNextCall) {
  Adopted adopted;
  const std::string bytes = frame(kId, 7, "abc");
  adopted.peer.send(bytes.substr(0, 3));
  EXPECT_EQ(receive(adopted.channel, 0), "false");
  adopted.peer.send(bytes.substr(3) + frame(kId, 8, "next"));
  EXPECT_EQ(receive(adopted.channel), "8:next");
}

TEST(ReadMsgTimeout, LeavesTheRestOfAPayloadToBeSearched) {
  Adopted adopted;
  const std::string bytes = frame(kId, 7, "abc" + frame(kId, 9, "inner"));
  adopted.peer.send(bytes.substr(0, 14));
  std::string payload;
  int tag = 0;
  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, 100, 0));
  adopted.peer.send(bytes.substr(14));
  EXPECT_EQ(receive(adopted.channel), "9:inner");
}
