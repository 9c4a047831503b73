// SPDX-License-Identifier: MIT
// A server that does not read from a client while it writes to it, as the real one does
// while it delivers a message. The client's reader must not wait then for anybody who waits
// for the server.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <zedipc/tcp.h>

#include <thread>

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

// A frame that the client refuses leaves the server in a write, in which it reads from nobody.
// What becomes too long by the server's own member is such a frame.
TEST(RefusedFrames, LeaveTheServerAbleToGoOn) {
  const ServerProcess server;
  ASSERT_EQ(ipcRegisterNotificationCB("x", do_nothing, nullptr, 1, "self"), 0);
  constexpr std::size_t kLimit = 524288;
  const JSObject large(std::string(400000, 'x'));
  const std::size_t around = notification("self", "x").size() - 2;  // "" for null
  const JSObject too_large(std::string(kLimit - around, 'y'));
  std::atomic<int> refused{0};
  std::atomic<bool> stop{false};
  std::deque<Task> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([&] {
      while (!stop) ipcNotify("self", "x", large, 0, "f");
      return 0;
    });
  }
  senders.emplace_back([&] {
    while (!stop) {
      if (ipcNotify("self", "x", too_large, 0, "f") == 0) ++refused;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
  });
  EXPECT_TRUE(eventually([&] { return refused >= 40; }, 30000));
  stop = true;
  for (Task& sender : senders) EXPECT_EQ(sender.result(), 0);
}

// Whoever loses a connection frees its channel, which has nothing to do with the callback.
TEST(LostConnections, LeaveNoThreadsBehindAChannelCallback) {
  static std::atomic<bool> stop{false};
  const RawListener listener;
  Task server([&] {
    while (!stop) listener.accept(100).close();
    return 0;
  });
  const RawListener other("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("127.0.0.1", other.port(), -1));
  const int threads = thread_count();
  ASSERT_TRUE(channel.set_callback(
      [](void*, IPC*) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        while (std::chrono::steady_clock::now() < end) say("x");
        stop = true;
      },
      nullptr));
  const RawPeer peer = other.accept();
  peer.send("x");
  int most = 0;
  while (!stop) most = std::max(most, thread_count());
  EXPECT_LT(most, threads + 20);
  server.result();
}
