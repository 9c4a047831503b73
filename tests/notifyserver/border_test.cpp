// SPDX-License-Identifier: MIT
// Rules for what crosses the machine's border, at the three places where they act.
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

RawPeer connect_remote() { return RawPeer::connect("127.0.0.1", kNotifyPort, kRemote); }

const char kBlockedRegistration[] =
    "note|handle_client(): registration for remote client blocked by outbound configuration";

std::string received(const std::string& session, const std::string& to) {
  return "info|handle_client(): ipc=" + session +
         " received notification 'n' (from='printer', to='" + to +
         "', para='{\"tray\":2}', flags=0)";
}

}  // namespace

TEST(InboundRule, LetsABroadcastIn) {
  ServerProcess server("in printer \\* n\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  remote.send_message(notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
}

TEST(InboundRule, KeepsABroadcastOutWithoutAnswer) {
  ServerProcess server("in other * *\n", kAllLevels);
  ServerLog log(server);
  const RawPeer receiver = join("display", "n");
  log.forget();
  const RawPeer remote = connect_remote();
  remote.send_message(notification("*", "n"));
  settle(remote);
  settle(receiver);
  EXPECT_EQ(log.lines(), (Lines{received("S2", "*"),
                                "note|handle_client(): broadcast notification 'n' blocked "
                                "by inbound configuration"}));
}

TEST(InboundRule, LetsAUnicastIn) {
  ServerProcess server("in printer display n\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  const int identity = settle(remote);
  remote.send_message(notification("display", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("display", "n", identity));
}

TEST(InboundRule, SendsARefusedUnicastBack) {
  ServerProcess server("in printer logger *\n", kAllLevels);
  ServerLog log(server);
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  const int identity = settle(remote);
  log.forget();
  remote.send_message(notification("display", "n"));
  EXPECT_EQ(remote.receive_message(), unicast_error("display", "n", identity));
  settle(remote);
  settle(receiver);
  EXPECT_EQ(
      log.lines(),
      (Lines{received("S2", "display"),
             "note|handle_client(): unicast notification 'n' blocked by inbound configuration",
             "note|handle_client(): sent unicast error to 'printer' (ipc=S2) for "
             "notification 'n'"}));
}

TEST(InboundRule, SendsARefusedUnicastToTheSessionInItsReference) {
  ServerProcess server("out * * *\n", {});
  const RawPeer local = RawPeer::connect();
  const int identity = settle(local);
  const RawPeer remote = connect_remote();
  remote.send_message(notification("display", "n", identity));
  EXPECT_EQ(local.receive_message(), unicast_error("display", "n", identity));
  settle(remote);
}

TEST(InboundRule, ForANameDoesNotAdmitABroadcast) {
  ServerProcess server("in * display n\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  remote.send_message(notification("*", "n"));
  settle(remote);
  settle(receiver);
}

TEST(InboundRule, ForAnEscapedStarAdmitsBroadcastsOnly) {
  ServerProcess server("in * \\* n\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  const int identity = settle(remote);
  remote.send_message(notification("display", "n"));
  EXPECT_EQ(remote.receive_message(), unicast_error("display", "n", identity));
  remote.send_message(notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
}

TEST(InboundRule, SeesTheDestinationOneAsText) {
  ServerProcess server("in * 1 n\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  const int identity = settle(remote);
  remote.send_message(notification("display", "n"));
  EXPECT_EQ(remote.receive_message(), unicast_error("display", "n", identity));
  remote.send_message(notification("1", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("1", "n", identity));
}

TEST(InboundRule, SeesAnAbsentSenderAsNull) {
  ServerProcess server("in null * n\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  remote.send_message(R"({"to":"*","notification":"n","type":"notify"})");
  EXPECT_EQ(receiver.receive_message(), R"({"to":"*","notification":"n","type":"notify"})");
}

TEST(InboundRule, PassesAnEmptySenderByStarsAlone) {
  ServerProcess server("in ** * n\nin \\* * m\n", {});
  const RawPeer receiver = join("display", "n");
  receiver.send_message(registration("display", "m"));
  settle(receiver);
  const RawPeer remote = connect_remote();
  remote.send_message(R"({"to":"*","from":"","notification":"m","type":"notify"})");
  remote.send_message(R"({"to":"*","from":"","notification":"n","type":"notify"})");
  EXPECT_EQ(receiver.receive_message(),
            R"({"to":"*","from":"","notification":"n","type":"notify"})");
}

TEST(InboundRule, DoesNotConcernLocalSenders) {
  ServerProcess server("in nobody nowhere nothing\n", {});
  const RawPeer receiver = join("display", "n");
  const int identity = settle(receiver);
  receiver.send_message(notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
  receiver.send_message(notification("display", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("display", "n", identity));
}

TEST(InboundRule, IsEnoughToReachALocalReceiver) {
  ServerProcess server("in * * *\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  remote.send_message(notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
}

TEST(InboundRule, MissingRefusesEverythingOfARemoteClient) {
  ServerProcess server("out * * *\n", {});
  const RawPeer receiver = join("display", "n");
  const RawPeer remote = connect_remote();
  const int identity = settle(remote);
  remote.send_message(notification("*", "n"));
  remote.send_message(notification("1", "n"));
  EXPECT_EQ(remote.receive_message(), unicast_error("1", "n", identity));
  settle(receiver);
}

TEST(OutboundRule, LetsABroadcastOut) {
  ServerProcess server("out printer \\* n\n", {});
  const RawPeer remote = join("far", "n", 1, kRemote);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  EXPECT_EQ(remote.receive_message(), notification("*", "n"));
}

TEST(OutboundRule, KeepsABroadcastFromEveryRemoteRow) {
  ServerProcess server("out nobody * *\n", kAllLevels);
  ServerLog log(server);
  const RawPeer remote = join("far", "n", 1, kRemote);
  remote.send_message(registration("away", "other"));
  settle(remote);
  const RawPeer local = join("display", "n");
  log.forget();
  local.send_message(notification("*", "n"));
  EXPECT_EQ(local.receive_message(), notification("*", "n"));
  settle(local);
  settle(remote);
  EXPECT_EQ(
      log.lines(),
      (Lines{received("S2", "*"),
             "note|handle_client(): broadcast notification 'n' to 'far' (ipc=S1) blocked by "
             "outbound configuration",
             "note|handle_client(): broadcast notification 'n' to 'away' (ipc=S1) blocked by "
             "outbound configuration",
             "info|handle_client(): broadcast notification 'n' to 'display' (ipc=S2) successful"}));
}

TEST(OutboundRule, IsNotToldToObserversWhenItBlocks) {
  ServerProcess server("out nobody * *\n", {});
  const RawPeer observer = join_as_observer();
  const RawPeer remote = join("far", "n", 1, kRemote);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  settle(sender);
  settle(observer);
}

TEST(OutboundRule, LetsAUnicastOut) {
  ServerProcess server("out printer far n\n", {});
  const RawPeer remote = join("far", "n", 1, kRemote);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("far", "n"));
  EXPECT_EQ(remote.receive_message(), notification("far", "n", identity));
}

TEST(OutboundRule, LeavesAUnicastToALocalRow) {
  ServerProcess server("out nobody * *\n", kAllLevels);
  ServerLog log(server);
  const RawPeer remote = join("display", "n", 9, kRemote);
  remote.send_message(registration("away", "other"));
  settle(remote);
  const RawPeer local = join("display", "n", 1);
  const int identity = settle(local);
  log.forget();
  local.send_message(notification("display", "n"));
  EXPECT_EQ(local.receive_message(), notification("display", "n", identity));
  settle(local);
  settle(remote);
  EXPECT_EQ(log.lines(),
            (Lines{received("S2", "display"),
                   "note|handle_client(): unicast notification 'n' to 'display' (ipc=S1) blocked "
                   "by outbound configuration",
                   "note|handle_client(): unicast notification 'n' to 'away' (ipc=S1) blocked by "
                   "outbound configuration",
                   "info|handle_client(): delivery of unicast notification 'n' to 'display' "
                   "(ipc=S2) successful"}));
}

TEST(OutboundRule, LetsARemoteRowTakeByItsPriorityWhatALocalOneWouldGet) {
  ServerProcess server("out * * n\n", {});
  const RawPeer local = join("display", "n", 9);
  const RawPeer remote = join("display", "n", 10, kRemote);
  const int identity = settle(local);
  local.send_message(notification("display", "n"));
  EXPECT_EQ(remote.receive_message(), notification("display", "n", identity));
  local.send_message(notification("1", "n"));
  EXPECT_EQ(remote.receive_message(), notification("1", "n", identity));
  settle(local);
}

TEST(OutboundRule, IsPassedByANameWithMoreBehindAZeroByte) {
  ServerProcess server("out * far n\n", {});
  const RawPeer remote = join("far\\u0000away", "n", 1, kRemote);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("far\\u0000away", "n"));
  EXPECT_EQ(remote.receive_message(), notification("far\\u0000away", "n", identity));
}

TEST(OutboundRule, SendsAUnicastBackThatOnlyARemoteRowCouldTake) {
  ServerProcess server("out nobody * *\n", {});
  const RawPeer remote = join("far", "n", 1, kRemote);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("far", "n"));
  EXPECT_EQ(sender.receive_message(), unicast_error("far", "n", identity));
  settle(remote);
}

TEST(OutboundRule, MatchesADestinationOfTheMessageNotOfTheRow) {
  ServerProcess server("out * far n\n", {});
  const RawPeer remote = join("far", "n", 1, kRemote);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(notification("1", "n"));
  EXPECT_EQ(sender.receive_message(), unicast_error("1", "n", identity));
  sender.send_message(notification("far", "n"));
  EXPECT_EQ(remote.receive_message(), notification("far", "n", identity));
}

TEST(OutboundRule, IsNeededBesidesAnInboundOneBetweenRemoteClients) {
  ServerProcess server("in * * *\nout * * n\n", {});
  const RawPeer receiver = join("far", "n", 1, kRemote);
  receiver.send_message(registration("far", "m"));
  const RawPeer sender = connect_remote();
  const int identity = settle(sender);
  sender.send_message(notification("far", "m"));
  EXPECT_EQ(sender.receive_message(), unicast_error("far", "m", identity));
  sender.send_message(notification("far", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("far", "n", identity));
}

TEST(OutboundRule, ForTheNotificationAdmitsARemoteRegistrationWhateverElseItSays) {
  ServerProcess server("out nobody nowhere alarm*\n", kAllLevels);
  ServerLog log(server);
  const RawPeer remote = join("far", "alarm.fire", 1, kRemote);
  EXPECT_EQ(log.lines().back(), "note|handle_client(): new registration added");
}

TEST(OutboundRule, AnyOneAdmitsARemoteRegistration) {
  ServerProcess server("out * * a\nout * * b\nout * * c\n", kNotes);
  ServerLog log(server);
  const RawPeer remote = join("far", "c", 1, kRemote);
  EXPECT_EQ(log.lines(), Lines{"note|handle_client(): new registration added"});
}

TEST(OutboundRule, RefusesARemoteRegistrationForAnotherNotification) {
  ServerProcess server("in * * *\nout * * alarm*\n", kAllLevels);
  ServerLog log(server);
  const RawPeer remote = join("far", "status", 4, kRemote);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): received registration from remote client (ipc=S1, "
                   "notification='status', to='far', prio=4)",
                   kBlockedRegistration}));
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "status"));
  settle(sender);
  settle(remote);
}

TEST(OutboundRule, MissingRefusesEveryRemoteRegistration) {
  ServerProcess server("in * * *\n", kNotes);
  ServerLog log(server);
  const RawPeer remote = join("far", "n", 1, kRemote);
  EXPECT_EQ(log.lines(), Lines{kBlockedRegistration});
}

TEST(OutboundRule, DoesNotConcernLocalRegistrations) {
  ServerProcess server("out * * alarm*\n", kNotes);
  ServerLog log(server);
  const RawPeer local = join("display", "status");
  EXPECT_EQ(log.lines(), Lines{"note|handle_client(): new registration added"});
}

TEST(OutboundRule, DoesNotConcernUnregistration) {
  ServerProcess server("in * * *\nout nobody nowhere n\n", kAllLevels);
  ServerLog log(server);
  const RawPeer remote = join("far", "n", 3, kRemote);
  remote.send_message(unregistration("far", "n"));
  settle(remote);
  EXPECT_EQ(log.lines().back(),
            "note|handle_client(): unregistered remote client (ipc=S1, notification='n', "
            "to='far', prio=3)");
}

TEST(NoRules, RefuseAPeerFromAnotherAddressEverything) {
  ServerProcess server(kNotes);
  ServerLog log(server);
  const RawPeer receiver = join("display", "n");
  log.forget();
  const RawPeer remote = join("far", "n", 1, kRemote);
  const int identity = settle(remote);
  remote.send_message(notification("display", "n"));
  EXPECT_EQ(remote.receive_message(), unicast_error("display", "n", identity));
  EXPECT_EQ(log.lines().front(), kBlockedRegistration);
  settle(receiver);
}
