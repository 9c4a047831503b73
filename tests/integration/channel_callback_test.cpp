// SPDX-License-Identifier: MIT
// Callbacks of channels that send notifications, whatever becomes of the connection. The
// dispatcher's lock is held in them, and the end of any channel needs it.
#include <gtest/gtest.h>
#include <zedipc/notify.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "ipc/callbacks.h"
#include "support/child.h"
#include "support/raw_peer.h"
#include "support/server_process.h"
#include "support/task.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kCalls = 100;

void notify() { ipcNotify("*", "n", JSObject(1), 0, "f"); }

// A channel whose callback notifies, and leaves its input for the next call.
class Notifying {
 public:
  Notifying() {
    EXPECT_TRUE(callback_.set_on(adopted_.channel));
    adopted_.peer.send("x");
  }

  [[nodiscard]] bool goes_on() const { return callback_.called(callback_.calls() + kCalls); }

 private:
  Callback callback_{[](IPC& channel) {
    notify();
    rearm(channel);
  }};
  Adopted adopted_;
};

// Runs `body` in a process of its own, which does not end if it comes to a deadlock.
void expect_to_end(const std::function<void()>& body) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "0"}, {"NFY_LOGMASK", "0"}}, body);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

// A server in this process.
void start_server() {
  std::thread([] { ipcNotificationServer(); }).detach();
  ASSERT_TRUE(eventually([] { return port_is_open(kNotifyPort); }));
}

std::atomic<int> received{0};

void receive(void*, const std::string&, const std::string&, const std::string&, const JSObject&,
             unsigned int) {
  ++received;
}

}  // namespace

TEST(ChannelCallback, NotifiesWhileNoConnectionCanBeMade) {
  expect_to_end([] {
    const Notifying notifying;
    const Repeat other(notify);
    EXPECT_TRUE(notifying.goes_on());
  });
}

TEST(ChannelCallback, NotifiesWhileTheConnectionIsLost) {
  for (int time = 0; time < 3; ++time) {
    expect_to_end([] {
      const RawListener listener;
      const Notifying notifying;
      const Repeat other(notify);
      RawPeer server = listener.accept();
      EXPECT_NE(server.receive(1), "");
      server.close();
      EXPECT_TRUE(notifying.goes_on());
    });
  }
}

TEST(ChannelCallback, NotifiesThroughAServerInTheSameProcess) {
  expect_to_end([] {
    start_server();
    EXPECT_EQ(ipcRegisterNotificationCB("last", receive, nullptr, 0, "t"), 0);
    const Notifying notifying;
    const Repeat other(notify);
    // The sessions of these come and go.
    const Repeat peers([] {
      const RawPeer peer = RawPeer::connect();
      if (peer.connected()) peer.send_message("no message");
    });
    EXPECT_TRUE(notifying.goes_on());
    EXPECT_EQ(ipcNotify("t", "last", JSObject(1), 0, "f"), 0);
    EXPECT_TRUE(eventually([] { return received == 1; }));
  });
}
