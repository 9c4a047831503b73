// SPDX-License-Identifier: MIT
// Raw reads.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <zedipc/tcp.h>

#include <string>

#include "ipc/channels.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// What a read of up to `size` bytes gives.
std::string read(IPC& channel, int size, int timeout_msec = 10000, int next_timeout_msec = 10000) {
  std::string data(static_cast<std::size_t>(size), '?');
  const int count = channel.read(data.data(), size, timeout_msec, next_timeout_msec);
  EXPECT_EQ(data.substr(static_cast<std::size_t>(count)),
            std::string(static_cast<std::size_t>(size - count), '?'))
      << "bytes behind the count were written";
  return data.substr(0, static_cast<std::size_t>(count));
}

}  // namespace

TEST(Read, StoresWhatThePeerSent) {
  Adopted adopted;
  adopted.peer.send(std::string("a\0b", 3));
  EXPECT_EQ(read(adopted.channel, 3), std::string("a\0b", 3));
  expect_flags(adopted.channel, false, false);
}

TEST(Read, LeavesWhatIsBeyondItsSize) {
  Adopted adopted;
  adopted.peer.send("abcdef");
  EXPECT_EQ(read(adopted.channel, 4), "abcd");
  EXPECT_EQ(read(adopted.channel, 2), "ef");
}

TEST(Read, LogsEachChunkWithWhatRemains) {
  EXPECT_EQ(
      log_of([] {
        Adopted adopted;
        adopted.peer.send("abcd");
        EXPECT_EQ(read(adopted.channel, 10, 0, 0), "abcd");
        adopted.peer.send("efg");
        EXPECT_EQ(read(adopted.channel, 3), "efg");
      }),
      (Lines{"IPC:debug|PTR->IpcPrivate::read() -> 4 bytes read successfully (6 remaining)",
             "IPC:debug|PTR->IpcPrivate::read() -> 3 bytes read successfully (0 remaining)"}));
}

// ---- Size 0 and bad arguments

TEST(ReadOfNothing, SetsNoFlagOnAConnection) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send("a");
              EXPECT_EQ(read(adopted.channel, 0, -1, -1), "");
              expect_flags(adopted.channel, false, false);
              EXPECT_TRUE(adopted.channel.poll_in(0)) << "the data stays";
            }),
            Lines{});
}

TEST(ReadOfNothing, FailsWithoutAConnection) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_EQ(read(channel, 0), "");
              expect_flags(channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): no connection"});
}

TEST(ReadToNowhere, FailsAndSaysSoWithASizeOfZero) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send("abcde");
              EXPECT_EQ(adopted.channel.read(nullptr, 5, -1, -1), 0);
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): invalid parameter (data=(nil), size=0)"});
}

TEST(ReadToNowhere, FailsForASizeOfZeroToo) {
  Adopted adopted;
  EXPECT_EQ(adopted.channel.read(nullptr, 0, -1, -1), 0);
  expect_flags(adopted.channel, false, true);
}

TEST(ReadOfANegativeSize, FailsAndSaysSoWithASizeOfZero) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send("abcde");
              char data;
              EXPECT_EQ(adopted.channel.read(&data, -5, -1, -1), 0);
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): invalid parameter (data=PTR, size=0)"});
}

TEST(ReadToNowhere, TakesNothingFromTheStream) {
  Adopted adopted;
  adopted.peer.send("abc");
  EXPECT_EQ(adopted.channel.read(nullptr, 2, -1, -1), 0);
  EXPECT_EQ(read(adopted.channel, 3), "abc");
}

TEST(ReadToNowhere, OnAClosedChannelGivesBothMessages) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_EQ(channel.read(nullptr, 5, -1, -1), 0);
            }),
            (Lines{"IPC:error|PTR->IpcPrivate::read(): invalid parameter (data=(nil), size=0)",
                   "IPC:error|PTR->IpcPrivate::read(): no connection"}));
}

// ---- Channels that cannot be read from

TEST(Read, FailsWithoutAConnection) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_EQ(read(channel, 5, -1, -1), "");
              expect_flags(channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): no connection"});
}

TEST(Read, FailsOnAListener) {
  EXPECT_EQ(log_of(
                [] {
                  Listening listening;
                  EXPECT_EQ(read(listening.channel, 5, -1, -1), "");
                  expect_flags(listening.channel, false, true);
                },
                "error"),
            Lines{"IPC:error|PTR->IpcPrivate::read(): not allowed for listener"});
}

