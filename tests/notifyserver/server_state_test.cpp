// SPDX-License-Identifier: MIT
// Sessions by identity, and the thread function of a session in the test's own thread.
#include "notifyserver/server_state.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <set>

#include <zedipc/notify.h>
#include <zedipc/tcp.h>

#include "log/log.h"
#include "notifyserver/session.h"
#include "support/raw_peer.h"
#include "support/scratch_dir.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();

// A session whose other end is `peer`.
TCP* connected(RawPeer& peer) {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  peer = RawPeer(ends[0]);
  TCP* const session = new TCP;
  session->setFD(ends[1]);
  return session;
}

}  // namespace

TEST(SessionIdentity, CountsUp) {
  const MutexLock lock(server.server_lock);
  TCP first;
  TCP second;
  const std::int32_t identity = add_session(&first);
  EXPECT_EQ(add_session(&second), identity + 1);
}

TEST(SessionIdentity, LeadsToItsSession) {
  const MutexLock lock(server.server_lock);
  TCP session;
  EXPECT_EQ(server.sessions.at(add_session(&session)), &session);
}

TEST(SessionIdentity, IsNotUsedAgainAfterASessionsEnd) {
  const MutexLock lock(server.server_lock);
  TCP session;
  const std::int32_t identity = add_session(&session);
  server.sessions.erase(identity);
  EXPECT_NE(add_session(&session), identity);
}

TEST(SessionIdentity, IsNeitherNullNorSmallAfterTheLargest) {
  const MutexLock lock(server.server_lock);
  TCP session;
  server.next_identity = kLargest;
  EXPECT_EQ(add_session(&session), kLargest);
  EXPECT_GT(add_session(&session), 0xFFFF);
}

TEST(SessionIdentity, PassesOverThoseAliveWhenItWraps) {
  const MutexLock lock(server.server_lock);
  TCP session;
  std::set<std::int32_t> identities;
  for (int i = 0; i < 10; ++i) identities.insert(add_session(&session));
  server.next_identity = kLargest;
  for (int i = 0; i < 10; ++i) identities.insert(add_session(&session));
  EXPECT_EQ(identities.size(), 20U);
  EXPECT_EQ(server.sessions.size(), 20U);
}

TEST(HandleClient, GivesNullAtTheEndOfTheStream) {
  RawPeer peer;
  TCP* const session = connected(peer);
  peer.close();
  EXPECT_EQ(handle_client(session), nullptr);
}

TEST(HandleClient, ClosesTheChannel) {
  RawPeer peer;
  TCP* const session = connected(peer);
  shutdown(peer.fd(), SHUT_WR);
  handle_client(session);
  EXPECT_TRUE(peer.at_end());
}

TEST(HandleClient, LeavesNothingInTheTables) {
  RawPeer peer;
  TCP* const session = connected(peer);
  {
    const MutexLock lock(server.server_lock);
    server.outbound_rules.insert({"*", "*", "*"});
  }
  peer.send_message(R"({"notification":"n","to":"t","type":"register"})");
  peer.close();
  handle_client(session);
  const MutexLock lock(server.server_lock);
  EXPECT_TRUE(server.sessions.empty());
  EXPECT_TRUE(server.registrations.empty());
  EXPECT_TRUE(server.observers.empty());
  EXPECT_EQ(server.registrations.remote_rows(), 0);
}

TEST(HandleClient, RestoresTheThreadsLogChannel) {
  RawPeer peer;
  TCP* const session = connected(peer);
  peer.close();
  dbg_log_channel() = kLogNotifyClient;
  handle_client(session);
  EXPECT_EQ(dbg_log_channel(), kLogNotifyClient);
}

TEST(HandleClient, TakesASessionWithoutAnAddressForARemoteOne) {
  RawPeer peer;
  TCP* const session = connected(peer);
  peer.send_message(R"({"type":"notify","to":"x"})");
  peer.send_message(R"({"type":"register_observer"})");
  peer.send_message(R"({"notification":"n","to":"t","type":"register"})");
  peer.send_message(R"({"type":"notify","to":"t","notification":"n"})");
  shutdown(peer.fd(), SHUT_WR);
  handle_client(session);
  EXPECT_NE(peer.receive_message().find(R"("type":"unicast_error")"), std::string::npos);
  EXPECT_NE(peer.receive_message().find(R"("type":"unicast_error")"), std::string::npos);
  EXPECT_TRUE(peer.at_end());
}

TEST(ServerStart, RestoresTheThreadsLogChannelWhenItFails) {
  const ScratchDir dir;
  dbg_log_channel() = kLogNotifyClient;
  EXPECT_EQ(ipcNotificationServer(dir.file("missing").c_str()), -4);
  EXPECT_EQ(dbg_log_channel(), kLogNotifyClient);
  EXPECT_EQ(ipcNotificationServer(dir.write("bad", "bad").c_str()), -5);
  EXPECT_EQ(dbg_log_channel(), kLogNotifyClient);
}

TEST(ServerStart, LeavesTheServerIdleAndUnlockedWhenItFails) {
  const ScratchDir dir;
  for (const std::string& file : {dir.file("missing"), dir.write("bad", "bad")}) {
    EXPECT_LT(ipcNotificationServer(file.c_str()), 0);
    const MutexLock lock(server.server_lock);
    EXPECT_FALSE(server.server_running);
  }
}

TEST(ServerStart, KeepsTheRulesAheadOfABadLine) {
  const ScratchDir dir;
  const std::string file = dir.write("bad", "in a b c\nout d e f\nbad\nin g h i\n");
  EXPECT_EQ(ipcNotificationServer(file.c_str()), -5);
  const MutexLock lock(server.server_lock);
  EXPECT_EQ(server.inbound_rules.size(), 1U);
  EXPECT_EQ(server.outbound_rules.size(), 1U);
}

TEST(ServerStart, KeepsTheRulesWhenTheNextFileCannotBeOpened) {
  const ScratchDir dir;
  EXPECT_EQ(ipcNotificationServer(dir.write("bad", "in a b c\nbad\n").c_str()), -5);
  EXPECT_EQ(ipcNotificationServer(dir.file("missing").c_str()), -4);
  const MutexLock lock(server.server_lock);
  EXPECT_EQ(server.inbound_rules.size(), 1U);
}

TEST(ServerStart, ForgetsTheRulesWhenTheNextFileIsRead) {
  const ScratchDir dir;
  EXPECT_EQ(ipcNotificationServer(dir.write("first", "in a b c\nbad\n").c_str()), -5);
  EXPECT_EQ(ipcNotificationServer(dir.write("second", "out d e f\nbad\n").c_str()), -5);
  const MutexLock lock(server.server_lock);
  EXPECT_TRUE(server.inbound_rules.empty());
  EXPECT_EQ(server.outbound_rules.size(), 1U);
}
