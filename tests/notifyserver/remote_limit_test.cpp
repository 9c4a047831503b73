// SPDX-License-Identifier: MIT
// All remote sessions together have 256 rows in the table.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

namespace {

// Connects a remote peer that registers for notifications of its own.
RawPeer join_many(const std::string& name, int count) {
  RawPeer peer = RawPeer::connect("127.0.0.1", kNotifyPort, kRemote);
  for (int i = 0; i < count; ++i) peer.send_message(registration("far", name + std::to_string(i)));
  settle(peer);
  return peer;
}

// Whether the server has a row of this peer for the notification.
bool has_row(const RawPeer& peer, const std::string& name) {
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("far", name));
  sender.send_message(notification("nobody", "n"));
  const std::string answer = sender.receive_message();
  if (answer == unicast_error("far", name, identity)) {
    EXPECT_EQ(sender.receive_message(), unicast_error("nobody", "n", identity));
    return false;
  }
  EXPECT_EQ(peer.receive_message(), notification("far", name, identity));
  return true;
}

const char kAdded[] = "note|handle_client(): new registration added";

}  // namespace

TEST(RemoteLimit, AdmitsTheRowThatMakesTheCountFull) {
  ServerProcess server(kOpen, {});
  const RawPeer peer = join_many("n", 256);
  EXPECT_TRUE(has_row(peer, "n0"));
  EXPECT_TRUE(has_row(peer, "n255"));
}

TEST(RemoteLimit, DropsOneRowMoreWithoutAWord) {
  ServerProcess server(kOpen, kAllLevels);
  ServerLog log(server);
  const RawPeer peer = join_many("n", 256);
  log.forget();
  peer.send_message(registration("far", "more", 7));
  settle(peer);
  EXPECT_EQ(log.lines(), (Lines{"info|handle_client(): received registration from remote client "
                                "(ipc=S1, notification='more', to='far', prio=7)"}));
  EXPECT_FALSE(has_row(peer, "more"));
}

TEST(RemoteLimit, HoldsForAllRemoteSessionsTogether) {
  ServerProcess server(kOpen, {});
  const RawPeer first = join_many("a", 200);
  const RawPeer second = join_many("b", 57);
  EXPECT_TRUE(has_row(second, "b55"));
  EXPECT_FALSE(has_row(second, "b56"));
  const RawPeer third = join_many("c", 1);
  EXPECT_FALSE(has_row(third, "c0"));
}

TEST(RemoteLimit, LetsRowsBeUpdated) {
  ServerProcess server(kOpen, kNotes);
  ServerLog log(server);
  const RawPeer peer = join_many("n", 256);
  log.forget();
  peer.send_message(registration("far", "n0", 99));
  settle(peer);
  EXPECT_EQ(log.lines(), Lines{"note|handle_client(): existing registration updated"});
}

TEST(RemoteLimit, CountsAnUpdatedRowOnce) {
  ServerProcess server(kOpen, {});
  const RawPeer peer = join_many("n", 255);
  for (int i = 0; i < 10; ++i) peer.send_message(registration("far", "n0", i));
  peer.send_message(registration("far", "last"));
  settle(peer);
  EXPECT_TRUE(has_row(peer, "last"));
}

TEST(RemoteLimit, HasRoomForOneBehindAnUnregistration) {
  ServerProcess server(kOpen, {});
  const RawPeer peer = join_many("n", 256);
  const RawPeer other = RawPeer::connect("127.0.0.1", kNotifyPort, kRemote);
  peer.send_message(unregistration("far", "n100"));
  settle(peer);
  other.send_message(registration("far", "x"));
  other.send_message(registration("far", "y"));
  settle(other);
  EXPECT_TRUE(has_row(other, "x"));
  EXPECT_FALSE(has_row(other, "y"));
}

TEST(RemoteLimit, HasRoomBehindASessionsEnd) {
  ServerProcess server(kOpen, {});
  RawPeer leaving = join_many("a", 3);
  const RawPeer staying = join_many("b", 253);
  leave(leaving);
  for (const char* name : {"x", "y", "z", "more"}) {
    staying.send_message(registration("far", name));
  }
  settle(staying);
  EXPECT_TRUE(has_row(staying, "x"));
  EXPECT_TRUE(has_row(staying, "y"));
  EXPECT_TRUE(has_row(staying, "z"));
  EXPECT_FALSE(has_row(staying, "more"));
}

TEST(RemoteLimit, GivesNoRoomForAnUnregistrationOfNothing) {
  ServerProcess server(kOpen, {});
  const RawPeer peer = join_many("n", 256);
  peer.send_message(unregistration("far", "unknown"));
  peer.send_message(registration("far", "more"));
  settle(peer);
  EXPECT_FALSE(has_row(peer, "more"));
}

TEST(RemoteLimit, DoesNotCountRefusedRegistrations) {
  ServerProcess server("in * * *\nout * * n*\n", {});
  const RawPeer refused = join_many("refused", 300);
  const RawPeer peer = join_many("n", 256);
  EXPECT_TRUE(has_row(peer, "n255"));
}

TEST(RemoteLimit, DoesNotConcernLocalRows) {
  ServerProcess server(kOpen, kNotes);
  ServerLog log(server);
  const RawPeer remote = join_many("n", 256);
  log.forget();
  const RawPeer local = RawPeer::connect();
  for (int i = 0; i < 300; ++i) local.send_message(registration("near", std::to_string(i)));
  settle(local);
  EXPECT_EQ(log.lines(), Lines(300, kAdded));
}

TEST(RemoteLimit, IsNotUsedUpByLocalRows) {
  ServerProcess server(kOpen, {});
  const RawPeer local = RawPeer::connect();
  for (int i = 0; i < 300; ++i) local.send_message(registration("near", std::to_string(i)));
  settle(local);
  const RawPeer remote = join_many("n", 256);
  EXPECT_TRUE(has_row(remote, "n255"));
}

TEST(RemoteLimit, GetsNoRoomFromLocalRowsThatGo) {
  ServerProcess server(kOpen, {});
  RawPeer local = join("near", "a");
  local.send_message(registration("near", "b"));
  settle(local);
  const RawPeer remote = join_many("n", 256);
  local.send_message(unregistration("near", "a"));
  settle(local);
  leave(local);
  remote.send_message(registration("far", "more"));
  settle(remote);
  EXPECT_FALSE(has_row(remote, "more"));
}