// ---- The end of the stream

TEST(Read, SetsEofAtTheEndOfTheStream) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.close();
              EXPECT_EQ(read(adopted.channel, 5), "");
              expect_flags(adopted.channel, true, false);
            }),
            Lines{"IPC:debug|PTR->IpcPrivate::read(): recv() returned 0 (eof)"});
}

TEST(Read, TakesWhatIsBufferedAheadOfTheEnd) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send("abc");
              adopted.peer.close();
              EXPECT_EQ(read(adopted.channel, 5), "abc");
              expect_flags(adopted.channel, true, false);
            }),
            (Lines{"IPC:debug|PTR->IpcPrivate::read() -> 3 bytes read successfully (2 remaining)",
                   "IPC:debug|PTR->IpcPrivate::read(): recv() returned 0 (eof)"}));
}

TEST(Read, OfExactlyWhatIsBufferedDoesNotNoticeTheEnd) {
  Adopted adopted;
  adopted.peer.send("abc");
  adopted.peer.close();
  EXPECT_EQ(read(adopted.channel, 3), "abc");
  expect_flags(adopted.channel, false, false);
}

TEST(Read, LeavesTheChannelConnectedAtTheEnd) {
  Adopted adopted;
  const int fd = adopted.channel.getFD();
  adopted.peer.close();
  EXPECT_EQ(read(adopted.channel, 5), "");
  EXPECT_EQ(adopted.channel.getFD(), fd);
}

// ---- Failures

TEST(Read, SetsErrorWhenTheConnectionIsReset) {
  EXPECT_EQ(log_of(
                [] {
                  ConnectedTcp connected;
                  connected.peer.reset();
                  EXPECT_EQ(read(connected.channel, 5), "");
                  expect_flags(connected.channel, false, true);
                },
                "error"),
            Lines{"IPC:error|PTR->IpcPrivate::read(): recv() returned -1 (errno=104)"});
}

TEST(Read, CountsWhatCameBeforeAReset) {
  ConnectedTcp connected;
  connected.peer.send("abc");
  EXPECT_EQ(read(connected.channel, 2), "ab");
  connected.peer.send("d");
  EXPECT_EQ(read(connected.channel, 2), "cd");
  connected.peer.reset();
  EXPECT_EQ(read(connected.channel, 1), "");
  expect_flags(connected.channel, false, true);
}

TEST(Read, SetsErrorForPollInErrorAlone) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              channel.setFD(descriptor_in_error());
              EXPECT_EQ(read(channel, 5), "");
              expect_flags(channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): poll() returned pf.revents=8 (error)"});
}

TEST(Read, SetsEofForAHangUpWithoutData) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              channel.setFD(descriptor_hung_up());
              EXPECT_EQ(read(channel, 5), "");
              expect_flags(channel, true, false);
            }),
            Lines{"IPC:debug|PTR->IpcPrivate::read(): poll() returned pf.revents=16 (eof)"});
}

TEST(Read, SetsErrorForADescriptorThatIsNotOpen) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              channel.setFD(dup(STDIN_FILENO));
              close(channel.getFD());
              EXPECT_EQ(read(channel, 5), "");
              expect_flags(channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): poll() returned pf.revents=32 (error)"});
}

TEST(Read, CallsAnErrorAfterTheEndTheEnd) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.close();
              EXPECT_EQ(read(adopted.channel, 5), "");
              replace_socket(adopted.channel, descriptor_in_error());
              EXPECT_EQ(read(adopted.channel, 5), "");
              expect_flags(adopted.channel, true, true);
            }),
            (Lines{"IPC:debug|PTR->IpcPrivate::read(): recv() returned 0 (eof)",
                   "IPC:debug|PTR->IpcPrivate::read(): poll() returned pf.revents=8 (eof)"}));
}

TEST(Read, SetsErrorWhenPollFails) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              rlimit limit{};
              ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
              const rlimit none{0, limit.rlim_max};
              ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
              EXPECT_EQ(read(adopted.channel, 5), "");
              ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
              expect_flags(adopted.channel, false, true);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::read(): poll() returned -1 (errno=22)"});
}

TEST(Read, WorksOnAChannelThatIsInError) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.write("x", -1));
  adopted.peer.send("abc");
  EXPECT_EQ(read(adopted.channel, 3), "abc");
  expect_flags(adopted.channel, false, true);
}
