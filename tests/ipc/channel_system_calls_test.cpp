// SPDX-License-Identifier: MIT
// Answers of the kernel that it cannot be made to give, or not when a test needs them.
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "ipc/channels.h"
#include "ipc/probe.h"
#include "ipc/system_calls.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

using AdoptedProbe = AdoptedChannel<Probe>;

const Answer kInterrupted = {-1, EINTR, 0};
const Answer kNothing = {1, 0, 0};

Answer polled(int revents) { return {1, 0, static_cast<short>(revents)}; }

// A call that takes until it is let go.
struct Slow {
  Answer answer(Answer last) {
    last.meanwhile = [this] {
      entered = true;
      EXPECT_TRUE(eventually([this] { return go_on.load(); }));
    };
    return last;
  }

  std::atomic<bool> entered{false};
  std::atomic<bool> go_on{false};
};

}  // namespace

// ---- read

TEST(ReadSystemCalls, PollsWithTheFirstTimeoutUntilBytesCome) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_poll({kInterrupted, kNothing, kInterrupted});
  adopted.peer.send("a");
  char data[3];
  EXPECT_EQ(adopted.channel.read(data, 3, 1234, 1), 1);
  EXPECT_EQ(calls.poll_timeouts(), (Timeouts{1234, 1234, 1234, 1234, 1}));
}

TEST(ReadSystemCalls, PollsWithTheNextTimeoutOnceBytesHaveCome) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  adopted.peer.send("abc");
  calls.answer_poll({kReadable, kInterrupted, kNothing, kReadable});
  calls.answer_recv({{1}, {1}});
  char data[3];
  EXPECT_EQ(adopted.channel.read(data, 3, 1234, 567), 3);
  EXPECT_EQ(calls.poll_timeouts(), (Timeouts{1234, 567, 567, 567, 567}));
}

TEST(ReadSystemCalls, PollsAgainAfterAnInterruptedRecv) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_recv({kInterrupted, kInterrupted});
  adopted.peer.send("a");
  char data;
  EXPECT_EQ(adopted.channel.read(&data, 1, 1234, 567), 1);
  EXPECT_EQ(data, 'a');
  EXPECT_EQ(calls.poll_timeouts(), (Timeouts{1234, 1234, 1234}));
  expect_flags(adopted.channel, false, false);
}

TEST(ReadSystemCalls, AsksNothingForASizeOfZero) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  char data;
  EXPECT_EQ(adopted.channel.read(&data, 0, 1234, 567), 0);
  EXPECT_EQ(calls.poll_timeouts(), Timeouts{});
}

TEST(ReadSystemCalls, SetErrorWhenRecvFails) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              SystemCalls calls(adopted.channel.getFD());
              calls.answer_recv({{-1, ENOMEM}});
              adopted.peer.send("a");
              char data;
              EXPECT_EQ(adopted.channel.read(&data, 1, 0, 0), 0);
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): recv() returned -1 (errno=12)"});
}

TEST(ReadSystemCalls, SetBothFlagsForAHangUpWithAnError) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              SystemCalls calls(adopted.channel.getFD());
              calls.answer_poll({polled(POLLHUP | POLLERR)});
              char data;
              EXPECT_EQ(adopted.channel.read(&data, 1, 0, 0), 0);
              expect_flags(adopted.channel, true, true);
            }),
            Lines{"IPC:debug|PTR->IpcPrivate::read(): poll() returned pf.revents=24 (eof)"});
}

TEST(ReadSystemCalls, SetBothFlagsForAHangUpWithABadDescriptor) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_poll({polled(POLLHUP | POLLNVAL)});
  char data;
  EXPECT_EQ(adopted.channel.read(&data, 1, 0, 0), 0);
  expect_flags(adopted.channel, true, true);
}

TEST(ReadSystemCalls, PreferInputToAnErrorAndAHangUp) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  adopted.peer.send("a");
  calls.answer_poll({polled(POLLIN | POLLHUP | POLLERR | POLLNVAL)});
  char data;
  EXPECT_EQ(adopted.channel.read(&data, 1, 0, 0), 1);
  expect_flags(adopted.channel, false, false);
}

