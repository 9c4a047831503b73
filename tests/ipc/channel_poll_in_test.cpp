// SPDX-License-Identifier: MIT
// Asking for input.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <zedipc/tcp.h>

#include <string>

#include "ipc/channels.h"
#include "ipc/stopwatch.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(PollIn, IsFalseWithoutData) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              EXPECT_FALSE(adopted.channel.poll_in(0));
              expect_flags(adopted.channel, false, false);
            }),
            Lines{});
}

TEST(PollIn, IsFalseAfterItsTimeout) {
  Adopted adopted;
  const Stopwatch watch;
  EXPECT_FALSE(adopted.channel.poll_in(300));
  EXPECT_GE(watch.msec(), 300);
}

TEST(PollIn, IsTrueForDataAndLeavesItInPlace) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send("ab");
              EXPECT_TRUE(adopted.channel.poll_in(0));
              EXPECT_TRUE(adopted.channel.poll_in(0));
              expect_flags(adopted.channel, false, false);
            }),
            Lines{});
  Adopted adopted;
  adopted.peer.send("ab");
  EXPECT_TRUE(adopted.channel.poll_in(0));
  char data[2];
  EXPECT_EQ(adopted.channel.read(data, 2, 0), 2);
  EXPECT_EQ(std::string(data, 2), "ab");
  EXPECT_FALSE(adopted.channel.poll_in(0));
}

TEST(PollIn, WaitsWithoutLimitForANegativeTimeout) {
  Adopted adopted;
  bool found = false;
  Background poller([&] { found = adopted.channel.poll_in(-1); });
  ASSERT_TRUE(poller.blocks_in(kInPoll));
  adopted.peer.send("a");
  poller.join();
  EXPECT_TRUE(found);
}

// ---- Channels without a connection

TEST(PollIn, IsTrueWithoutAConnectionAndSetsError) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_TRUE(channel.poll_in(0));
              expect_flags(channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): no connection"});
}

TEST(PollIn, IsTrueOnAListenerAndSetsError) {
  EXPECT_EQ(log_of(
                [] {
                  Listening listening;
                  EXPECT_TRUE(listening.channel.poll_in(-1));
                  expect_flags(listening.channel, false, true);
                },
                "error"),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): not allowed for listener"});
}

// ---- The end and failures

TEST(PollIn, FindsTheEndOfTheStreamWithoutARead) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.close();
              EXPECT_TRUE(adopted.channel.poll_in(0));
              expect_flags(adopted.channel, true, false);
            }),
            Lines{"IPC:debug|PTR->IpcPrivate::poll_in(): recv(MSG_PEEK) returned 0 (eof)"});
}

TEST(PollIn, GoesOnBeingTrueAfterTheEnd) {
  Adopted adopted;
  adopted.peer.close();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(adopted.channel.poll_in(0)) << i;
  expect_flags(adopted.channel, true, false);
}

TEST(PollIn, FindsDataAheadOfTheEndFirst) {
  Adopted adopted;
  adopted.peer.send("a");
  adopted.peer.close();
  EXPECT_TRUE(adopted.channel.poll_in(0));
  expect_flags(adopted.channel, false, false);
}

TEST(PollIn, IsTrueAfterTheEndThoughItTimesOut) {
  Adopted adopted;
  adopted.peer.close();
  EXPECT_TRUE(adopted.channel.poll_in(0));
  Adopted quiet;
  replace_socket(adopted.channel, dup(quiet.channel.getFD()));
  EXPECT_TRUE(adopted.channel.poll_in(0));
  expect_flags(adopted.channel, true, false);
}

TEST(PollIn, IsTrueAfterAnErrorThoughItTimesOut) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.write("x", -1));
  const Stopwatch watch;
  EXPECT_TRUE(adopted.channel.poll_in(200));
  EXPECT_GE(watch.msec(), 200) << "the flag does not spare the wait";
  expect_flags(adopted.channel, false, true);
}

TEST(PollIn, SetsErrorWhenTheConnectionIsReset) {
  EXPECT_EQ(log_of(
                [] {
                  ConnectedTcp connected;
                  connected.peer.reset();
                  EXPECT_TRUE(connected.channel.poll_in(10000));
                  expect_flags(connected.channel, false, true);
                },
                "error"),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): recv(MSG_PEEK) returned -1 (errno=104)"});
}

TEST(PollIn, SetsErrorForPollInErrorAlone) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              channel.setFD(descriptor_in_error());
              EXPECT_TRUE(channel.poll_in(-1));
              expect_flags(channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): poll() returned pf.revents=8 (error)"});
}

TEST(PollIn, SetsEofForAHangUpWithoutData) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              channel.setFD(descriptor_hung_up());
              EXPECT_TRUE(channel.poll_in(-1));
              expect_flags(channel, true, false);
            }),
            Lines{"IPC:debug|PTR->IpcPrivate::poll_in(): poll() returned pf.revents=16 (eof)"});
}

TEST(PollIn, SetsErrorForADescriptorThatIsNotOpen) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              channel.setFD(dup(STDIN_FILENO));
              close(channel.getFD());
              EXPECT_TRUE(channel.poll_in(-1));
              expect_flags(channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): poll() returned pf.revents=32 (error)"});
}

TEST(PollIn, CallsAnErrorAfterTheEndTheEnd) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.close();
              EXPECT_TRUE(adopted.channel.poll_in(0));
              replace_socket(adopted.channel, descriptor_in_error());
              EXPECT_TRUE(adopted.channel.poll_in(0));
              expect_flags(adopted.channel, true, true);
            }),
            (Lines{"IPC:debug|PTR->IpcPrivate::poll_in(): recv(MSG_PEEK) returned 0 (eof)",
                   "IPC:debug|PTR->IpcPrivate::poll_in(): poll() returned pf.revents=8 (eof)"}));
}

TEST(PollIn, SetsErrorWhenPollFails) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              rlimit limit{};
              ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
              const rlimit none{0, limit.rlim_max};
              ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
              EXPECT_TRUE(adopted.channel.poll_in(-1));
              ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): poll() returned -1 (errno=22)"});
}
