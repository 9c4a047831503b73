// SPDX-License-Identifier: MIT
// The table of registrations, and how it is changed.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/instrumented.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

TEST(Registration, IsNotAnswered) {
  ServerProcess server;
  const RawPeer peer = RawPeer::connect();
  peer.send_message(registration("display", "n", 5));
  peer.send_message(registration("display", "n", 5));
  peer.send_message(unregistration("display", "n"));
  peer.send_message(unregistration("display", "n"));
  peer.send_message(kObserve);
  peer.send_message(kStopObserving);
  settle(peer);
}

TEST(Registration, IsLogged) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer peer = join("display", "paper.out", -12);
  EXPECT_EQ(log.lines(), (Lines{"info|handle_client(): received registration from local client "
                                "(ipc=S1, notification='paper.out', to='display', prio=-12)",
                                "note|handle_client(): new registration added"}));
}

TEST(Registration, OfARemoteClientIsLogged) {
  ServerProcess server(kOpen, kAllLevels);
  ServerLog log(server);
  const RawPeer peer = join("display", "paper.out", 2147483647, kRemote);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): received registration from remote client (ipc=S1, "
                   "notification='paper.out', to='display', prio=2147483647)",
                   "note|handle_client(): new registration added"}));
}

TEST(Registration, OfTheSamePairUpdatesTheRow) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer peer = join("display", "n", 1);
  log.forget();
  peer.send_message(registration("display", "n", 2));
  peer.send_message(registration("display", "n", 2));
  settle(peer);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): received registration from local client (ipc=S1, "
                   "notification='n', to='display', prio=2)",
                   "note|handle_client(): existing registration updated",
                   "info|handle_client(): received registration from local client (ipc=S1, "
                   "notification='n', to='display', prio=2)",
                   "note|handle_client(): existing registration updated"}));
}

TEST(Registration, OfAnotherNameNotificationOrSessionIsANewRow) {
  ServerProcess server(kNotes);
  ServerLog log(server);
  const RawPeer peer = join("display", "n");
  peer.send_message(registration("logger", "n"));
  peer.send_message(registration("display", "m"));
  settle(peer);
  const RawPeer other = join("display", "n");
  EXPECT_EQ(log.lines(), Lines(4, "note|handle_client(): new registration added"));
}

TEST(Registration, ThatWasUpdatedIsRemovedByOneUnregistration) {
  ServerProcess server;
  const RawPeer peer = join("display", "n", 1);
  const int identity = settle(peer);
  peer.send_message(registration("display", "n", 2));
  peer.send_message(unregistration("display", "n"));
  peer.send_message(notification("display", "n"));
  EXPECT_EQ(peer.receive_message(), unicast_error("display", "n", identity));
}

TEST(Registration, WithoutAPriorityHasZero) {
  ServerProcess server(kInfos);
  ServerLog log(server);
  const RawPeer peer = RawPeer::connect();
  peer.send_message(R"({"notification":"n","to":"display","type":"register"})");
  settle(peer);
  EXPECT_EQ(log.lines(), (Lines{"info|handle_client(): received registration from local client "
                                "(ipc=S1, notification='n', to='display', prio=0)"}));
}

TEST(Registration, TakesAPriorityOfAnyKind) {
  ServerProcess server(kInfos);
  ServerLog log(server);
  const RawPeer peer = RawPeer::connect();
  const std::vector<std::pair<std::string, int>> cases{
      {"\"-17\"", -17}, {"true", 1}, {"7.9", 7}, {"\"x\"", 0}, {"1e20", 2147483647}};
  Lines expected;
  for (const auto& [written, read] : cases) {
    peer.send_message(R"({"notification":"n","to":"t","type":"register","priority":)" + written +
                      "}");
    expected.push_back(
        "info|handle_client(): received registration from local client (ipc=S1, "
        "notification='n', to='t', prio=" +
        std::to_string(read) + ")");
  }
  settle(peer);
  EXPECT_EQ(log.lines(), expected);
}

TEST(Registration, UnderTheNameStarTakesNothingMeantForOtherNames) {
  ServerProcess server;
  const RawPeer star = join("*", "n", 1);
  const RawPeer other = join("display", "n", 9);
  other.send_message(notification("*", "n"));
  EXPECT_EQ(other.receive_message(), notification("*", "n"));
  EXPECT_EQ(star.receive_message(), notification("*", "n"));
  other.send_message(unregistration("display", "n"));
  const int identity = settle(other);
  other.send_message(notification("display", "n"));
  EXPECT_EQ(other.receive_message(), unicast_error("display", "n", identity));
  settle(star);
}

