// SPDX-License-Identifier: MIT
// What tells the dispatcher that it may call again.
#include <gtest/gtest.h>

#include <string>

#include "ipc/channels.h"
#include "ipc/probe.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

using AdoptedProbe = AdoptedChannel<Probe>;

// Whether a read leaves this channel armed.
bool read_arms(Probe& channel, int size, int timeout_msec) {
  EXPECT_FALSE(channel.armed());
  char data[16];
  channel.read(data, size, timeout_msec, timeout_msec);
  return channel.armed();
}

// What a frame read through read_msg leaves behind.
bool read_msg_arms(AdoptedProbe& adopted, const std::string& bytes, bool expected) {
  adopted.peer.send(bytes);
  int tag = 0;
  std::string payload;
  EXPECT_EQ(adopted.channel.read_msg(1, tag, payload, 10, 0), expected);
  return adopted.channel.armed();
}

}  // namespace

TEST(ReadArms, WhenItReadsAll) {
  AdoptedProbe adopted;
  adopted.peer.send("abc");
  EXPECT_TRUE(read_arms(adopted.channel, 3, 0));
}

TEST(ReadArms, AfterATimeout) {
  AdoptedProbe adopted;
  EXPECT_TRUE(read_arms(adopted.channel, 3, 0));
}

TEST(ReadArms, AtTheEndOfTheStream) {
  AdoptedProbe adopted;
  adopted.peer.close();
  EXPECT_TRUE(read_arms(adopted.channel, 3, 0));
}

TEST(ReadArms, WithASizeOfZero) {
  AdoptedProbe adopted;
  EXPECT_TRUE(read_arms(adopted.channel, 0, 0));
  EXPECT_FALSE(adopted.channel.error());
}

TEST(ReadArms, WithABadArgument) {
  AdoptedProbe adopted;
  EXPECT_TRUE(read_arms(adopted.channel, -1, 0));
}

TEST(ReadArms, WithoutAConnectionAndStaysLocked) {
  Probe channel;
  EXPECT_TRUE(read_arms(channel, 3, 0));
  EXPECT_TRUE(channel.locked());
}

TEST(ReadArms, OnAListener) {
  Probe channel;
  ASSERT_TRUE(channel.listen(0, "127.0.0.1"));
  EXPECT_TRUE(read_arms(channel, 3, 0));
}

TEST(ReadArms, OnADescriptorInError) {
  Probe channel;
  channel.setFD(descriptor_in_error());
  EXPECT_TRUE(read_arms(channel, 3, 0));
}

TEST(ReadDoesNotArm, WhenToldSo) {
  AdoptedProbe adopted;
  adopted.peer.send("abc");
  char data[3];
  EXPECT_EQ(adopted.channel.inner().read(data, 3, 0, 0, false), 3);
  EXPECT_EQ(adopted.channel.inner().read(data, 3, 0, 0, false), 0);
  adopted.peer.close();
  EXPECT_EQ(adopted.channel.inner().read(data, 3, 0, 0, false), 0);
  EXPECT_FALSE(adopted.channel.armed());
}

// ---- poll_in

TEST(PollInDoesNotArm, ForData) {
  AdoptedProbe adopted;
  adopted.peer.send("a");
  EXPECT_TRUE(adopted.channel.poll_in(0));
  EXPECT_FALSE(adopted.channel.armed());
}

TEST(PollInDoesNotArm, ForNothing) {
  AdoptedProbe adopted;
  EXPECT_FALSE(adopted.channel.poll_in(0));
  EXPECT_FALSE(adopted.channel.armed());
}

TEST(PollInArms, AtTheEndOfTheStream) {
  AdoptedProbe adopted;
  adopted.peer.close();
  EXPECT_TRUE(adopted.channel.poll_in(0));
  EXPECT_TRUE(adopted.channel.armed());
}

TEST(PollInArms, WithoutAConnection) {
  Probe channel;
  EXPECT_TRUE(channel.poll_in(0));
  EXPECT_TRUE(channel.armed());
}

TEST(PollInArms, ForAFlagThatWasSetEarlier) {
  AdoptedProbe adopted;
  EXPECT_FALSE(adopted.channel.write("x", -1));
  EXPECT_FALSE(adopted.channel.armed());
  EXPECT_TRUE(adopted.channel.poll_in(0));
  EXPECT_TRUE(adopted.channel.armed());
}

TEST(WriteDoesNotArm, WhetherItSucceedsOrFails) {
  AdoptedProbe adopted;
  EXPECT_TRUE(adopted.channel.write("x", 1));
  EXPECT_FALSE(adopted.channel.write("x", -1));
  EXPECT_FALSE(adopted.channel.armed());
}

// ---- read_msg

TEST(ReadMsgArms, WithAPayload) {
  AdoptedProbe adopted;
  EXPECT_TRUE(read_msg_arms(adopted, frame(1, 0, "abc"), true));
}

TEST(ReadMsgArms, WithAPayloadThatIsCutShort) {
  AdoptedProbe adopted;
  adopted.peer.send(frame(1, 0, "abc").substr(0, 14));
  adopted.peer.close();
  int tag = 0;
  std::string payload;
  EXPECT_FALSE(adopted.channel.read_msg(1, tag, payload, 10, 0));
  EXPECT_TRUE(adopted.channel.armed());
}

TEST(ReadMsgDoesNotArm, WithoutData) {
  AdoptedProbe adopted;
  EXPECT_FALSE(read_msg_arms(adopted, "", false));
}

TEST(ReadMsgDoesNotArm, WithAnEmptyMessage) {
  AdoptedProbe adopted;
  EXPECT_FALSE(read_msg_arms(adopted, frame(1, 0, ""), true));
}

TEST(ReadMsgDoesNotArm, WithAFrameAboveTheLimit) {
  AdoptedProbe adopted;
  EXPECT_FALSE(read_msg_arms(adopted, frame(1, 0, "12345678901"), false));
}

TEST(ReadMsgDoesNotArm, WithALengthThatMakesNoSense) {
  AdoptedProbe adopted;
  EXPECT_FALSE(read_msg_arms(adopted, word(1) + word(3) + word(0), false));
}

TEST(ReadMsgDoesNotArm, AtTheEndOfTheStreamInAHeader) {
  AdoptedProbe adopted;
  adopted.peer.send("abc");
  adopted.peer.close();
  int tag = 0;
  std::string payload;
  EXPECT_FALSE(adopted.channel.read_msg(1, tag, payload, 10, 0));
  EXPECT_TRUE(adopted.channel.eof());
  EXPECT_FALSE(adopted.channel.armed());
}
