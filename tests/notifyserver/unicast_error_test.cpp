// SPDX-License-Identifier: MIT
// What a sender hears of a unicast that nobody takes, and the identity by which the
// server finds it.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

TEST(UnicastError, IsTheMessageWithAnotherType) {
  ServerProcess server;
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(R"({"type":"notify","to":"x","notification":"n","from":"me","flags":-1,)"
                      R"("parameter":{"b":[null],"a":"\n"},"extra":true})");
  EXPECT_EQ(sender.receive_message(), R"({"extra":true,"flags":-1,"from":"me","notification":"n",)"
                                      R"("parameter":{"a":"\n","b":[null]},"reference":)" +
                                          std::to_string(identity) +
                                          R"(,"to":"x","type":"unicast_error"})");
}

TEST(UnicastError, ComesWhenTheTableIsEmpty) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("1", "n"));
  EXPECT_EQ(sender.receive_message(), unicast_error("1", "n", identity));
  settle(sender);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): ipc=S1 received notification 'n' (from='printer', "
                   "to='1', para='{\"tray\":2}', flags=0)",
                   "note|handle_client(): sent unicast error to 'printer' (ipc=S1) for "
                   "notification 'n'"}));
}

TEST(UnicastError, ComesWhenNoRowMatches) {
  ServerProcess server;
  const RawPeer receiver = join("display", "other");
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("display", "n"));
  EXPECT_EQ(sender.receive_message(), unicast_error("display", "n", identity));
  settle(receiver);
}

TEST(UnicastError, ComesWhenTheReceiverHasGone) {
  ServerProcess server;
  RawPeer receiver = join("display", "n");
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  leave(receiver);
  sender.send_message(notification("display", "n"));
  EXPECT_EQ(sender.receive_message(), unicast_error("display", "n", identity));
}

TEST(UnicastError, IsNotToldToObservers) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("display", "n"));
  EXPECT_EQ(sender.receive_message(), unicast_error("display", "n", identity));
  settle(observer);
}

TEST(UnicastError, GoesToTheFirstSenderOfAReturnedMessage) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("display", "n"));
  const std::string text = receiver.receive_message();
  receiver.send_message(unregistration("display", "n"));
  receiver.send_message(text);
  EXPECT_EQ(sender.receive_message(), unicast_error("display", "n", identity));
  settle(receiver);
}

TEST(UnicastError, ToASessionThatHasGoneIsDroppedWithoutAWord) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  RawPeer gone = RawPeer::connect();
  const int identity = settle(gone);
  leave(gone);
  const RawPeer sender = RawPeer::connect();
  settle(sender);
  log.forget();
  sender.send_message(notification("display", "n", identity));
  settle(sender);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): ipc=S2 received notification 'n' (from='printer', "
                   "to='display', para='{\"tray\":2}', flags=0)"}));
}

TEST(UnicastError, GoesToWhomTheSenderNames) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer victim = RawPeer::connect();
  const int identity = settle(victim);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("display", "n", identity));
  settle(sender);
  EXPECT_EQ(victim.receive_message(), unicast_error("display", "n", identity));
  EXPECT_EQ(log.lines().back(),
            "note|handle_client(): sent unicast error to 'printer' (ipc=S1) for notification 'n'");
}

TEST(UnicastError, GoesNowhereForCarelessReferences) {
  ServerProcess server;
  const RawPeer other = RawPeer::connect();
  settle(other);
  const RawPeer sender = RawPeer::connect();
  settle(sender);
  const std::string head = R"({"notification":"n","to":"display","type":"notify","reference":)";
  for (int reference = -1000; reference <= 1000; ++reference) {
    sender.send_message(head + std::to_string(reference) + "}");
  }
  for (const char* reference : {"null", "true", "false", "\"\"", "\"x\"", "[]", "{}", "65535",
                                "65536", "2147483647", "-2147483648", "1e300"}) {
    sender.send_message(head + reference + "}");
  }
  settle(sender);
  settle(other);
}

TEST(Reference, IsNotReplacedWhateverItsKind) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  const std::string head = R"({"flags":0,"from":"x","notification":"n","reference":)";
  const std::string tail = R"(,"to":"display","type":"notify"})";
  const RawPeer sender = RawPeer::connect();
  for (const char* reference : {"null", "0", "\"text\"", "[1]", "{\"a\":1}", "false"}) {
    sender.send_message(head + reference + tail);
    EXPECT_EQ(receiver.receive_message(), head + reference + tail);
  }
}

TEST(Reference, IsReadFromAStringToo) {
  ServerProcess server;
  const RawPeer victim = RawPeer::connect();
  const std::string identity = std::to_string(settle(victim));
  const RawPeer sender = RawPeer::connect();
  sender.send_message(R"({"flags":0,"from":"x","notification":"n","reference":")" + identity +
                      R"(","to":"display","type":"notify"})");
  EXPECT_EQ(victim.receive_message(), R"({"flags":0,"from":"x","notification":"n","reference":")" +
                                          identity + R"(","to":"display","type":"unicast_error"})");
}

TEST(Reference, StaysInAReturnedMessageThatAnotherRowTakes) {
  ServerProcess server;
  const RawPeer fallback = join("display", "n", 1);
  const RawPeer best = join("display", "n", 9);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("display", "n"));
  const std::string text = best.receive_message();
  best.send_message(unregistration("display", "n"));
  best.send_message(text);
  EXPECT_EQ(fallback.receive_message(), notification("display", "n", identity));
}

TEST(Reference, DoesNotKeepAReturnedMessageFromTheRowThatReturnedIt) {
  ServerProcess server;
  const RawPeer other = join("display", "n", 1);
  const RawPeer best = join("display", "n", 9);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("display", "n"));
  for (int round = 0; round < 5; ++round) {
    const std::string text = best.receive_message();
    EXPECT_EQ(text, notification("display", "n", identity));
    best.send_message(text);
  }
  EXPECT_EQ(best.receive_message(), notification("display", "n", identity));
  settle(other);
}

TEST(Reference, IsNeitherNullNorSmall) {
  ServerProcess server;
  const RawPeer sender = RawPeer::connect();
  EXPECT_GT(settle(sender), 0xFFFF);
}

TEST(Reference, StaysTheSameForASession) {
  ServerProcess server;
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  EXPECT_EQ(settle(sender), identity);
}

TEST(Reference, DiffersBetweenSessionsPastAndPresent) {
  ServerProcess server;
  std::vector<RawPeer> staying;
  std::set<int> identities;
  for (int i = 0; i < 20; ++i) {
    RawPeer leaving = RawPeer::connect();
    identities.insert(settle(leaving));
    leave(leaving);
    staying.push_back(RawPeer::connect());
    identities.insert(settle(staying.back()));
  }
  EXPECT_EQ(identities.size(), 40U);
}
