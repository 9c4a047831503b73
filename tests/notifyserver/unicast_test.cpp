// SPDX-License-Identifier: MIT
// Notifications to one receiver.
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

// Sends a unicast and shows that it reaches this peer.
void expect_reaches(const RawPeer& receiver, const std::string& to, const std::string& name) {
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification(to, name));
  EXPECT_EQ(receiver.receive_message(), notification(to, name, identity));
  settle(sender);
}

constexpr int kLowest = -2147483647 - 1;

}  // namespace

TEST(Unicast, CarriesTheSendersIdentity) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("display", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("display", "n", identity));
}

TEST(Unicast, IsWrittenAnew) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  const int identity = settle(receiver);
  receiver.send_message(
      "{ \"type\":\"notify\", \"zeta\" : [1, 2], \"to\":\"display\", \"notification\":\"n\","
      "\"from\":\"\\u0041\", \"flags\":3, \"parameter\":1.5, \"flags\":4 } trailing");
  EXPECT_EQ(receiver.receive_message(),
            R"({"flags":4,"from":"A","notification":"n","parameter":1.5,"reference":)" +
                std::to_string(identity) + R"(,"to":"display","type":"notify","zeta":[1,2]})");
}

TEST(Unicast, GoesToTheRowOfThatName) {
  ServerProcess server;
  const RawPeer display = join("display", "n", 1);
  const RawPeer logger = join("logger", "n", 9);
  expect_reaches(display, "display", "n");
  settle(logger);
}

TEST(Unicast, DestinationIsNoPattern) {
  ServerProcess server;
  const RawPeer display = join("display", "n");
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  for (const std::string to : {"dis*", "**", "Display", "display ", ""}) {
    sender.send_message(notification(to, "n"));
    EXPECT_EQ(sender.receive_message(), unicast_error(to, "n", identity));
  }
  settle(display);
}

TEST(Unicast, PassesOverRowsOfOtherNotifications) {
  ServerProcess server;
  const RawPeer display = join("display", "n*", 9);
  display.send_message(registration("display", "nn", 8));
  settle(display);
  const RawPeer wanted = join("display", "n", 1);
  expect_reaches(wanted, "display", "n");
  settle(display);
}

TEST(Unicast, PrefersTheHighestPriority) {
  ServerProcess server;
  const RawPeer low = join("display", "n", 2);
  const RawPeer high = join("display", "n", 10);
  const RawPeer middle = join("display", "n", 9);
  expect_reaches(high, "display", "n");
  settle(low);
  settle(middle);
}

TEST(Unicast, ComparesPrioritiesAsSignedNumbers) {
  ServerProcess server;
  const RawPeer higher = join("display", "n", -5);
  const RawPeer lower = join("display", "n", -9);
  expect_reaches(higher, "display", "n");
  settle(lower);
}

TEST(Unicast, ReachesARowOfTheLowestPriority) {
  ServerProcess server;
  const RawPeer lowest = join("display", "n", kLowest);
  expect_reaches(lowest, "display", "n");
}

TEST(Unicast, PrefersTheHighestOfAllPriorities) {
  ServerProcess server;
  const RawPeer highest = join("display", "n", 2147483647);
  const RawPeer lowest = join("display", "n", kLowest);
  expect_reaches(highest, "display", "n");
  settle(lowest);
}

TEST(Unicast, PrefersTheLatestOfEqualRows) {
  ServerProcess server;
  const RawPeer first = join("display", "n", 5);
  const RawPeer second = join("display", "n", 5);
  const RawPeer third = join("display", "n", 4);
  expect_reaches(second, "display", "n");
  settle(first);
  settle(third);
}

TEST(Unicast, PrefersTheLatestOfEqualRowsOfTheLowestPriority) {
  ServerProcess server;
  const RawPeer first = join("display", "n", kLowest);
  const RawPeer second = join("display", "n", kLowest);
  expect_reaches(second, "display", "n");
  settle(first);
}

TEST(Unicast, FindsAnUpdatedRowInItsOldPlace) {
  ServerProcess server;
  const RawPeer old = join("display", "n", 1);
  const RawPeer young = join("display", "n", 5);
  old.send_message(registration("display", "n", 5));
  settle(old);
  expect_reaches(young, "display", "n");
  settle(old);
}

TEST(Unicast, FollowsAnUpdatedPriority) {
  ServerProcess server;
  const RawPeer raised = join("display", "n", 1);
  const RawPeer other = join("display", "n", 5);
  raised.send_message(registration("display", "n", 6));
  settle(raised);
  expect_reaches(raised, "display", "n");
  raised.send_message(registration("display", "n", -6));
  settle(raised);
  expect_reaches(other, "display", "n");
}