TEST(ReadSystemCalls, ShowReventsAsASigned16BitNumber) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              SystemCalls calls(adopted.channel.getFD());
              calls.answer_poll({polled(0x8000 | POLLERR)});
              char data;
              EXPECT_EQ(adopted.channel.read(&data, 1, 0, 0), 0);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): poll() returned pf.revents=-32760 (error)"});
}

TEST(ReadSystemCalls, GoToTheSocketThatTheChannelHasAtTheTime) {
  AdoptedProbe adopted;
  AdoptedProbe other;
  SystemCalls calls(adopted.channel.getFD());
  const int fd = adopted.channel.getFD();
  Answer switched = kNothing;
  switched.meanwhile = [&] { adopted.channel.inner().fd = other.channel.getFD(); };
  calls.answer_poll({switched});
  other.peer.send("o");
  adopted.peer.send("a");
  char data;
  EXPECT_EQ(adopted.channel.read(&data, 1, 10000, 0), 1);
  EXPECT_EQ(data, 'o');
  adopted.channel.inner().fd = fd;
}

// ---- poll_in

TEST(PollInSystemCalls, PollWithTheTimeoutInFullAfterAnInterruption) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_poll({kInterrupted, kInterrupted});
  EXPECT_FALSE(adopted.channel.poll_in(3));
  EXPECT_EQ(calls.poll_timeouts(), (Timeouts{3, 3, 3}));
  expect_flags(adopted.channel, false, false);
}

TEST(PollInSystemCalls, StartAgainAfterAnInterruptedRecv) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_recv({kInterrupted});
  adopted.peer.send("a");
  EXPECT_TRUE(adopted.channel.poll_in(1234));
  EXPECT_EQ(calls.poll_timeouts(), (Timeouts{1234, 1234}));
  EXPECT_EQ(calls.recv_calls(), 2);
  expect_flags(adopted.channel, false, false);
}

TEST(PollInSystemCalls, NoticeACloseAfterAnInterruptedPoll) {
  EXPECT_EQ(log_of([] {
              AdoptedProbe adopted;
              SystemCalls calls(adopted.channel.getFD());
              Answer interrupted = kInterrupted;
              interrupted.meanwhile = [&] { adopted.channel.inner().close(); };
              calls.answer_poll({interrupted});
              EXPECT_TRUE(adopted.channel.poll_in(-1));
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): no connection"});
}

TEST(PollInSystemCalls, NoticeAListenerAfterAnInterruptedRecv) {
  EXPECT_EQ(log_of([] {
              AdoptedProbe adopted;
              SystemCalls calls(adopted.channel.getFD());
              Answer interrupted = kInterrupted;
              interrupted.meanwhile = [&] { adopted.channel.inner().listener = true; };
              calls.answer_recv({interrupted});
              adopted.peer.send("a");
              EXPECT_TRUE(adopted.channel.poll_in(-1));
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): not allowed for listener"});
}

TEST(PollInSystemCalls, AreNotRepeatedWhenPollFindsNothingOfInterest) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_poll({polled(POLLPRI)});
  EXPECT_FALSE(adopted.channel.poll_in(-1));
  EXPECT_EQ(calls.poll_timeouts(), Timeouts{-1});
  expect_flags(adopted.channel, false, false);
}

TEST(PollInSystemCalls, SetErrorWhenRecvFails) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              SystemCalls calls(adopted.channel.getFD());
              calls.answer_recv({{-1, ENOMEM}});
              adopted.peer.send("a");
              EXPECT_TRUE(adopted.channel.poll_in(0));
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::poll_in(): recv(MSG_PEEK) returned -1 (errno=12)"});
}

TEST(PollInSystemCalls, SetBothFlagsForAHangUpWithAnError) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              SystemCalls calls(adopted.channel.getFD());
              calls.answer_poll({polled(POLLHUP | POLLERR)});
              EXPECT_TRUE(adopted.channel.poll_in(0));
              expect_flags(adopted.channel, true, true);
            }),
            Lines{"IPC:debug|PTR->IpcPrivate::poll_in(): poll() returned pf.revents=24 (eof)"});
}

