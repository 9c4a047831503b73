// SPDX-License-Identifier: MIT
// Raw writes.
#include <gtest/gtest.h>
#include <signal.h>
#include <zedipc/tcp.h>

#include <string>

#include "ipc/channels.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(Write, SendsTheBytes) {
  Adopted adopted;
  EXPECT_TRUE(adopted.channel.write("a\0b", 3));
  EXPECT_EQ(adopted.peer.receive(3), std::string("a\0b", 3));
  EXPECT_FALSE(adopted.channel.error());
}

TEST(Write, LogsNothingWhenItSucceeds) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              EXPECT_TRUE(adopted.channel.write("abc", 3));
            }),
            Lines{});
}

// ---- Nothing to write

TEST(WriteOfNothing, SucceedsOnAClosedChannelWithoutData) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_TRUE(channel.write(nullptr, 0));
              EXPECT_FALSE(channel.error());
              EXPECT_FALSE(channel.eof());
            }),
            Lines{});
}

TEST(WriteOfNothing, SucceedsOnAListener) {
  Listening listening;
  EXPECT_TRUE(listening.channel.write("x", 0));
  EXPECT_FALSE(listening.channel.error());
}

TEST(WriteOfNothing, SendsNothing) {
  Adopted adopted;
  EXPECT_TRUE(adopted.channel.write("x", 0));
  EXPECT_TRUE(adopted.channel.write("y", 1));
  EXPECT_EQ(adopted.peer.receive(1), "y");
}

TEST(WriteOfNothing, SucceedsOnAChannelInError) {
  TCP channel;
  EXPECT_FALSE(channel.write("x", 1));
  EXPECT_TRUE(channel.write("x", 0));
  EXPECT_TRUE(channel.error());
}

// ---- Bad arguments

TEST(WriteOfNoData, FailsAndSaysSoWithASizeOfZero) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              EXPECT_FALSE(adopted.channel.write(nullptr, 5));
              EXPECT_TRUE(adopted.channel.error());
              EXPECT_FALSE(adopted.channel.eof());
            }),
            Lines{"IPC:error|PTR->IpcPrivate::write(): invalid parameter (data=(nil), size=0)"});
}

TEST(WriteOfANegativeSize, FailsAndSaysSoWithASizeOfZero) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              EXPECT_FALSE(adopted.channel.write("x", -7));
              EXPECT_TRUE(adopted.channel.error());
            }),
            Lines{"IPC:error|PTR->IpcPrivate::write(): invalid parameter (data=PTR, size=0)"});
}

TEST(WriteOfANegativeSize, SendsNothingAndLeavesTheChannelUsable) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.write("x", -1));
  EXPECT_TRUE(adopted.channel.write("y", 1));
  EXPECT_EQ(adopted.peer.receive(1), "y");
  EXPECT_TRUE(adopted.channel.error()) << "the flag stays";
}

TEST(WriteOfNoData, OnAClosedChannelGivesBothMessages) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_FALSE(channel.write(nullptr, 5));
              EXPECT_TRUE(channel.error());
            }),
            (Lines{"IPC:error|PTR->IpcPrivate::write(): invalid parameter (data=(nil), size=0)",
                   "IPC:error|PTR->IpcPrivate::write(): no connection"}));
}

TEST(WriteOfNoData, OnAListenerGivesBothMessages) {
  EXPECT_EQ(log_of(
                [] {
                  Listening listening;
                  EXPECT_FALSE(listening.channel.write(nullptr, 5));
                },
                "error"),
            (Lines{"IPC:error|PTR->IpcPrivate::write(): invalid parameter (data=(nil), size=0)",
                   "IPC:error|PTR->IpcPrivate::write(): not allowed for listener"}));
}

// ---- Channels that cannot be written to

TEST(Write, FailsWithoutAConnection) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_FALSE(channel.write("x", 1));
              EXPECT_TRUE(channel.error());
              EXPECT_FALSE(channel.eof());
            }),
            Lines{"IPC:error|PTR->IpcPrivate::write(): no connection"});
}

TEST(Write, FailsOnAListener) {
  EXPECT_EQ(log_of(
                [] {
                  Listening listening;
                  EXPECT_FALSE(listening.channel.write("x", 1));
                  EXPECT_TRUE(listening.channel.error());
                  EXPECT_FALSE(listening.channel.eof());
                },
                "error"),
            Lines{"IPC:error|PTR->IpcPrivate::write(): not allowed for listener"});
}

// ---- Failing sends

TEST(Write, FailsWhenThePeerIsGone) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.close();
              EXPECT_FALSE(adopted.channel.write("x", 1));
              EXPECT_TRUE(adopted.channel.error());
              EXPECT_FALSE(adopted.channel.eof());
            }),
            Lines{"IPC:error|PTR->IpcPrivate::write(): send() returned -1 (errno=32)"});
}

TEST(Write, FailsOnWhatIsNoSocket) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              channel.setFD(descriptor_hung_up());
              EXPECT_FALSE(channel.write("x", 1));
            }),
            Lines{"IPC:error|PTR->IpcPrivate::write(): send() returned -1 (errno=88)"});
}

TEST(Write, RaisesNoSignalWhenThePeerIsGone) {
  ASSERT_NE(signal(SIGPIPE, SIG_DFL), SIG_ERR);
  Adopted adopted;
  adopted.peer.close();
  EXPECT_FALSE(adopted.channel.write("x", 1));
  EXPECT_FALSE(adopted.channel.write("x", 1));
}

TEST(Write, LeavesTheChannelConnectedWhenItFails) {
  Adopted adopted;
  const int fd = adopted.channel.getFD();
  adopted.peer.close();
  EXPECT_FALSE(adopted.channel.write("x", 1));
  EXPECT_EQ(adopted.channel.getFD(), fd);
}
