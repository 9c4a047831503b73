// SPDX-License-Identifier: MIT
// Closing, also under the feet of calls that wait.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <memory>
#include <string>

#include "ipc/channels.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(CloseChannel, EndsTheConnectionForThePeer) {
  Adopted adopted;
  const int fd = adopted.channel.getFD();
  adopted.channel.close();
  EXPECT_EQ(adopted.channel.getFD(), -1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the descriptor is still open";
  EXPECT_TRUE(adopted.peer.at_end());
}

TEST(CloseChannel, ShutsDownASocketThatIsOpenElsewhereToo) {
  Adopted adopted;
  const RawPeer duplicate(dup(adopted.channel.getFD()));
  adopted.channel.close();
  EXPECT_TRUE(adopted.peer.at_end());
  EXPECT_TRUE(duplicate.at_end());
}

TEST(CloseChannel, LogsNothing) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.channel.close();
              adopted.channel.close();
            }),
            Lines{});
}

TEST(CloseChannel, ClearsEof) {
  Adopted adopted;
  adopted.peer.close();
  EXPECT_TRUE(adopted.channel.poll_in(0));
  adopted.channel.close();
  EXPECT_FALSE(adopted.channel.eof());
}

TEST(CloseChannel, ClearsError) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.write("x", -1));
  adopted.channel.close();
  EXPECT_FALSE(adopted.channel.error());
}

TEST(CloseChannel, EmptiesTheAddressesInPlace) {
  ConnectedTcp connected;
  const char* const remote = connected.channel.remote_addr();
  const char* const local = connected.channel.local_addr();
  ASSERT_STRNE(remote, "");
  ASSERT_STRNE(local, "");
  connected.channel.close();
  EXPECT_STREQ(remote, "");
  EXPECT_STREQ(local, "");
  EXPECT_EQ(connected.channel.remote_addr(), remote);
  EXPECT_EQ(connected.channel.local_addr(), local);
}

TEST(CloseChannel, EndsBeingAListener) {
  Listening listening;
  EXPECT_TRUE(listening.channel.is_server());
  listening.channel.close();
  EXPECT_FALSE(listening.channel.is_server());
}

TEST(CloseChannel, TwiceLeavesFlagsOfTheTimeBetween) {
  Adopted adopted;
  adopted.channel.close();
  EXPECT_FALSE(adopted.channel.write("x", 1));
  adopted.channel.close();
  EXPECT_TRUE(adopted.channel.error());
}

TEST(CloseChannel, LeavesTheErrorOfAChannelThatWasNeverOpen) {
  TCP channel;
  channel.close();
  EXPECT_FALSE(channel.error());
  EXPECT_TRUE(channel.poll_in(0));
  channel.close();
  EXPECT_TRUE(channel.error());
}

TEST(Flags, SetWithoutASocketSurviveTheNextConnection) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  char byte;
  EXPECT_EQ(channel.read(&byte, 1, 0), 0);
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port()));
  EXPECT_TRUE(channel.error());
  const RawPeer peer = listener.accept();
  EXPECT_TRUE(channel.write("x", 1));
  EXPECT_EQ(peer.receive(1), "x");
  EXPECT_TRUE(channel.error()) << "though the channel works";
}

TEST(Flags, OfAConnectionGoWithIt) {
  Adopted adopted;
  Adopted next;
  adopted.peer.close();
  EXPECT_TRUE(adopted.channel.poll_in(0));
  EXPECT_FALSE(adopted.channel.write("x", 1));
  adopted.channel.setFD(dup(next.channel.getFD()));
  EXPECT_FALSE(adopted.channel.eof());
  EXPECT_FALSE(adopted.channel.error());
}

TEST(Flags, StayThroughOperationsThatSucceed) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.write("x", -1));
  EXPECT_TRUE(adopted.channel.write("x", 1));
  adopted.peer.send("y");
  char byte;
  EXPECT_EQ(adopted.channel.read(&byte, 1, 0), 1);
  EXPECT_TRUE(adopted.channel.error());
}

// ---- Close against calls that wait

TEST(CloseUnderRead, EndsItWithWhatItHad) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              adopted.peer.send("abc");
              int count = -1;
              char data[10];
              Background reader([&] { count = adopted.channel.read(data, 10, -1, -1); });
              ASSERT_TRUE(reader.blocks_in(kInPoll));
              adopted.channel.close();
              reader.join();
              EXPECT_EQ(count, 3);
              EXPECT_EQ(std::string(data, 3), "abc");
            }),
            (Lines{"IPC:debug|PTR->IpcPrivate::read() -> 3 bytes read successfully (7 remaining)",
                   "IPC:debug|PTR->IpcPrivate::read(): recv() returned 0 (eof)"}));
}