TEST(PollInSystemCalls, ShowReventsAsASigned16BitNumber) {
  EXPECT_EQ(
      log_of([] {
        Adopted adopted;
        SystemCalls calls(adopted.channel.getFD());
        calls.answer_poll({polled(0x8000 | POLLNVAL)});
        EXPECT_TRUE(adopted.channel.poll_in(0));
      }),
      Lines{"IPC:error|PTR->IpcPrivate::poll_in(): poll() returned pf.revents=-32736 (error)"});
}

// ---- write

TEST(WriteSystemCalls, AreRepeatedAfterASendOfNothing) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_send({{0}, {0}});
  EXPECT_TRUE(adopted.channel.write("abc", 3));
  EXPECT_EQ(calls.send_calls(), 3);
  EXPECT_EQ(adopted.peer.receive(3), "abc");
  expect_flags(adopted.channel, false, false);
}

TEST(WriteSystemCalls, AreRepeatedAfterAnInterruption) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_send({kInterrupted, kInterrupted});
  EXPECT_TRUE(adopted.channel.write("abc", 3));
  EXPECT_EQ(calls.send_calls(), 3);
  EXPECT_EQ(adopted.peer.receive(3), "abc");
  expect_flags(adopted.channel, false, false);
}

TEST(WriteSystemCalls, GoOnBehindWhatWasSent) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  calls.answer_send({{2}, kInterrupted, {1}});
  EXPECT_TRUE(adopted.channel.write("abcdef", 6));
  EXPECT_EQ(adopted.peer.receive(3), "def");
}

TEST(WriteSystemCalls, EndWithTheFirstFailureAndLeaveWhatWasSent) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              SystemCalls calls(adopted.channel.getFD());
              calls.answer_send({{2}, {-1, ENOBUFS}});
              EXPECT_FALSE(adopted.channel.write("abcdef", 6));
              EXPECT_EQ(calls.send_calls(), 2);
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::write(): send() returned -1 (errno=105)"});
}

TEST(WriteSystemCalls, AreNotMadeForABadArgument) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  EXPECT_FALSE(adopted.channel.write("x", -1));
  EXPECT_FALSE(adopted.channel.write(nullptr, 3));
  EXPECT_EQ(calls.send_calls(), 0);
}

// ---- close

TEST(CloseSystemCalls, WaitForAReadThatIsUnderWay) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  Slow slow;
  calls.answer_poll({slow.answer({0, 0, 0})});
  char data;
  Background reader([&] { adopted.channel.read(&data, 1, 10000); });
  ASSERT_TRUE(eventually([&] { return slow.entered.load(); }));
  Background closer([&] { adopted.channel.close(); });
  EXPECT_TRUE(closer.blocks_in(kInMutex));
  EXPECT_EQ(calls.close_calls(), 0);
  slow.go_on = true;
  closer.join();
  EXPECT_EQ(calls.close_calls(), 1);
}

TEST(CloseSystemCalls, WaitForAWriteThatIsUnderWay) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  Slow slow;
  calls.answer_send({slow.answer({1, 0, 0})});
  Background writer([&] { EXPECT_TRUE(adopted.channel.write("x", 1)); });
  ASSERT_TRUE(eventually([&] { return slow.entered.load(); }));
  Background closer([&] { adopted.channel.close(); });
  EXPECT_TRUE(closer.blocks_in(kInMutex));
  EXPECT_EQ(calls.close_calls(), 0);
  slow.go_on = true;
  closer.join();
  EXPECT_EQ(calls.close_calls(), 1);
}

TEST(CloseSystemCalls, CloseTheDescriptorOnceForManyThreads) {
  for (int i = 0; i < 50; ++i) {
    Adopted adopted;
    const SystemCalls calls(adopted.channel.getFD());
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n) threads.emplace_back([&] { adopted.channel.close(); });
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(calls.close_calls(), 1);
  }
}
