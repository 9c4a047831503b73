// SPDX-License-Identifier: MIT
// A server that does not read from a client while it writes to it, as the real one does
// while it delivers a message. The client's reader must not wait then for anybody who waits
// for the server.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "delivery_script.h"
#include "support/server_process.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// More than the system takes in the server's stead.
const JSObject kLarge(std::string(8U << 20, 'x'));
constexpr int kMany = 4000;
const std::string kPad(4000, 'p');

int send_much() { return ipcNotify("x", "much", kLarge, 0, "f"); }

// A client that is blocked in a write, and one more that waits for it.
class StalledScript : public Script {
 public:
  StalledScript() {
    receive_as("t", 1);
    sending_ = std::make_unique<Task>(send_much);
    EXPECT_TRUE(sending_->blocked());
    entering_ = std::make_unique<Task>(
        [] { return ipcRegisterNotificationCB("later", do_nothing, nullptr, 1, "t"); });
    EXPECT_TRUE(entering_->blocked());
    // A write that nobody takes fails.
    const timeval patience{20, 0};
    setsockopt(server().fd(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  }

  // Reads on until the client is no longer blocked.
  void read_on() {
    next("notify");
    EXPECT_EQ(sending_->result(), 0);
  }
  int entered() { return entering_->result(); }

 private:
  std::unique_ptr<Task> sending_;
  std::unique_ptr<Task> entering_;
};

}  // namespace

TEST(StalledServer, IsReadFrom) {
  StalledScript script;
  for (int i = 0; i < kMany; ++i) script.send(notification("*", kPad));
  script.read_on();
  EXPECT_EQ(script.next("register"), registration("t", "later", 1));
  EXPECT_EQ(script.entered(), 0);
}

TEST(StalledServer, IsReadFromWhileACallWaitsToChangeATable) {
  StalledScript script;
  Task leaving([] { return ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"); });
  EXPECT_TRUE(leaving.blocked());
  for (int i = 0; i < kMany; ++i) script.send(notification("*", kPad));
  script.read_on();
  EXPECT_EQ(script.next("register"), registration("t", "later", 1));
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
  EXPECT_EQ(leaving.result(), 0);
  EXPECT_EQ(script.entered(), 0);
}

TEST(StalledServer, GetsBackWhatNobodyTookInItsOrder) {
  constexpr int kReturned = 1500;  // for which there is room
  StalledScript script;
  for (int i = 0; i < kReturned; ++i) script.send(notification("u" + std::to_string(i), kPad));
  script.read_on();
  Lines returned;
  while (returned.size() < kReturned) {
    const std::string message = script.server().receive_message();
    ASSERT_NE(message, "<timeout>");
    if (message != registration("t", "later", 1)) returned.push_back(message);
  }
  for (int i = 0; i < kReturned; ++i) {
    ASSERT_EQ(returned[static_cast<std::size_t>(i)], notification("u" + std::to_string(i), kPad));
  }
}

TEST(StalledServer, IsReadFromWhileItIsToldOfOldRegistrations) {
  Script script;
  Task registering(
      [] { return ipcRegisterNotificationCB(kLarge.getString(), do_nothing, nullptr, 1, "t"); });
  script.next("register");
  EXPECT_EQ(registering.result(), 0);
  Recorder& calls = script.receive_as("t", 1);
  lose(script.server());
  Task sending([] { return say("after"); });
  ASSERT_TRUE(script.server().connected());
  ASSERT_TRUE(sending.blocked());
  const timeval patience{20, 0};
  setsockopt(script.server().fd(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  for (int i = 0; i < kMany; ++i) script.send(notification("*", kPad));
  script.send(notification("t", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
  EXPECT_TRUE(sending.running());
  script.next("register");
  EXPECT_EQ(script.next("register"), registration("t", "n", 1));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

// The real server, which held this up for ever.
TEST(SelfFlood, GoesOnWhileAnotherThreadRegisters) {
  const ServerProcess server;
  static std::atomic<int> received{0};
  const auto count = [](void*, const std::string&, const std::string&, const std::string&,
                        const JSObject&, unsigned int) { ++received; };
  ASSERT_EQ(ipcRegisterNotificationCB("flood", count, nullptr, 1, "self"), 0);
  constexpr int kFlood = 6000;
  const JSObject parameter(kPad);
  {
    const Repeat registering([] {
      EXPECT_EQ(ipcRegisterNotificationCB("other", do_nothing, nullptr, 1, "self"), 0);
      EXPECT_EQ(ipcUnregisterNotificationCB("other", nullptr, nullptr, "self"), 0);
    });
    for (int i = 0; i < kFlood; ++i) {
      ASSERT_EQ(ipcNotify("self", "flood", parameter, 0, "self"), 0);
    }
  }
  EXPECT_TRUE(eventually([&] { return received == kFlood; }));
}
