// SPDX-License-Identifier: MIT
// Notifications to everybody.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

TEST(Broadcast, ReachesEveryRowOfTheNotificationWhateverItsName) {
  ServerProcess server;
  const RawPeer display = join("display", "n");
  const RawPeer logger = join("logger", "n");
  const RawPeer star = join("*", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  EXPECT_EQ(display.receive_message(), notification("*", "n"));
  EXPECT_EQ(logger.receive_message(), notification("*", "n"));
  EXPECT_EQ(star.receive_message(), notification("*", "n"));
}

TEST(Broadcast, PassesOverRowsOfOtherNotifications) {
  ServerProcess server;
  const RawPeer other = join("display", "nn");
  const RawPeer upper = join("display", "N");
  const RawPeer pattern = join("display", "*");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  settle(sender);
  settle(other);
  settle(upper);
  settle(pattern);
}

TEST(Broadcast, ComparesNamesBehindAZeroByteToo) {
  ServerProcess server;
  const RawPeer whole = join("display", R"(a\u0000b)");
  const RawPeer cut = join("display", "a");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", R"(a\u0000b)"));
  settle(sender);
  EXPECT_EQ(whole.receive_message(), notification("*", R"(a\u0000b)"));
  settle(cut);
}

TEST(Broadcast, IsForwardedAsTheBytesThatArrived) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  const std::string text = std::string(
                               "\t{ \"type\" : \"notify\",\"to\":\"*\",\r\n\"notification\":\"x\", "
                               "\"notification\":\"n\" , }trailing") +
                           '\0' + "\xff bytes";
  const RawPeer sender = RawPeer::connect();
  sender.send_message(text);
  EXPECT_EQ(receiver.receive_message(), text);
}

TEST(Broadcast, GetsNoReference) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  receiver.send_message(R"({"to":"*","notification":"n","type":"notify"})");
  EXPECT_EQ(receiver.receive_message(), R"({"to":"*","notification":"n","type":"notify"})");
}

TEST(Broadcast, KeepsAReferenceThatItHas) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("*", "n", 77));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n", 77));
}

TEST(Broadcast, ReachesASessionWithTwoRowsOnce) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  receiver.send_message(registration("logger", "n"));
  settle(receiver);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  settle(sender);
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
  settle(receiver);
}

TEST(Broadcast, ReachesItsSenderToo) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send_message(notification("*", "n"));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
}

TEST(Broadcast, ToNobodyIsDroppedWithoutAWord) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer other = join("display", "other");
  log.forget();
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  settle(sender);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): ipc=S2 received notification 'n' (from='printer', "
                   "to='*', para='{\"tray\":2}', flags=0)"}));
}

TEST(Broadcast, IsDeliveredInTheOrderOfRegistration) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer first = join("zebra", "n", 1);
  const RawPeer second = join("ant", "n", 9);
  const RawPeer third = join("mule", "n", 5);
  const RawPeer sender = RawPeer::connect();
  settle(sender);
  log.forget();
  sender.send_message(notification("*", "n"));
  settle(sender);
  EXPECT_EQ(
      log.lines(),
      (Lines{"info|handle_client(): ipc=S4 received notification 'n' (from='printer', "
             "to='*', para='{\"tray\":2}', flags=0)",
             "info|handle_client(): broadcast notification 'n' to 'zebra' (ipc=S1) successful",
             "info|handle_client(): broadcast notification 'n' to 'ant' (ipc=S2) successful",
             "info|handle_client(): broadcast notification 'n' to 'mule' (ipc=S3) successful"}));
}

TEST(Broadcast, IsLoggedOncePerSession) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer peer = join("display", "n");
  peer.send_message(registration("logger", "n"));
  settle(peer);
  log.forget();
  peer.send_message(notification("*", "n"));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
  settle(peer);
  EXPECT_EQ(
      log.lines(),
      (Lines{"info|handle_client(): ipc=S1 received notification 'n' (from='printer', to='*', "
             "para='{\"tray\":2}', flags=0)",
             "info|handle_client(): broadcast notification 'n' to 'display' (ipc=S1) successful"}));
}

TEST(Broadcast, ThatAClientReturnsGoesToEverybodyAgain) {
  ServerProcess server;
  const RawPeer first = join("display", "n");
  const RawPeer second = join("logger", "n");
  first.send_message(notification("*", "n"));
  EXPECT_EQ(first.receive_message(), notification("*", "n"));
  EXPECT_EQ(second.receive_message(), notification("*", "n"));
  second.send_message(notification("*", "n"));
  EXPECT_EQ(first.receive_message(), notification("*", "n"));
  EXPECT_EQ(second.receive_message(), notification("*", "n"));
}

TEST(Broadcast, GoesOnBehindAPeerThatDies) {
  ServerProcess server;
  RawPeer dying = join("display", "n");
  const RawPeer healthy = join("logger", "n");
  const RawPeer sender = RawPeer::connect();
  dying.reset();
  for (int i = 0; i < 50; ++i) {
    sender.send_message(notification("*", "n"));
    EXPECT_EQ(healthy.receive_message(), notification("*", "n"));
  }
}

TEST(Broadcast, ArrivesInTheOrderSent) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  const RawPeer sender = RawPeer::connect();
  std::string stream;
  for (int i = 1; i <= 200; ++i) stream += frame(kNotifyFrame, 0, notification("*", "n", i));
  sender.send(stream);
  for (int i = 1; i <= 200; ++i) EXPECT_EQ(receiver.receive_message(), notification("*", "n", i));
}
