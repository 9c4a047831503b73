// SPDX-License-Identifier: MIT
// Server and clients together, each a process.
#include <gtest/gtest.h>
#include <zedipc/notify.h>

#include <atomic>
#include <limits>
#include <string>

#include "support/child.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

std::atomic<int> calls{0};
std::string last;

void remember(void*, const std::string& from, const std::string& to,
              const std::string& notification, const JSObject& parameter, unsigned int flags) {
  last = from + ">" + to + ":" + notification + parameter.dump() + std::to_string(flags);
  ++calls;
}

}  // namespace

TEST(Delivery, CarriesAUnicastFromAProcessToItself) {
  ServerProcess server;
  ipcSetAppID("display");
  ASSERT_EQ(ipcRegisterNotificationCB("paper.out", remember), 0);
  JSObject parameter;
  parameter("tray") = 2;
  ASSERT_EQ(ipcNotify("display", "paper.out", parameter, 7), 0);
  ASSERT_TRUE(eventually([] { return calls == 1; }));
  EXPECT_EQ(last, "display>display:paper.out{\"tray\":2}7");
}

TEST(Delivery, ForwardsABroadcastAsTheVeryTextThatArrived) {
  ServerProcess server;
  const RawPeer receiver = RawPeer::connect();
  receiver.send_message(R"({"notification":"n","priority":1,"to":"r","type":"register"})");
  receiver.send_message(R"({"type":"notify", "to":"*", "notification":"n"})");
  EXPECT_EQ(receiver.receive_message(), R"({"type":"notify", "to":"*", "notification":"n"})");
}

TEST(Delivery, LosesWhatHoldsANanOrAnInfinityWithoutAWord) {
  ServerProcess server(Environment{{"NFY_LOGMASK", "255"}});
  const RawPeer receiver = RawPeer::connect();
  receiver.send_message(R"({"notification":"n","priority":1,"to":"r","type":"register"})");
  ASSERT_TRUE(server.process().wait_for_err("new registration added"));
  for (const double number :
       {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN()}) {
    JSObject parameter;
    parameter("level") = number;
    EXPECT_EQ(ipcNotify("r", "n", parameter, 0, "me"), kNotifyDone);
    EXPECT_EQ(ipcNotify("r", "n", number, 0, "me"), kNotifyDone);
  }
  EXPECT_EQ(ipcNotify("r", "n", "the only one", 0, "me"), kNotifyDone);
  EXPECT_NE(receiver.receive_message().find("the only one"), std::string::npos);
  const std::string log = server.err();
  EXPECT_EQ(log.find("received notification"), log.rfind("received notification")) << log;
}

TEST(Delivery, FollowsTheLastOfSeveralPrioritiesAfterARestart) {
  ServerProcess server;
  ASSERT_EQ(ipcRegisterNotificationCB("n", remember, nullptr, 9, "t"), kNotifyDone);
  ASSERT_EQ(ipcRegisterNotificationCB("n", remember, &last, 3, "t"), kNotifyDone);
  server.stop();
  server.start();
  const RawPeer between = RawPeer::connect();
  between.send_message(R"({"notification":"n","priority":5,"to":"t","type":"register"})");
  EXPECT_TRUE(eventually([&] {
    ipcNotify("t", "n", JSObject(), 0, "me");
    return between.receive_message(100) != "<timeout>";
  }));
}