TEST(Unicast, KeepsTheOrderOfRowsWhenOneIsRemoved) {
  ServerProcess server;
  const RawPeer first = join("display", "n", 5);
  const RawPeer second = join("display", "n", 5);
  const RawPeer third = join("display", "n", 5);
  third.send_message(unregistration("display", "n"));
  settle(third);
  expect_reaches(second, "display", "n");
  settle(first);
}

TEST(Unicast, PrefersARowThatWasRegisteredAgain) {
  ServerProcess server;
  const RawPeer first = join("display", "n", 5);
  const RawPeer second = join("display", "n", 5);
  first.send_message(unregistration("display", "n"));
  first.send_message(registration("display", "n", 5));
  settle(first);
  expect_reaches(first, "display", "n");
  settle(second);
}

TEST(Unicast, ToOneGoesToTheBestRowOfTheNotificationWhateverItsName) {
  ServerProcess server;
  const RawPeer one = join("1", "n", 1);
  const RawPeer best = join("logger", "n", 9);
  const RawPeer star = join("*", "n", 8);
  const RawPeer other = join("display", "other", 10);
  expect_reaches(best, "1", "n");
  settle(one);
  settle(star);
  settle(other);
}

TEST(Unicast, ToOneReachesARowNamedStar) {
  ServerProcess server;
  const RawPeer star = join("*", "n");
  expect_reaches(star, "1", "n");
}

TEST(Unicast, ReachesItsOwnSender) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  const int identity = settle(peer);
  peer.send_message(notification("display", "n"));
  EXPECT_EQ(peer.receive_message(), notification("display", "n", identity));
}

TEST(Unicast, ReachesOneSessionOnly) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n", 5);
  receiver.send_message(registration("logger", "n", 5));
  settle(receiver);
  expect_reaches(receiver, "1", "n");
  settle(receiver);
}

TEST(Unicast, NamesTheRowThatABetterOneReplaces) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer first = join("a", "n", 1);
  const RawPeer second = join("b", "n", 5);
  const RawPeer third = join("c", "n", 3);
  const RawPeer fourth = join("d", "n", 5);
  const RawPeer sender = RawPeer::connect();
  settle(sender);
  log.forget();
  sender.send_message(notification("1", "n"));
  settle(sender);
  EXPECT_EQ(
      log.lines(),
      (Lines{"info|handle_client(): ipc=S5 received notification 'n' (from='printer', to='1', "
             "para='{\"tray\":2}', flags=0)",
             "note|handle_client(): unicast notification 'n' to 'a' (ipc=S1) blocked due to higher "
             "priority 5 (>=5) of 'b' (ipc=S2)",
             "note|handle_client(): unicast notification 'n' to 'b' (ipc=S2) blocked due to higher "
             "priority 5 (>=5) of 'd' (ipc=S4)",
             "info|handle_client(): delivery of unicast notification 'n' to 'd' (ipc=S4) "
             "successful"}));
}

TEST(Unicast, IsNotLoggedBelowTheLevel) {
  ServerProcess server(kErrorsAndNotes);
  const RawPeer receiver = join("display", "n");
  expect_reaches(receiver, "display", "n");
  settle(receiver);
  EXPECT_EQ(server.err().find("notification 'n'"), std::string::npos);
}

TEST(Unicast, WithoutAParameterGetsANullOneWhenReceiptsAreLogged) {
  ServerProcess server(kInfos);
  const RawPeer receiver = join("display", "n");
  const int identity = settle(receiver);
  receiver.send_message(
      R"({"flags":0,"from":"x","notification":"n","to":"display","type":"notify"})");
  EXPECT_EQ(receiver.receive_message(),
            R"({"flags":0,"from":"x","notification":"n","parameter":null,"reference":)" +
                std::to_string(identity) + R"(,"to":"display","type":"notify"})");
  settle(receiver);
  EXPECT_NE(server.err().find("(from='x', to='display', para='null', flags=0)"), std::string::npos);
}

TEST(Unicast, WithoutAParameterGetsNoneWhenReceiptsAreNotLogged) {
  const Environment all_but_info{{"NFY_LOGMASK", "191"}};
  ServerProcess server(all_but_info);
  const RawPeer receiver = join("display", "n");
  const int identity = settle(receiver);
  receiver.send_message(
      R"({"flags":0,"from":"x","notification":"n","to":"display","type":"notify"})");
  EXPECT_EQ(receiver.receive_message(), R"({"flags":0,"from":"x","notification":"n","reference":)" +
                                            std::to_string(identity) +
                                            R"(,"to":"display","type":"notify"})");
}
