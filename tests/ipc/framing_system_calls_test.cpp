// SPDX-License-Identifier: MIT
// The waits of a frame, one by one, and failures at places where they are rare.
#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "ipc/channels.h"
#include "ipc/receive.h"
#include "ipc/system_calls.h"
#include "log/log.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The timeouts of the waits for a frame whose bytes come in chunks of these sizes.
Timeouts waits(int timeout_msec, const std::string& bytes, const std::vector<std::size_t>& chunks) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  std::vector<Answer> answers;
  std::size_t at = 0;
  for (const std::size_t chunk : chunks) {
    Answer answer = kReadable;
    answer.meanwhile = [&adopted, sent = bytes.substr(at, chunk)] { adopted.peer.send(sent); };
    answers.push_back(answer);
    at += chunk;
  }
  calls.answer_poll(answers);
  EXPECT_EQ(at, bytes.size());
  EXPECT_EQ(receive(adopted.channel, timeout_msec), "7:abcdef");
  return calls.poll_timeouts();
}

const std::string kWhole = frame(kId, 7, "abcdef");

}  // namespace

TEST(ReadMsgWaits, AreTheCallersForTheFirstByteAndTheFloorForTheRest) {
  EXPECT_EQ(waits(25, kWhole, {3, 4, 5, 1, 5}), (Timeouts{25, 10000, 10000, 10000, 10000}));
}

TEST(ReadMsgWaits, HaveNoLimitOnlyForTheFirstByte) {
  EXPECT_EQ(waits(-1, kWhole, {3, 9, 2, 4}), (Timeouts{-1, 10000, 10000, 10000}));
}

TEST(ReadMsgWaits, OfMoreThanTheFloorHoldForThePayloadAndNotForTheHeader) {
  EXPECT_EQ(waits(20000, kWhole, {3, 9, 2, 4}), (Timeouts{20000, 10000, 20000, 20000}));
}

TEST(ReadMsgWaits, OfTheFloorStayTheFloor) {
  EXPECT_EQ(waits(10000, kWhole, {12, 6}), (Timeouts{10000, 10000}));
}

TEST(ReadMsgWaits, OfTheSearchAreTheFloor) {
  EXPECT_EQ(waits(25, "gg" + kWhole, {12, 1, 1, 6}), (Timeouts{25, 10000, 10000, 10000}));
}

TEST(ReadMsgWaits, OfTheSearchAreTheCallersAboveTheFloor) {
  EXPECT_EQ(waits(20000, "gg" + kWhole, {12, 1, 1, 6}), (Timeouts{20000, 20000, 20000, 20000}));
}

TEST(ReadMsgWaits, AreFewForAMegabyteOfGarbage) {
  Adopted adopted;
  const SystemCalls calls(adopted.channel.getFD());
  std::thread peer(
      [&] { adopted.peer.send(std::string(1 << 20, 'g') + frame(kId, 7, "") + "next"); });
  EXPECT_EQ(receive(adopted.channel), "7:");
  peer.join();
  EXPECT_LT(calls.recv_calls(), 3000);
  EXPECT_LT(calls.poll_timeouts().size(), 3000U);
}

TEST(ReadMsgWaits, AreTwoForAFrameThatIsThere) {
  Adopted adopted;
  const SystemCalls calls(adopted.channel.getFD());
  adopted.peer.send(kWhole);
  EXPECT_EQ(receive(adopted.channel), "7:abcdef");
  EXPECT_EQ(calls.recv_calls(), 2);
}

// ---- Failures

TEST(ReadMsgSystemCalls, FailWithAnErrorInThePayload) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  SystemCalls calls(adopted.channel.getFD());
                  adopted.peer.send(kWhole);
                  calls.answer_poll({kReadable, {-1, ENOMEM}});
                  std::string payload;
                  int tag = 0;
                  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, 100, 0));
                  EXPECT_EQ(payload, std::string(6, '\0'));
                  EXPECT_EQ(tag, 7);
                  EXPECT_TRUE(adopted.channel.error());
                },
                "error"),
            (Lines{"IPC:error|PTR->IpcPrivate::read(): poll() returned -1 (errno=12)",
                   "IPC:error|IPC::read_msg() -> size!=read_bytes (6!=0)"}));
}

TEST(ReadMsgSystemCalls, FailWithAnErrorInTheHeader) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  SystemCalls calls(adopted.channel.getFD());
                  calls.answer_poll({{-1, ENOMEM}});
                  EXPECT_EQ(receive(adopted.channel), "false");
                  EXPECT_TRUE(adopted.channel.error());
                },
                "error"),
            Lines{"IPC:error|PTR->IpcPrivate::read(): poll() returned -1 (errno=12)"});
}

TEST(WriteMsgSystemCalls, SetErrorWhenThePayloadFails) {
  EXPECT_EQ(log_of(
                [] {
                  Adopted adopted;
                  SystemCalls calls(adopted.channel.getFD());
                  calls.answer_send({{12}, {-1, EPIPE}});
                  EXPECT_FALSE(adopted.channel.write_msg(1, 2, "abc", 3));
                  EXPECT_TRUE(adopted.channel.error());
                },
                "error"),
            (Lines{"IPC:error|PTR->IpcPrivate::write(): send() returned -1 (errno=32)",
                   "IPC:error|IPC::write_msg() -> write data (3 bytes)"}));
}

TEST(WriteMsgSystemCalls, AreTwoForAMessageAndOneForAnEmptyOne) {
  Adopted adopted;
  const SystemCalls calls(adopted.channel.getFD());
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, "abc", 3));
  EXPECT_EQ(calls.send_calls(), 2);
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, nullptr, 0));
  EXPECT_EQ(calls.send_calls(), 3);
}

// ---- The log channel

namespace {

class Throwing : public IPC::IpcBuffer {
 public:
  void clear() override {}
  void resize(int) override { throw 17; }
  void* data() override { return nullptr; }
};

}  // namespace

TEST(ReadMsgLogChannel, IsRestoredWhenTheBufferThrows) {
  Adopted adopted;
  adopted.peer.send(kWhole);
  Throwing buffer;
  int tag = 0;
  dbg_log_channel() = kLogNotifyClient;
  EXPECT_THROW(adopted.channel.read_msg(kId, tag, buffer, 100, 0), int);
  EXPECT_EQ(dbg_log_channel(), kLogNotifyClient);
}
