// SPDX-License-Identifier: MIT
// Which channels the dispatcher may watch: those that have a connection.
#include <gtest/gtest.h>

#include "ipc/endpoints.h"
#include "ipc/inner_state.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

int callback_state(IPC& channel) { return inner_state(channel).cb_state; }

}  // namespace

TEST(PipeState, IsLockedUntilThereIsAConnection) {
  Pipe plain;
  Pipe with_argument(42);
  EXPECT_EQ(callback_state(plain), CB_LOCKED);
  EXPECT_EQ(callback_state(with_argument), CB_LOCKED);
}

TEST(PipeState, StaysLockedOnAListener) {
  ListeningPipe listening;
  EXPECT_EQ(callback_state(listening.channel), CB_LOCKED);
}

TEST(PipeState, IsUnlockedByAConnection) {
  const ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_EQ(callback_state(channel), 0);
}

TEST(PipeState, StaysLockedWhenAConnectionFails) {
  const ScratchDir dir;
  Pipe channel;
  ASSERT_FALSE(channel.connect(dir.file("pipe").c_str()));
  EXPECT_EQ(callback_state(channel), CB_LOCKED);
}

TEST(PipeState, IsUnlockedInASession) {
  AcceptedPipe accepted;
  EXPECT_EQ(callback_state(*accepted.session), 0);
}

TEST(PipeState, IsLockedAgainByClose) {
  AcceptedPipe accepted;
  accepted.session->close();
  EXPECT_EQ(callback_state(*accepted.session), CB_LOCKED);
}

TEST(PipeState, IsLockedOnAnObjectThatListensAfterAConnection) {
  AcceptedPipe accepted;
  Pipe& session = dynamic_cast<Pipe&>(*accepted.session);
  ASSERT_TRUE(session.listen(accepted.dir.file("second").c_str()));
  EXPECT_EQ(callback_state(session), CB_LOCKED);
}

TEST(TcpState, IsLockedUntilThereIsAConnection) {
  TCP channel;
  EXPECT_EQ(callback_state(channel), CB_LOCKED);
}

TEST(TcpState, StaysLockedOnAListener) {
  Listening listening;
  EXPECT_EQ(callback_state(listening.channel), CB_LOCKED);
}

TEST(TcpState, IsUnlockedByAConnection) {
  ConnectedTcp connected;
  EXPECT_EQ(callback_state(connected.channel), 0);
}

TEST(TcpState, StaysLockedWhenAConnectionFails) {
  const ClosedPort closed;
  TCP channel;
  ASSERT_FALSE(channel.connect("127.0.0.1", closed.port()));
  EXPECT_EQ(callback_state(channel), CB_LOCKED);
}

TEST(TcpState, IsUnlockedInASession) {
  Listening listening;
  const RawPeer peer = RawPeer::connect("127.0.0.1", port_in(listening.channel.local_addr()));
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(callback_state(*session), 0);
}

TEST(TcpState, IsUnlockedByAdoptionThoughThereIsNoSocket) {
  TCP channel;
  ASSERT_TRUE(channel.setFD(-1));
  EXPECT_EQ(callback_state(channel), 0);
}

TEST(TcpState, IsLockedAgainByClose) {
  ConnectedTcp connected;
  connected.channel.close();
  EXPECT_EQ(callback_state(connected.channel), CB_LOCKED);
}

TEST(TcpState, IsLockedOnAnObjectThatListensAfterAConnection) {
  ConnectedTcp connected;
  ASSERT_TRUE(connected.channel.listen(0, "127.0.0.1"));
  EXPECT_EQ(callback_state(connected.channel), CB_LOCKED);
}