TEST(CloseUnderRead, OnTcpEndsItToo) {
  ConnectedTcp connected;
  int count = -1;
  char data[10];
  Background reader([&] { count = connected.channel.read(data, 10, -1, -1); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  connected.channel.close();
  reader.join();
  EXPECT_EQ(count, 0);
}

TEST(CloseUnderRead, ReturnsWithTheFlagsCleared) {
  Adopted adopted;
  char data[10];
  Background reader([&] { adopted.channel.read(data, 10, -1, -1); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.channel.close();
  EXPECT_FALSE(adopted.channel.eof());
  EXPECT_FALSE(adopted.channel.error());
  EXPECT_EQ(adopted.channel.getFD(), -1);
}

TEST(CloseUnderPollIn, EndsItWithTrue) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              bool found = false;
              Background poller([&] { found = adopted.channel.poll_in(-1); });
              ASSERT_TRUE(poller.blocks_in(kInPoll));
              adopted.channel.close();
              poller.join();
              EXPECT_TRUE(found);
            }),
            Lines{"IPC:debug|PTR->IpcPrivate::poll_in(): recv(MSG_PEEK) returned 0 (eof)"});
}

TEST(CloseUnderWrite, EndsItWithFalse) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              const std::string data(4000000, 'x');
              bool written = true;
              Background writer([&] {
                written = adopted.channel.write(data.data(), static_cast<int>(data.size()));
              });
              ASSERT_TRUE(writer.blocks_in(kInSend));
              adopted.channel.close();
              writer.join();
              EXPECT_FALSE(written);
            }),
            Lines{"IPC:error|PTR->IpcPrivate::write(): send() returned -1 (errno=32)"});
}

TEST(CloseUnderReadAndWrite, EndsBoth) {
  Adopted adopted;
  const std::string data(4000000, 'x');
  char byte;
  Background reader([&] { adopted.channel.read(&byte, 1, -1, -1); });
  Background writer([&] { adopted.channel.write(data.data(), static_cast<int>(data.size())); });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  ASSERT_TRUE(writer.blocks_in(kInSend));
  adopted.channel.close();
  EXPECT_TRUE(reader.ends());
  EXPECT_TRUE(writer.ends());
}

TEST(CloseUnderRead, EndsThoseThatQueueToo) {
  Adopted adopted;
  char byte;
  Background first([&] { adopted.channel.read(&byte, 1, -1, -1); });
  ASSERT_TRUE(first.blocks_in(kInPoll));
  bool found = false;
  char other;
  Background second([&] { adopted.channel.read(&other, 1, -1, -1); });
  Background third([&] { found = adopted.channel.poll_in(-1); });
  ASSERT_TRUE(second.blocks_in(kInMutex));
  ASSERT_TRUE(third.blocks_in(kInMutex));
  adopted.channel.close();
  EXPECT_TRUE(first.ends());
  EXPECT_TRUE(second.ends());
  EXPECT_TRUE(third.ends());
  third.join();
  EXPECT_TRUE(found);
}

TEST(CloseUnderReadMsg, EndsIt) {
  Adopted adopted;
  bool received = true;
  std::string text;
  Background reader([&] {
    int tag = 0;
    received = adopted.channel.read_msg(1, tag, text, 100, -1);
  });
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.channel.close();
  reader.join();
  EXPECT_FALSE(received);
}

TEST(CloseUnderAccept, EndsATcpListenersWaitWithNobody) {
  Listening listening;
  std::unique_ptr<IPC> session;
  Background acceptor([&] { session.reset(listening.channel.accept(-1)); });
  ASSERT_TRUE(acceptor.blocks_in(kInPoll));
  listening.channel.close();
  acceptor.join();
  EXPECT_EQ(session, nullptr);
}

TEST(CloseUnderAccept, EndsAPipeListenersWaitWithNobody) {
  const ScratchDir dir;
  Pipe listener;
  ASSERT_TRUE(listener.listen(dir.file("pipe").c_str()));
  std::unique_ptr<IPC> session;
  Background acceptor([&] { session.reset(listener.accept(-1)); });
  ASSERT_TRUE(acceptor.blocks_in(kInPoll));
  listener.close();
  acceptor.join();
  EXPECT_EQ(session, nullptr);
}
