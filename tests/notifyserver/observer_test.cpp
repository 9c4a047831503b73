// SPDX-License-Identifier: MIT
// Sessions that are told of what the others receive.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

TEST(Observer, IsToldOfAUnicast) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("display", "n"));
  EXPECT_EQ(observer.receive_message(), observed("display", "n"));
  settle(observer);
}

TEST(Observer, IsToldTheNameOfTheRowThatWasServed) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("1", "n"));
  EXPECT_EQ(observer.receive_message(), observed("display", "n"));
}

TEST(Observer, IsToldOfEachRowThatABroadcastServes) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer first = join("zebra", "n");
  const RawPeer second = join("ant", "n");
  const RawPeer other = join("mule", "other");
  first.send_message(notification("*", "n"));
  EXPECT_EQ(observer.receive_message(), observed("zebra", "n"));
  EXPECT_EQ(observer.receive_message(), observed("ant", "n"));
  settle(observer);
}

TEST(Observer, IsToldOfEveryRowOfASessionThatGetsABroadcastOnce) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer receiver = join("display", "n");
  receiver.send_message(registration("logger", "n"));
  receiver.send_message(notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
  EXPECT_EQ(observer.receive_message(), observed("display", "n"));
  EXPECT_EQ(observer.receive_message(), observed("logger", "n"));
  settle(observer);
}

TEST(Observer, IsToldNothingOfABroadcastToNobody) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer receiver = join("display", "other");
  receiver.send_message(notification("*", "n"));
  settle(receiver);
  settle(observer);
}

TEST(Observer, IsToldTheFlagsAsANumber) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer receiver = join("display", "n");
  const std::string head = R"({"from":"x","notification":"n","to":"*","type":"notify","flags":)";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"-1", "-1"}, {"\"12x\"", "12"}, {"true", "1"}, {"3.9", "3"}, {"null", "0"}};
  for (const auto& [written, told] : cases) {
    receiver.send_message(head + written + "}");
    EXPECT_EQ(observer.receive_message(),
              R"({"flags":)" + told +
                  R"(,"from":"x","notification":"n","to":"display","type":"notify_observer"})");
  }
}

TEST(Observer, IsToldOfAMessageWithoutSenderAndFlags) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer receiver = join("display", "n");
  receiver.send_message(R"({"notification":"n","to":"display","type":"notify"})");
  EXPECT_EQ(observer.receive_message(),
            R"({"flags":0,"from":"null","notification":"n","to":"display",)"
            R"("type":"notify_observer"})");
}

TEST(Observer, OfItsOwnTrafficGetsTheNotificationFirst) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send_message(kObserve);
  peer.send_message(notification("*", "n"));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
  EXPECT_EQ(peer.receive_message(), observed("display", "n"));
}

TEST(Observer, OneAmongSeveralIsToldLikeTheOthers) {
  ServerProcess server;
  const RawPeer first = join_as_observer();
  const RawPeer second = join_as_observer();
  const RawPeer third = join_as_observer();
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("*", "n"));
  EXPECT_EQ(first.receive_message(), observed("display", "n"));
  EXPECT_EQ(second.receive_message(), observed("display", "n"));
  EXPECT_EQ(third.receive_message(), observed("display", "n"));
}

TEST(Observer, ThatAskedTwiceIsToldOnce) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  observer.send_message(kObserve);
  settle(observer);
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("*", "n"));
  EXPECT_EQ(observer.receive_message(), observed("display", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
  settle(receiver);
  settle(observer);
}

TEST(Observer, ThatAskedTwiceStopsAtOnce) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  observer.send_message(kObserve);
  observer.send_message(kStopObserving);
  settle(observer);
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
  settle(receiver);
  settle(observer);
}

TEST(Observer, IsForgottenWithItsSession) {
  ServerProcess server;
  RawPeer gone = join_as_observer();
  const RawPeer staying = join_as_observer();
  leave(gone);
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("*", "n"));
  EXPECT_EQ(staying.receive_message(), observed("display", "n"));
}

TEST(Observer, RequestsAreLogged) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer observer = RawPeer::connect();
  for (const char* text : {kStopObserving, kObserve, kObserve, kStopObserving}) {
    observer.send_message(text);
  }
  settle(observer);
  EXPECT_EQ(log.lines(),
            (Lines{"info|handle_client(): unregistered local client as observer (ipc=S1)",
                   "info|handle_client(): registered local client as observer (ipc=S1)",
                   "info|handle_client(): registered local client as observer (ipc=S1)",
                   "info|handle_client(): unregistered local client as observer (ipc=S1)"}));
}

TEST(Observer, FromAnotherMachineIsIgnoredWithoutAWord) {
  ServerProcess server(kOpen, kAllLevels);
  ServerLog log(server);
  const RawPeer remote = RawPeer::connect("127.0.0.1", kNotifyPort, kRemote);
  remote.send_message(kObserve);
  remote.send_message(kStopObserving);
  remote.send_message(kObserve);
  settle(remote);
  EXPECT_EQ(log.lines(), Lines{});
  const RawPeer receiver = join("display", "n");
  receiver.send_message(notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
  settle(receiver);
  settle(remote);
}

TEST(Observer, IsToldOfTrafficWithRemoteSessionsWhateverTheRules) {
  ServerProcess server("in * * n\nout * * n\n", {});
  const RawPeer observer = join_as_observer();
  const RawPeer remote = join("far", "n", 1, kRemote);
  remote.send_message(notification("far", "n"));
  EXPECT_EQ(observer.receive_message(), observed("far", "n"));
}