TEST(Unregistration, IsLogged) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer other = join("display", "n", 3);
  const RawPeer peer = join("display", "n", 7);
  log.forget();
  peer.send_message(unregistration("display", "n"));
  settle(peer);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): received unregistration from local client (ipc=S2, "
                   "notification='n', to='display')",
                   "note|handle_client(): unregistered local client (ipc=S2, notification='n', "
                   "to='display', prio=7)"}));
}

TEST(Unregistration, OfARemoteClientIsLogged) {
  ServerProcess server(kOpen, kAllLevels);
  ServerLog log(server);
  const RawPeer peer = join("display", "n", -7, kRemote);
  log.forget();
  peer.send_message(unregistration("display", "n"));
  settle(peer);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): received unregistration from remote client (ipc=S1, "
                   "notification='n', to='display')",
                   "note|handle_client(): unregistered remote client (ipc=S1, notification='n', "
                   "to='display', prio=-7)"}));
}

TEST(Unregistration, OfAnEmptyTableIsLogged) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer peer = RawPeer::connect();
  peer.send_message(unregistration("display", "n"));
  settle(peer);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): received unregistration from local client (ipc=S1, "
                   "notification='n', to='display')",
                   "note|handle_client(): no client found, unregistration ignored"}));
}

TEST(Unregistration, OfAnotherPairIsIgnored) {
  ServerProcess server(kNotes);
  ServerLog log(server);
  const RawPeer peer = join("display", "n");
  const int identity = settle(peer);
  log.forget();
  peer.send_message(unregistration("display", "m"));
  peer.send_message(unregistration("logger", "n"));
  peer.send_message(unregistration("*", "n"));
  peer.send_message(unregistration("display", "*"));
  settle(peer);
  EXPECT_EQ(log.lines(), Lines(4, "note|handle_client(): no client found, unregistration ignored"));
  peer.send_message(notification("display", "n"));
  EXPECT_EQ(peer.receive_message(), notification("display", "n", identity));
}

TEST(Unregistration, RemovesOwnRowsOnly) {
  ServerProcess server(kNotes);
  ServerLog log(server);
  const RawPeer owner = join("display", "n");
  const RawPeer other = RawPeer::connect();
  const int identity = settle(other);
  log.forget();
  other.send_message(unregistration("display", "n"));
  settle(other);
  EXPECT_EQ(log.lines(), (Lines{"note|handle_client(): no client found, unregistration ignored"}));
  other.send_message(notification("display", "n"));
  EXPECT_EQ(owner.receive_message(), notification("display", "n", identity));
}

TEST(Unregistration, LeavesTheOtherRowsOfTheSession) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send_message(registration("display", "m"));
  peer.send_message(registration("logger", "n"));
  peer.send_message(unregistration("display", "n"));
  const int identity = settle(peer);
  peer.send_message(notification("display", "n"));
  EXPECT_EQ(peer.receive_message(), unicast_error("display", "n", identity));
  peer.send_message(notification("display", "m"));
  EXPECT_EQ(peer.receive_message(), notification("display", "m", identity));
  peer.send_message(notification("logger", "n"));
  EXPECT_EQ(peer.receive_message(), notification("logger", "n", identity));
}

// 100,000 rows of one client, while another is served.
TEST(Registration, OfManyRowsTakesSecondsAtMost) {
  constexpr int kRows = kInstrumented ? 10000 : 100000;
  ServerProcess server;
  const RawPeer other = join("other", "n");
  RawPeer peer = RawPeer::connect();
  std::string registrations;
  std::string removals;
  for (int i = 0; i < kRows; ++i) {
    const std::string name = "name" + std::to_string(i);
    registrations += frame(kNotifyFrame, 0, registration("to", name));
    removals += frame(kNotifyFrame, 0, unregistration("to", name));
  }
  for (const std::string& bytes : {registrations, removals, registrations}) {
    std::thread sender([&] { peer.send(bytes); });
    settle(other);
    sender.join();
    settle(peer);
  }
  leave(peer);
  settle(other);
}

// A removed row keeps its place for a while.
TEST(Unregistration, LeavesNothingThatANotificationWithoutANameReaches) {
  ServerProcess server;
  const RawPeer peer = join("a", "n");
  for (const char* to : {"b", "c", "d"}) peer.send_message(registration(to, "n"));
  peer.send_message(unregistration("b", "n"));
  const int identity = settle(peer);
  peer.send_message(notification("*", ""));
  peer.send_message(notification("", ""));
  EXPECT_EQ(peer.receive_message(), unicast_error("", "", identity));
  peer.send_message(notification("1", ""));
  EXPECT_EQ(peer.receive_message(), unicast_error("1", "", identity));
}
